"""Showing and changing the preferences: what is read, what is said, what is written."""

import os
import signal
import stat
import string
from pathlib import Path
from typing import NamedTuple

import pytest

from machine import ANN, EMULATOR, TRACED
from texts import CANNOT_WRITE, COULD_NOT_WRITE, HINT, NOTICE, PATH, listing, shown, stored
from tracing import counts_lines

NEEDS_SUDO = b" (needs sudo to change)"
MEGABYTE = 1 << 20


class Entry(NamedTuple):
    inode: int
    mode: str
    owner: int
    content: bytes | str | None  # of a file; where a link leads


def entry(path: Path) -> Entry:
    status = path.lstat()
    content = path.read_bytes() if path.is_file() else None
    return Entry(
        status.st_ino,
        stat.filemode(status.st_mode),
        status.st_uid,
        os.readlink(path) if path.is_symlink() else content,
    )


def entries(directory: Path) -> dict[Path, Entry]:
    return {path: entry(path) for path in directory.rglob("*")}


# Reading


LENIENT = b"""\
# by hand
[General\r
 \t AutoStretch = OFF\r
cfa=colour
foo=bar
cfa = MONO
cfa=mono # comment
\xef\xbb\xbfbrightness=darker
brightness=darker\0
labelformat=on"""


def test_file_is_read_leniently_and_left_as_it_is(machine):
    machine.prefs.write_bytes(LENIENT)
    assert machine.run("--prefs") == (0, shown(autostretch="off", cfa="mono", labelformat="on"), b"")
    assert machine.prefs.read_bytes() == LENIENT


def test_file_of_megabytes_is_read_to_its_end(machine):
    machine.prefs.write_bytes(b"#" + b"cfa=mono " * MEGABYTE + b"\nlabelformat=on\n" * MEGABYTE + b"cfa=color\n")
    assert machine.run("--prefs") == (0, shown(cfa="color", labelformat="on"), b"")


@pytest.mark.parametrize("user, suffix", [("root", b""), ("ann", NEEDS_SUDO)])
def test_prefs_shows_the_defaults_without_a_file(machine, user, suffix):
    assert machine.run("--prefs", user=user) == (0, shown(suffix), b"")
    assert entries(machine.share).keys() == {machine.prefs.parent}


def test_a_pipe_in_place_of_the_file_is_waited_for(machine):
    os.mkfifo(machine.prefs)
    content = b"cfa=mono\n" + b"#\n" * MEGABYTE + b"labelformat=on\n"  # more than a pipe holds
    (machine.home / "content").write_bytes(content)
    feed = f'cat /home/content >{PATH.decode()} & exec "$@"'
    assert machine.run("--prefs", script=feed) == (0, shown(cfa="mono", labelformat="on"), b"")


def test_lines_before_a_read_error_count(machine):
    # The error comes behind 4096 bytes: what has been read of the line there would count, were it the whole line.
    start, cut_off = "cfa=mono\n#", "\nlabelformat=on"
    read = start + "." * (4096 - len(start + cut_off)) + cut_off
    machine.prefs.write_text(read + "e\n#" + "." * MEGABYTE + "\nlabelcorner=topleft\n")
    failing = f'exec strace -f -o /dev/null -P {PATH.decode()} -e inject=read:error=EIO:when=2 "$@"'
    assert machine.run("--prefs", env=TRACED, script=failing) == (0, shown(cfa="mono"), b"")


# Changing


def check_saved(machine, run, **changed):
    """The run said and stored this, and nothing but the file is there."""
    assert run == (0, listing(**changed) + HINT, b"")
    assert entries(machine.share).keys() == {machine.prefs.parent, machine.prefs}
    assert entry(machine.prefs)[1:] == ("-rw-r--r--", 0, stored(**changed))


