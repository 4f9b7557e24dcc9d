"""--prefs and --set: what is read, which words are rejected, and who can change the preferences."""

import os
import string

import pytest

from machine import ANN, SET_MONO, TRACED, entries
from texts import CANNOT_WRITE, COULD_NOT_WRITE, HINT, NOTICE, PATH, listing, shown, stored

NEEDS_SUDO = b" (needs sudo to change)"
MEBI = 1 << 20


def test_pipe_in_place_of_the_file_is_waited_for_and_read_to_its_end(machine):
    os.mkfifo(machine.prefs)
    long_line, many_lines = b"#" + b"cfa=mono " * MEBI, b"\nlabelformat=on" * MEBI
    (machine.home / "content").write_bytes(long_line + many_lines + b"\ncfa=color\n")
    feed = f'cat /home/content >{PATH.decode()} & exec "$@"'
    assert machine.run("--prefs", script=feed) == (0, shown(cfa="color", labelformat="on"), b"")


def test_lines_before_a_read_error_count(machine):
    # The error comes after 4096 bytes. Their last part would be valid as a whole line.
    start, cut_off = "cfa=mono\n#", "\nlabelformat=on"
    read = start + "." * (4096 - len(start + cut_off)) + cut_off
    machine.prefs.write_text(read + "e\n#" + "." * MEBI + "\nlabelcorner=topleft\n")
    failing = f'exec strace -f -o /dev/null -P {PATH.decode()} -e inject=read:error=EIO:when=2 "$@"'
    assert machine.run("--prefs", env=TRACED, script=failing) == (0, shown(cfa="mono"), b"")


def test_set_without_a_word_is_a_usage_error(machine):
    before = entries(machine.share)
    assert machine.run("--set") == (2, b"", b"nebulark-ctl: --set needs at least one NAME=VALUE\n")
    assert entries(machine.share) == before


# Every byte but capitals and the equals sign.
ODD = bytes(range(1, 256)).translate(None, b"=" + string.ascii_uppercase.encode())


@pytest.mark.parametrize(
    "word, message",
    [
        (b"--prefs", b"expected name=value"),
        (b"brightness=dark", b"brightness: expected darker, standard or brighter"),
        (b"%S%n%d=on", b"unknown preference: %s%n%d"),
        (ODD + b"=on", b"unknown preference: " + ODD),
        (b"N" * 100 * 1024 + b"=on", b"unknown preference: " + b"n" * 100 * 1024),
    ],
    ids=["no assignment", "value", "format directives", "every byte", "100 KiB"],
)
@pytest.mark.parametrize("user", ["root", "ann"])
def test_rejected_word_stops_before_anything_is_written_or_elevated(machine, word, message, user):
    machine.prefs.write_text("cfa=mono\n")
    machine.pkexec("#!/bin/sh\necho elevated\n")
    before = entries(machine.share)
    run = machine.run("--set", "autostretch=on", word, "unlooked=at", user=user)
    assert run == (2, b"", b"nebulark-ctl: " + message + b"\n")
    assert entries(machine.share) == before


# For each state of the directory $D and the file $F, what root gets and what ann gets, without pkexec. They "read" the
# file, which holds autostretch=off, or see the "defaults". --set is "saved", "fails", is "stranded" in the temporary
# file, or "needs" administrator rights.
STATES = {
    "file": ("echo autostretch=off >$F", "read saved", "read needs"),
    "file for all, root's directory": ("echo autostretch=off >$F; chmod 666 $F", "read saved", "read fails"),
    "ann's read-only file": ("echo autostretch=off >$F; chmod 444 $F; chown 1000 $F", "read saved", "read needs"),
    "file for root alone": ("echo autostretch=off >$F; chmod 600 $F", "read saved", "defaults needs"),
    "root's file, ann's directory": ("echo autostretch=off >$F; chown 1000 $D", "read saved", "read needs"),
    "directory to write, not to enter": ("echo autostretch=off >$F; chmod 722 $D", "read saved", "defaults fails"),
    "file on a read-only mount": ("echo autostretch=off >$F; $READ_ONLY", "read needs", "read needs"),
    "no file": (":", "defaults saved", "defaults needs"),
    "no file, ann's directory": ("chown 1000 $D", "defaults saved", "defaults saved"),
    "no file, read-only mount": ("$READ_ONLY", "defaults needs", "defaults needs"),
    "no directory": ("rmdir $D", "defaults needs", "defaults needs"),
    "no directory, ann's parent": ("rmdir $D; chown 1000 /usr/share", "defaults needs", "defaults needs"),
    "link": ("echo autostretch=off >$D/else; chown 1000 $D/else; ln -s else $F", "read saved", "read fails"),
    "link to nothing": ("chown 1000 $D; ln -s nowhere $F", "defaults saved", "defaults saved"),
    "directory as file": ("mkdir $F; chown 1000 $D $F", "defaults stranded", "defaults stranded"),
    "directory as temporary file": ("echo autostretch=off >$F; mkdir $F.tmp", "read fails", "read needs"),
    "link as directory": ("mv $D $D.d; ln -s nebulark.d $D; echo autostretch=off >$F", "read saved", "read needs"),
    "file as directory": ("rmdir $D; touch $D", "defaults fails", "defaults needs"),  # root can write that file
}
READ_ONLY = "mount -o remount,bind,ro /usr/share"
VARIABLES = f"set -e; D=/usr/share/nebulark; F=$D/preferences.conf; READ_ONLY='{READ_ONLY}'; "


@pytest.mark.parametrize("prepare, for_root, for_ann", STATES.values(), ids=STATES)
@pytest.mark.parametrize("user", ["root", "ann"])
def test_file_is_read_and_saved_by_those_who_can(machine, user, prepare, for_root, for_ann):
    reads, ends = (for_root if user == "root" else for_ann).split()
    holds = {"read": {"autostretch": "off"}, "defaults": {}}[reads]
    assert machine.run("--version", script=VARIABLES + prepare + '\nexec "$@"').status == 0
    script = f'{READ_ONLY if "$READ_ONLY" in prepare else ":"}; exec "$@"'

    suffix = NEEDS_SUDO if ends == "needs" else b""
    assert machine.run("--prefs", user=user, script=script) == (0, shown(suffix, **holds), b"")

    prefs, prefs_tmp = (machine.prefs.parent.resolve() / path.name for path in (machine.prefs, machine.prefs_tmp))
    before = entries(machine.share)
    run = machine.run(*SET_MONO, user=user, script=script)
    after = entries(machine.share)
    changed = holds | {"cfa": "mono"}
    written = ("-rw-r--r--", {"root": 0, "ann": ANN}[user], stored(**changed))
    if ends == "saved":
        assert run == (0, listing(**changed) + HINT, b"")
        assert after.pop(prefs)[1:] == written
        before.pop(prefs, None)
    elif ends == "needs":
        assert run == (1, NOTICE, CANNOT_WRITE)
    else:
        assert run == (1, b"", COULD_NOT_WRITE)
        assert ends == "fails" or after.pop(prefs_tmp)[1:] == written
    assert after == before
