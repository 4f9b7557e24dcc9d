"""What --set writes, how, and what it leaves when it is killed."""

import signal

import pytest

from machine import SET_MONO, TRACED, entries, entry
from texts import HINT, PATH, listing, stored
from tracing import COUNTS_LINES, SANITIZED, is_the_tools, strace


def check_saved(machine, run, **changed):
    """The run printed and stored this, and left nothing else."""
    assert run == (0, listing(**changed) + HINT, b"")
    assert entries(machine.share).keys() == {machine.prefs.parent, machine.prefs}
    assert entry(machine.prefs)[1:] == ("-rw-r--r--", 0, stored(**changed))


def test_words_apply_in_order(machine):
    words = [
        "autostretch=off",
        "Brightness = Darker\t",
        "cfa=mono",
        "cfa=color",
        "labelformat=on",
        "labelcorner=topleft",
    ]
    changed = dict(autostretch="off", brightness="darker", cfa="color", labelformat="on", labelcorner="topleft")
    check_saved(machine, machine.run("--set", *words), **changed)


def test_other_preferences_are_kept_and_other_lines_are_dropped(machine):
    machine.prefs.write_text("; mine\n[Other]\nlabelformat=yes\nfoo=bar\ncfa=colour\nbrightness=darker\n")
    check_saved(machine, machine.run(*SET_MONO), labelformat="on", brightness="darker", cfa="mono")


@pytest.mark.parametrize("umask, old", [("0", 0o666), ("022", 0o4711), ("077", 0o600), ("0777", None)])
def test_saved_file_can_be_read_by_all_and_written_by_its_owner(machine, umask, old):
    if old is not None:
        machine.prefs.touch()
        machine.prefs.chmod(old)
    check_saved(machine, machine.run(*SET_MONO, script=f'umask {umask}; exec "$@"'), cfa="mono")


@pytest.mark.parametrize("umask, mode", [("0", "-rw-r--r--"), ("077", "-rw-------")])
def test_only_its_owner_can_ever_write_the_temporary_file(machine, umask, mode):
    # The save is killed at the first call after the opening.
    tmp = f"{PATH.decode()}.tmp"
    killed = f"umask {umask}; exec strace -f -o /dev/null -P {tmp} -e inject='!open,openat':signal=KILL \"$@\""
    assert machine.run(*SET_MONO, env=TRACED, script=killed) == (-signal.SIGKILL, b"", b"")
    assert entries(machine.share).keys() == {machine.prefs.parent, machine.prefs_tmp}
    assert entry(machine.prefs_tmp)[1:] == (mode, 0, b"")


def test_equal_file_is_replaced_and_readers_keep_the_old_one(machine):
    machine.prefs.write_bytes(stored(cfa="mono") + b"# old\n")
    with machine.prefs.open("rb") as old:
        inode = machine.prefs.stat().st_ino
        check_saved(machine, machine.run(*SET_MONO), cfa="mono")
        assert machine.prefs.stat().st_ino != inode
        assert old.read() == stored(cfa="mono") + b"# old\n"


def test_stale_temporary_file_is_used(machine):
    machine.prefs_tmp.write_text("stale\n" * 1000)
    machine.prefs_tmp.chmod(0o600)
    inode = machine.prefs_tmp.stat().st_ino
    check_saved(machine, machine.run(*SET_MONO), cfa="mono")
    assert machine.prefs.stat().st_ino == inode


def test_link_in_place_of_the_temporary_file_is_followed(machine):
    machine.prefs_tmp.symlink_to("else")
    assert machine.run(*SET_MONO) == (0, listing(cfa="mono") + HINT, b"")
    saved = machine.prefs.with_name("else")
    assert entries(machine.share).keys() == {machine.prefs.parent, machine.prefs, saved}
    assert entry(machine.prefs)[1:] == ("lrwxrwxrwx", 0, "else")
    assert entry(saved)[1:] == ("-rw-r--r--", 0, stored(cfa="mono"))


@pytest.mark.skipif(COUNTS_LINES, reason="the line counts are files too")
def test_file_size_limit_with_an_ignored_signal_is_not_noticed(machine):
    limited = "trap '' XFSZ; exec prlimit --fsize=100 \"$@\""
    assert machine.run(*SET_MONO, script=limited) == (0, listing(cfa="mono") + HINT, b"")
    assert machine.prefs.read_bytes() == stored(cfa="mono")[:100]


@pytest.mark.skipif(COUNTS_LINES, reason="the line counts add calls")
def test_killed_at_any_call_a_save_leaves_the_old_file_or_the_new_one(machine):
    left = stored()
    machine.prefs.write_bytes(left)
    with strace(machine) as inside:
        _, normal = inside.run(SET_MONO)
        for call, (name, nth), _ in normal[1:]:  # the first one starts the tool
            if SANITIZED and not is_the_tools(call):
                continue
            machine.prefs.write_bytes(stored())
            outcome, trace = inside.run(SET_MONO, options=["-e", f"inject={name}:signal=KILL:when={nth}"])
            assert (outcome.status, trace[-1].call) == (-signal.SIGKILL, call)
            assert machine.prefs.read_bytes() == left, call
            # The next save works with what is left.
            check_saved(machine, machine.run("--set", "cfa=color"), cfa="color")
            if call.name == "rename":
                left = stored(cfa="mono")
    assert left == stored(cfa="mono")


@pytest.mark.parametrize("umask, mode", [("0", "drwxr-xr-x"), ("027", "drwxr-x---"), ("0777", "d---------")])
def test_directory_that_disappears_after_the_test_for_it_is_made(machine, umask, mode):
    machine.prefs.parent.rmdir()
    # strace makes the test succeed.
    there = f"strace -f -o /dev/null -P {PATH.decode()} -e inject=?access,faccessat,?faccessat2:retval=0"
    run = machine.run(*SET_MONO, env=TRACED, script=f'umask {umask}; exec {there} "$@"')
    check_saved(machine, run, cfa="mono")
    assert entry(machine.prefs.parent).mode == mode


def test_no_parents_of_the_directory_are_made(machine):
    with strace(machine) as inside:
        outcome, calls = inside.run(SET_MONO, options=["-e", "inject=?mkdir,mkdirat:error=ENOENT"])
    assert outcome == (0, listing(cfa="mono") + HINT, b"")
    made = [each.call.subject for each in calls if each.call.name == "mkdir"]
    assert [path for path in made if path.startswith("/usr")] == ["/usr/share/nebulark"]  # line counts make others