ACCEPTED = {
    "all five": (
        ["autostretch=off", "brightness=darker", "cfa=color", "labelformat=on", "labelcorner=topright"],
        dict(autostretch="off", brightness="darker", cfa="color", labelformat="on", labelcorner="topright"),
    ),
    "any case and blanks": (
        ["AUTOSTRETCH= Off\t", "Brightness = Brighter", "\rcfa\t=\tMONO\r", " LabelCorner = TopLeft "],
        dict(autostretch="off", brightness="brighter", cfa="mono", labelcorner="topleft"),
    ),
    "later word wins": (["cfa=mono", "cfa=color"], dict(cfa="color")),
    "same word twice": (["cfa=mono", "cfa=mono"], dict(cfa="mono")),
    "100 KiB of blanks": (["cfa=" + " " * 100 * 1024 + "mono"], dict(cfa="mono")),
    "ten thousand words": (["cfa=mono", "cfa=color"] * 5000, dict(cfa="color")),
}


@pytest.mark.parametrize("words, changed", ACCEPTED.values(), ids=ACCEPTED.keys())
def test_set_applies_words_in_order(machine, words, changed):
    check_saved(machine, machine.run("--set", *words), **changed)


def test_set_keeps_what_it_does_not_name_and_drops_what_is_no_preference(machine):
    machine.prefs.write_text("; mine\n[Other]\nlabelformat=yes\nfoo=bar\ncfa=colour\nbrightness=darker\n")
    check_saved(machine, machine.run("--set", "cfa=mono"), labelformat="on", brightness="darker", cfa="mono")


def test_set_replaces_a_file_that_says_the_same_already(machine):
    machine.prefs.write_bytes(stored(cfa="mono"))
    inode = machine.prefs.stat().st_ino
    check_saved(machine, machine.run("--set", "cfa=mono"), cfa="mono")
    assert machine.prefs.stat().st_ino != inode


def test_set_without_a_word_is_a_usage_error(machine):
    before = entries(machine.share)
    assert machine.run("--set") == (2, b"", b"nebulark-ctl: --set needs at least one NAME=VALUE\n")
    assert entries(machine.share) == before


# Every byte that is no capital, no blank around a name and no equals sign.
ODD = bytes(range(1, 256)).translate(None, b"=" + string.ascii_uppercase.encode())
REJECTED = [
    ("", "expected name=value"),
    ("--", "expected name=value"),
    ("--prefs", "expected name=value"),
    ("AutoStretch=maybe", "autostretch: expected on or off"),
    ("brightness=dark", "brightness: expected darker, standard or brighter"),
    ("%S%n%d=on", "unknown preference: %s%n%d"),
    (b"\xc4\x80\xff\x1bZ=on", b"unknown preference: \xc4\x80\xff\x1bz"),
    (ODD + b"=on", b"unknown preference: " + ODD),
    ("N" * 100 * 1024 + "=on", "unknown preference: " + "n" * 100 * 1024),
]


@pytest.mark.parametrize("word, message", REJECTED, ids=[repr(word)[:24] for word, _ in REJECTED])
@pytest.mark.parametrize("user", ["root", "ann"])
def test_rejected_word_stops_before_anything_is_written_or_elevated(machine, word, message, user):
    machine.prefs.write_text("cfa=mono\n")
    machine.pkexec("#!/bin/sh\necho elevated\n")
    before = entries(machine.share)
    said = b"nebulark-ctl: " + (message if isinstance(message, bytes) else message.encode()) + b"\n"
    run = machine.run("--set", "autostretch=on", word, "unlooked=at", user=user)
    assert run == (2, b"", said)
    assert entries(machine.share) == before


@pytest.mark.parametrize("word", ["--", "-v", ""])
def test_first_word_after_set_is_an_assignment_like_the_others(machine, word):
    assert machine.run("--set", word, "cfa=mono") == (2, b"", b"nebulark-ctl: expected name=value\n")
    assert not machine.prefs.exists()


# Whether the file can be written. In each state, what root and ann get: do they "read" the file that holds
# autostretch=off or see the "defaults", and when they set something, is it "saved", "fails" the save, is it "stranded"
# in the temporary file, or is elevation "needed"? To ann, who has no pkexec here, and to root, who never uses it, the
# last is a failure too.

STATES = {
    "file": ("echo autostretch=off >$F", "read saved", "read needed"),
    "file that is ann's, in root's directory": ("echo autostretch=off >$F; chown 1000 $F", "read saved", "read fails"),
    "file that all may write, in root's directory": (
        "echo autostretch=off >$F; chmod 666 $F",
        "read saved",
        "read fails",
    ),
    "file that is read-only": ("echo autostretch=off >$F; chmod 444 $F; chown 1000 $F", "read saved", "read needed"),
    "file that only root may read": ("echo autostretch=off >$F; chmod 600 $F", "read saved", "defaults needed"),
    "file in ann's directory": ("echo autostretch=off >$F; chown 1000 $D", "read saved", "read needed"),
    "file in a read-only directory": ("echo autostretch=off >$F; chmod 555 $D", "read saved", "read needed"),
    "file in a directory closed to ann": (
        "echo autostretch=off >$F; chmod 666 $F; chmod 700 $D",
        "read saved",
        "defaults needed",
    ),
    # Neither the file nor its absence can be seen: the directory decides, which can be written but not entered.
    "file in a directory that cannot be entered": (
        "echo autostretch=off >$F; chmod 722 $D",
        "read saved",
        "defaults fails",
    ),
    "file on a read-only mount": (
        "echo autostretch=off >$F; mount -o remount,bind,ro /usr/share",
        "read needed",
        "read needed",
    ),
    "no file": (":", "defaults saved", "defaults needed"),
    "no file, directory of ann's": ("chown 1000 $D", "defaults saved", "defaults saved"),
    "no file, directory of ann's and read-only": ("chown 1000 $D; chmod 555 $D", "defaults saved", "defaults needed"),
    "no file, read-only mount": ("mount -o remount,bind,ro /usr/share", "defaults needed", "defaults needed"),
    "no directory": ("rmdir $D", "defaults needed", "defaults needed"),
    "no directory, its parent ann's": ("rmdir $D; chown 1000 /usr/share", "defaults needed", "defaults needed"),
    "link for a file": ("echo autostretch=off >$D/else; ln -s else $F", "read saved", "read needed"),
    "link to a file of ann's": (
        "echo autostretch=off >$D/else; chown 1000 $D/else; ln -s else $F",
        "read saved",
        "read fails",
    ),
    "link to nothing for a file": ("ln -s nowhere $F", "defaults saved", "defaults needed"),
    "link to nothing in ann's directory": ("chown 1000 $D; ln -s nowhere $F", "defaults saved", "defaults saved"),
    "link to itself for a file": ("ln -s $F $F", "defaults saved", "defaults needed"),
    "directory for a file": ("mkdir $F", "defaults stranded", "defaults needed"),
    "directory for a file, all of it ann's": ("mkdir $F; chown 1000 $D $F", "defaults stranded", "defaults stranded"),
    "directory for the temporary file": (
        "echo autostretch=off >$F; mkdir $F.tmp",
        "read fails",
        "read needed",
    ),
    "link for the directory": (
        "rmdir $D; mkdir /usr/share/else; ln -s else $D; echo autostretch=off >$F",
        "read saved",
        "read needed",
    ),
    "link to nothing for the directory": ("rmdir $D; ln -s nowhere $D", "defaults needed", "defaults needed"),
    # The test asks only whether what stands at the directory's path can be written: root can write this file.
    "file for the directory": ("rmdir $D; touch $D", "defaults fails", "defaults needed"),
}
IN_STATES = pytest.mark.parametrize(
    "prepare, user, reads, ends",
    [(prepare, user, *what.split()) for prepare, *both in STATES.values() for user, what in zip(["root", "ann"], both)],
    ids=[f"{state}, {user}" for state in STATES for user in ["root", "ann"]],
)
VARIABLES = "D=/usr/share/nebulark; F=$D/preferences.conf; "
READS = {"read": {"autostretch": "off"}, "defaults": {}}


@IN_STATES
def test_prefs_tells_who_can_change_them(machine, prepare, user, reads, ends):
    suffix = NEEDS_SUDO if ends == "needed" else b""
    run = machine.run("--prefs", user=user, script=VARIABLES + prepare + '; exec "$@"')
    assert run == (0, shown(suffix, **READS[reads]), b"")


@IN_STATES
def test_set_saves_or_fails_or_needs_elevation(machine, prepare, user, reads, ends):
    machine.run("--version", script=VARIABLES + prepare)
    prefs = machine.prefs.parent.resolve() / machine.prefs.name
    prefs_tmp = prefs.with_suffix(".conf.tmp")
    before = entries(machine.share)
    mount = prepare[prepare.find("mount") :] if "mount" in prepare else ":"
    run = machine.run("--set", "cfa=mono", user=user, script=mount + '; exec "$@"')
    after = entries(machine.share)

    changed = READS[reads] | {"cfa": "mono"}
    written = ("-rw-r--r--", {"root": 0, "ann": ANN}[user], stored(**changed))
    if ends == "saved":
        assert run == (0, listing(**changed) + HINT, b"")
        assert after.pop(prefs)[1:] == written
        before.pop(prefs, None)
    elif ends == "stranded":
        assert run == (1, b"", COULD_NOT_WRITE)
        assert after.pop(prefs_tmp)[1:] == written
    elif ends == "fails":
        assert run == (1, b"", COULD_NOT_WRITE)
    else:
        assert run == (1, NOTICE, CANNOT_WRITE)
    assert after == before


# How it is written


@pytest.mark.parametrize("umask", ["0", "022", "077", "0777"])
@pytest.mark.parametrize("old", [None, 0o600, 0o666, 0o4711])
def test_saved_file_can_be_read_by_all_and_written_by_its_owner(machine, umask, old):
    if old is not None:
        machine.prefs.touch()
        machine.prefs.chmod(old)
    check_saved(machine, machine.run("--set", "cfa=mono", script=f'umask {umask}; exec "$@"'), cfa="mono")


@pytest.mark.parametrize("umask, mode", [("0", "-rw-r--r--"), ("022", "-rw-r--r--"), ("077", "-rw-------")])
def test_temporary_file_is_its_owners_from_the_first_moment_on(machine, umask, mode):
    # The save is killed before the first call that follows the opening.
    tmp = f"{PATH.decode()}.tmp"
    killed = f"umask {umask}; exec strace -f -o /dev/null -P {tmp} -e inject='!open,openat':signal=KILL \"$@\""
    assert machine.run("--set", "cfa=mono", env=TRACED, script=killed) == (-signal.SIGKILL, b"", b"")
    assert entries(machine.share).keys() == {machine.prefs.parent, machine.prefs_tmp}
    assert entry(machine.prefs_tmp)[1:] == (mode, 0, b"")


def test_save_replaces_the_file_and_leaves_the_old_one_to_whoever_has_it_open(machine):
    machine.prefs.write_text("labelformat=on\n")
    with machine.prefs.open() as old:
        inode = machine.prefs.stat().st_ino
        check_saved(machine, machine.run("--set", "cfa=mono"), labelformat="on", cfa="mono")
        assert machine.prefs.stat().st_ino != inode
        assert old.read() == "labelformat=on\n"


def test_save_uses_a_stale_temporary_file(machine):
    machine.prefs_tmp.write_text("stale\n" * 1000)
    machine.prefs_tmp.chmod(0o600)
    inode = machine.prefs_tmp.stat().st_ino
    check_saved(machine, machine.run("--set", "cfa=mono"), cfa="mono")
    assert machine.prefs.stat().st_ino == inode


def test_save_follows_a_link_in_place_of_the_temporary_file(machine):
    machine.prefs_tmp.symlink_to("else")
    assert machine.run("--set", "cfa=mono") == (0, listing(cfa="mono") + HINT, b"")
    saved = machine.prefs.with_name("else")
    assert entries(machine.share).keys() == {machine.prefs.parent, machine.prefs, saved}
    assert entry(machine.prefs)[1:] == ("lrwxrwxrwx", 0, "else")
    assert entry(saved)[1:] == ("-rw-r--r--", 0, stored(cfa="mono"))


def test_save_goes_on_when_the_mode_cannot_be_set(machine):
    # Ann may write this temporary file, which root left in her directory, but not change its mode.
    os.chown(machine.prefs.parent, ANN, ANN)
    machine.prefs_tmp.touch()
    machine.prefs_tmp.chmod(0o666)
    assert machine.run("--set", "cfa=mono", user="ann") == (0, listing(cfa="mono") + HINT, b"")
    assert entries(machine.share).keys() == {machine.prefs.parent, machine.prefs}
    assert entry(machine.prefs)[1:] == ("-rw-rw-rw-", 0, stored(cfa="mono"))


def test_save_fails_when_the_temporary_file_cannot_be_opened(machine):
    # As above, but ann may not write it either: nothing is touched, the stale file included.
    os.chown(machine.prefs.parent, ANN, ANN)
    machine.prefs_tmp.write_text("stale\n")
    before = entries(machine.share)
    assert machine.run("--set", "cfa=mono", user="ann") == (1, b"", COULD_NOT_WRITE)
    assert entries(machine.share) == before


def test_save_does_not_notice_a_limit_on_the_size_of_files_whose_signal_is_ignored(machine, installed_tool):
    if counts_lines(installed_tool):
        pytest.skip("the counts of its lines are files too")
    script = "trap '' XFSZ; exec prlimit --fsize=100 \"$@\""
    assert machine.run("--set", "cfa=mono", script=script) == (0, listing(cfa="mono") + HINT, b"")
    assert machine.prefs.read_bytes() == stored(cfa="mono")[:100]


def test_save_does_not_notice_a_full_file_system(machine):
    # The eight lines leave the stream's buffer when it is closed, and how that went is not looked at: the empty
    # temporary file takes the old file's place, and the listing shows what was meant to be stored. Readers take an
    # empty file for the defaults. This file system has one page for data, which the old file takes, and room for names.
    full = """
        mount -t tmpfs -o size=4k tmpfs /usr/share/nebulark
        cd /usr/share/nebulark
        echo labelformat=on >preferences.conf
        "$@"
        status=$?
        cp -a preferences.conf* /home
        exit $status
    """
    assert machine.run("--set", "cfa=mono", script=full) == (0, listing(cfa="mono", labelformat="on") + HINT, b"")
    copied = {path.name: entry(path)[1:] for path in machine.home.glob("preferences*")}
    assert copied == {"preferences.conf": ("-rw-r--r--", 0, b"")}


# Nothing can be written in a directory that is not there, so --set makes none, unless the directory disappears between
# the test and the save. Here the test is told a lie instead.
LIED_TO = f'strace -f -o /dev/null -P {PATH.decode()} -e inject=access,faccessat,faccessat2:retval=0 "$@"'


@pytest.mark.parametrize(
    "umask, mode",
    [("0", "drwxr-xr-x"), ("022", "drwxr-xr-x"), ("027", "drwxr-x---"), ("0777", "d---------")],
)
def test_save_makes_the_missing_directory(machine, umask, mode):
    machine.prefs.parent.rmdir()
    run = machine.run("--set", "cfa=mono", env=TRACED, script=f"umask {umask}; exec {LIED_TO}")
    check_saved(machine, run, cfa="mono")
    assert entry(machine.prefs.parent).mode == mode


def test_save_makes_no_parents_of_the_missing_directory(machine):
    # A /usr that can be written and has no share. Its bin is the real one, so the tool stands elsewhere.
    no_share = f"""
        mount -t tmpfs tmpfs /mnt
        mkdir /mnt/upper /mnt/work
        mknod /mnt/upper/share c 0 0
        cp /usr/bin/nebulark-ctl /mnt
        mount -t overlay -o lowerdir=/usr,upperdir=/mnt/upper,workdir=/mnt/work overlay /usr
        {LIED_TO}
        status=$?
        [ ! -e /usr/share ] || echo "there is a /usr/share"
        exit $status
    """
    run = machine.run("--set", "cfa=mono", env=TRACED, script=no_share, tool=[*EMULATOR, "/mnt/nebulark-ctl"])
    assert run == (1, b"", COULD_NOT_WRITE)
