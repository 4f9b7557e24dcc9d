"""Changing the preferences with another's rights: the run under pkexec, and what becomes of it."""

import itertools
import re
import signal
import sys

import pytest

from machine import BECOME, EMULATOR, RUN_TOOL, TOOL, TRACED, unless_emulated
from texts import CANNOT_WRITE, HINT, NOTICE, listing, stored
from tracing import counts_lines, is_sanitized

TOLD_NOTHING_CHANGED = (1, NOTICE, CANNOT_WRITE)
SET_MONO = ["--set", "cfa=mono"]


# The second run does the work


@pytest.mark.usefixtures("polkit")
def test_second_run_saves_and_the_first_lists_the_file_again(machine):
    machine.prefs.write_text("labelformat=on\n")
    changed = listing(labelformat="on", cfa="mono")
    assert machine.run(*SET_MONO, user="ann") == (0, NOTICE + changed + HINT + changed, b"")
    assert machine.prefs.read_bytes() == stored(labelformat="on", cfa="mono")
    assert (machine.prefs.stat().st_uid, machine.prefs.stat().st_mode) == (0, 0o100644)
    assert list(machine.prefs.parent.iterdir()) == [machine.prefs]


@pytest.mark.usefixtures("polkit")
def test_second_run_makes_the_file(machine):
    changed = listing(cfa="mono")
    assert machine.run(*SET_MONO, user="ann") == (0, NOTICE + changed + HINT + changed, b"")
    assert machine.prefs.read_bytes() == stored(cfa="mono")


@pytest.mark.usefixtures("polkit")
def test_second_run_without_a_directory_fails_for_itself_and_for_the_first(machine):
    machine.prefs.parent.rmdir()
    both = NOTICE + NOTICE, CANNOT_WRITE + CANNOT_WRITE
    assert machine.run(*SET_MONO, user="ann") == (1, *both)
    assert list(machine.share.iterdir()) == []


@pytest.mark.usefixtures("polkit")
def test_both_runs_print_in_order_into_one_pipe(machine):
    one_pipe = 'exec "$@" 2>&1'
    changed = listing(cfa="mono")
    run = machine.run(*SET_MONO, user="ann", script=one_pipe)
    assert run == (0, NOTICE + changed + HINT + changed, b"")
    machine.prefs.unlink()
    machine.prefs.parent.rmdir()
    run = machine.run(*SET_MONO, user="ann", script=one_pipe)
    assert run == (1, NOTICE + NOTICE + CANNOT_WRITE + CANNOT_WRITE, b"")


def test_last_listing_is_read_from_the_file_whatever_was_asked(machine):
    machine.prefs.write_text("brightness=darker\n")
    machine.pkexec("#!/bin/sh\n")
    assert machine.run(*SET_MONO, user="ann") == (0, NOTICE + listing(brightness="darker"), b"")
    assert machine.prefs.read_text() == "brightness=darker\n"


# What pkexec is given


AS_TYPED = {
    "two words": ["autostretch=on", "cfa=mono"],
    "odd case and blanks": ["AutoStretch = ON", "\tCFA\t=\rMono\r", " labelcorner=TOPLEFT "],
    "spellings that are not stored": ["autostretch=1", "labelformat=No"],
    "one name twice": ["cfa=mono", "cfa=color", "cfa=mono"],
    "default already": ["cfa=auto"],
    "100 KiB": ["cfa=" + " " * 100 * 1024 + "mono"],
    "ten thousand words": [f"{name}=on" for name in ("autostretch", "labelformat")] * 5000,
}


@pytest.mark.parametrize("words", AS_TYPED.values(), ids=AS_TYPED.keys())
def test_words_reach_the_second_run_as_typed(machine, words):
    # The kernel starts this pkexec as "/bin/sh /usr/bin/pkexec WORDS", in place of "pkexec WORDS".
    machine.pkexec("#!/bin/sh\ncat /proc/$$/cmdline\n")
    given = "".join(f"{word}\0" for word in ["/bin/sh", "/usr/bin/pkexec", TOOL, "--set", *words])
    assert machine.run("--set", *words, user="ann") == (0, NOTICE + given.encode() + listing(), b"")


@unless_emulated("the variables come in another order")
@pytest.mark.parametrize(
    "env",
    [
        {},
        {"HOME": "/home/ann", "PATH": "/nowhere", "LD_LIBRARY_PATH": "", "PKEXEC_UID": "0"},
        {b"odd name\x01": b"%s%n\n\xff", "EMPTY": "", "LONG": "x" * 100 * 1024},
    ],
    ids=["empty", "ordinary", "odd"],
)
def test_environment_reaches_pkexec_unchanged(machine, env):
    machine.pkexec("#!/bin/sh\n/usr/bin/cat /proc/$$/environ\n")
    pairs = [[part if isinstance(part, bytes) else part.encode() for part in pair] for pair in env.items()]
    given = b"".join(name + b"=" + value + b"\0" for name, value in pairs)
    assert machine.run(*SET_MONO, user="ann", env=env) == (0, NOTICE + given + listing(), b"")


def test_standard_input_and_error_are_pkexecs_too(machine):
    machine.pkexec("#!/bin/sh\ncat\necho prompt >&2\n")
    run = machine.run(*SET_MONO, user="ann", stdin=b"password\n")
    assert run == (0, NOTICE + b"password\n" + listing(), b"prompt\n")


@unless_emulated("signals and limits are those that qemu has set")
def test_pkexec_inherits_all_that_the_tool_was_started_with(machine):
    machine.pkexec(
        """#!/bin/sh
        pwd -P
        umask
        readlink /proc/$$/fd/*
        cut -d " " -f 5-8,19 /proc/self/stat  # process group, session, terminal, niceness
        exec grep -h -e "^Max" -e "^NoNewPrivs" -e "^Sig[BI]" /proc/self/limits /proc/self/status
    """
    )
    odd = 'cd /home/ann; umask 027; ulimit -c 8; ulimit -n 100; trap "" PIPE USR1; exec 7</etc/passwd'
    before = " ".join([*BECOME["ann"], "env", "-i", "/usr/bin/pkexec"])
    keep_cores = {"ASAN_OPTIONS": "disable_coredump=0"}
    script = f'{odd}; renice 3 $$ >/dev/null; {before}; exec "$@"'
    run = machine.run(*SET_MONO, user="ann", env=keep_cores, script=script)
    told = run.out.partition(NOTICE)[0]
    assert told.startswith(b"/home/ann\n0027\n")
    assert run == (0, told + NOTICE + told + listing(), b"")


@pytest.mark.parametrize(
    "prepare, tool, named",
    [
        ("ln -s /usr/bin/nebulark-ctl /home/link", ["/home/link"], TOOL),
        ("cp /usr/bin/nebulark-ctl '/home/a %s\nb'", ["/home/a %s\nb"], "/home/a %s\nb"),
        pytest.param(
            *(":", ["perl", "-e", "exec { shift } @ARGV", TOOL, "/bin/false"], TOOL),
            marks=unless_emulated("argument 0 is that of qemu"),
        ),
        ("cd /usr", ["bin/nebulark-ctl"], TOOL),
    ],
    ids=["started by a link", "odd path", "another argument 0", "relative path"],
)
def test_second_run_is_the_very_file_that_runs(machine, prepare, tool, named):
    machine.pkexec("#!/bin/sh\ncat /proc/$$/cmdline\n")
    given = "".join(f"{word}\0" for word in ["/bin/sh", "/usr/bin/pkexec", named, *SET_MONO])
    run = machine.run(*SET_MONO, user="ann", tool=[*EMULATOR, *tool], script=f'{prepare}; exec "$@"')
    assert run == (0, NOTICE + given.encode() + listing(), b"")


def test_longest_path_of_the_tool_is_passed_whole(machine):
    deep = "/home" + 16 * ("/" + "d" * 240)
    path = deep + "/" + "t" * (4095 - len(deep) - 1)
    # On a file system of this run's own: outside, where the path is longer still, nobody could remove it.
    prepare = f'mount -t tmpfs tmpfs /home; mkdir -p {deep}; cp {TOOL} {path}; exec "$@"'
    machine.pkexec("#!/bin/sh\ncat /proc/$$/cmdline\n")
    given = "".join(f"{word}\0" for word in ["/bin/sh", "/usr/bin/pkexec", path, *SET_MONO])
    run = machine.run(*SET_MONO, user="ann", tool=[*EMULATOR, path], script=prepare)
    assert run == (0, NOTICE + given.encode() + listing(), b"")


def test_only_the_pkexec_at_its_fixed_path_counts(machine):
    other = machine.ann / "pkexec"
    other.write_text("#!/bin/sh\necho other\n")
    other.chmod(0o755)
    env = {"PATH": "/home/ann"}
    assert machine.run(*SET_MONO, user="ann", env=env) == TOLD_NOTHING_CHANGED
    machine.pkexec("#!/bin/sh\necho fixed\n")
    assert machine.run(*SET_MONO, user="ann", env=env) == (0, NOTICE + b"fixed\n" + listing(), b"")


# Elevation that does not happen, or does not help


def script(text: str):
    return lambda machine: machine.pkexec(f"#!/bin/sh\n{text}\n")


NO_HELP = {
    "absent": lambda machine: None,
    "not executable": lambda machine: machine.pkexec("#!/bin/sh\necho ran\n", 0o644),
    "executable for root only": lambda machine: machine.pkexec("#!/bin/sh\necho ran\n", 0o744),
    "link to nothing": lambda machine: (machine.bin / "pkexec").symlink_to("nowhere"),
    "directory": lambda machine: (machine.bin / "pkexec").mkdir(),
    "no program": lambda machine: machine.pkexec("echo run by a shell\n"),
    "empty file": lambda machine: machine.pkexec(""),
    "interpreter missing": lambda machine: machine.pkexec("#!/no/such/interpreter\n"),
    "ends with 1": script("exit 1"),
    "ends with 2": script("exit 2"),
    "dismissed, ends with 126": script("exit 126"),
    "refused, ends with 127": script("exit 127"),
    "ends with 128": script("exit 128"),
    "ends with 255": script("exit 255"),
    "hung up": script("kill -HUP $$"),
    "killed": script("kill -KILL $$"),
    "terminated": script("kill -TERM $$"),
    "aborted": script("ulimit -c 0; kill -ABRT $$"),
}


@pytest.mark.parametrize("install", NO_HELP.values(), ids=NO_HELP.keys())
def test_pkexec_that_does_not_help_is_one_and_the_same_failure(machine, install):
    machine.prefs.write_text("labelformat=on\n")
    install(machine)
    assert machine.run(*SET_MONO, user="ann") == TOLD_NOTHING_CHANGED
    assert machine.prefs.read_text() == "labelformat=on\n"
    assert list(machine.prefs.parent.iterdir()) == [machine.prefs]


def test_failing_second_runs_own_words_stand_before_the_message(machine):
    machine.pkexec("#!/bin/sh\necho said\necho complained >&2\nexit 126\n")
    run = machine.run(*SET_MONO, user="ann", script='exec "$@" 2>&1')
    assert run == (1, NOTICE + b"said\ncomplained\n" + CANNOT_WRITE, b"")


def test_pkexec_that_is_stopped_for_a_while_is_waited_for(machine):
    machine.pkexec(
        """#!/bin/sh
        (until grep -q "State:.T" /proc/$$/status; do :; done; kill -CONT $$) &
        kill -STOP $$
        wait
        echo went on
    """
    )
    assert machine.run(*SET_MONO, user="ann") == (0, NOTICE + b"went on\n" + listing(), b"")


@pytest.mark.parametrize(
    "name", ["HUP", "INT", "TERM", pytest.param("QUIT", marks=unless_emulated("qemu tells of the core that it leaves"))]
)
def test_signal_from_the_terminal_ends_both_runs(machine, name):
    machine.pkexec(f"#!/bin/sh\nkill -{name} 0\n")
    run = machine.run(*SET_MONO, user="ann", script='ulimit -c 0; exec "$@"')
    assert run == (-signal.Signals[f"SIG{name}"], NOTICE, b"")


def test_outcome_of_another_child_is_not_taken_for_that_of_pkexec(machine):
    # The other one has ended before pkexec does, and may be waited for.
    machine.pkexec(
        """#!/bin/sh
        while grep -qs "State:.[^Z]" "/proc/$(cat /home/other)/status"; do :; done
        exit 1
    """
    )
    other = ': & echo $! >/home/other; exec "$@"'
    assert machine.run(*SET_MONO, user="ann", script=other) == TOLD_NOTHING_CHANGED


@pytest.mark.usefixtures("polkit")
def test_outcome_that_cannot_be_learned_is_a_failure_even_of_a_change_that_was_made(machine):
    # The caller ignores the signal that a child has ended: the kernel then tells nobody how it did.
    run = machine.run(*SET_MONO, user="ann", tool=["env", "--ignore-signal=CHLD", *RUN_TOOL])
    assert run == (1, NOTICE + listing(cfa="mono") + HINT, CANNOT_WRITE)
    assert machine.prefs.read_bytes() == stored(cfa="mono")


@unless_emulated("strace pokes the memory of qemu")
@pytest.mark.parametrize("number", [signal.SIGABRT, signal.SIGSEGV, signal.SIGSYS])
def test_pkexec_that_leaves_a_core_is_a_failure(machine, number):
    # Whether there is a core is up to the machine, so the wait's answer is put in place of the true one.
    machine.pkexec("#!/bin/sh\n")
    answer = (number | 0x80).to_bytes(4, sys.byteorder).hex()
    strace = f'exec strace -o /dev/null -e trace=wait4 -e inject=wait4:poke_exit=@arg2={answer} "$@"'
    assert machine.run(*SET_MONO, user="ann", env=TRACED, script=strace) == TOLD_NOTHING_CHANGED


def test_root_never_elevates(machine):
    machine.pkexec("#!/bin/sh\necho ran\n")
    machine.prefs.parent.rmdir()
    assert machine.run(*SET_MONO) == TOLD_NOTHING_CHANGED


@unless_emulated("the set-user-id bit of the tool counts for nothing")
@pytest.mark.parametrize("files", [{}, {"preferences.conf": "labelformat=on\n"}], ids=["no file", "root's file"])
def test_rights_of_the_tool_that_its_user_lacks_neither_save_nor_elevate(machine, files):
    # Set-user-id root: what may be written is judged by who runs the tool, who is root by what the process may do.
    machine.pkexec("#!/bin/sh\necho ran\n")
    for name, content in files.items():
        (machine.prefs.parent / name).write_text(content)
    own = 'mount -t tmpfs tmpfs /home; cp /usr/bin/nebulark-ctl /home/ctl; chmod 4755 /home/ctl; exec "$@"'
    assert machine.run(*SET_MONO, user="ann", tool=["/home/ctl"], script=own) == TOLD_NOTHING_CHANGED
    assert {path.name: path.read_text() for path in machine.prefs.parent.iterdir()} == files


# The system calls of it

SAME_CALL = {"faccessat": "access", "faccessat2": "access", "readlinkat": "readlink", "clone": "fork", "clone3": "fork"}


def named(line: str) -> str:
    """The call of a line of strace: a write with its stream, any other by its name."""
    if write := re.match(r"writev?\((\d+)", line):
        return f"write {write[1]}"
    name = line.split("(")[0]
    return SAME_CALL.get(name, name)


@unless_emulated("strace shows the calls of qemu")
@pytest.mark.parametrize(
    "user, pkexec_mode, fault, calls",
    [
        ("root", 0o755, None, "geteuid"),
        ("ann", 0o000, None, "geteuid access"),
        ("ann", 0o644, None, "geteuid access"),
        ("ann", 0o755, "readlink,readlinkat:error=EACCES", "geteuid access readlink"),
        ("ann", 0o755, "readlink,readlinkat:retval=0", "geteuid access readlink"),
        ("ann", 0o755, "clone,clone3,fork:error=EAGAIN", "geteuid access readlink fork"),
        ("ann", 0o755, "wait4:error=EINTR", "geteuid access readlink fork wait4"),
    ],
    ids=[
        "root never looks for pkexec or forks",
        "no pkexec, no fork",
        "pkexec that is not executable, no fork",
        "own path cannot be read, no fork",
        "own path is empty, no fork",
        "fork fails",
        "interrupted wait is not retried",
    ],
)
def test_elevation_goes_no_further_than_it_can(machine, installed_tool, user, pkexec_mode, fault, calls):
    if calls.endswith("readlink") and is_sanitized(installed_tool):
        pytest.skip("the address sanitizer reads this link for itself, and complains")
    if counts_lines(installed_tool):
        pytest.skip("the counts of the lines that ran are written at the end, with calls of their own")
    if pkexec_mode:
        machine.pkexec("#!/bin/sh\n", pkexec_mode)
    machine.prefs.parent.rmdir()
    inject = f"-e inject={fault}" if fault else ""
    strace = f'exec strace -qq -e signal=none -e trace=write,writev,geteuid,%file,%process {inject} -o /home/trace "$@"'
    assert machine.run(*SET_MONO, user=user, env=TRACED, script=strace) == TOLD_NOTHING_CHANGED
    trace = (machine.home / "trace").read_text()
    # A text may take several writes: that depends on the C library.
    names = [name for name, _ in itertools.groupby(map(named, trace.splitlines()))]
    assert names[names.index("write 1") :] == ["write 1", *calls.split(), "write 2", "exit_group"]


@unless_emulated("strace shows the calls of qemu")
def test_pkexec_is_started_by_its_path_under_its_plain_name(machine):
    machine.pkexec("#!/bin/sh\n")
    strace = 'exec strace -f -qq -e signal=none -e trace=execve -v -o /home/trace "$@"'
    run = machine.run(*SET_MONO, user="ann", env=TRACED | {"A": "b"}, script=strace)
    assert run == (0, NOTICE + listing(), b"")
    last = (machine.home / "trace").read_text().splitlines()[-1]
    words = '["pkexec", "/usr/bin/nebulark-ctl", "--set", "cfa=mono"]'
    variables = '["ASAN_OPTIONS=detect_leaks=0", "A=b"]'
    assert last.split(maxsplit=1)[1] == f'execve("/usr/bin/pkexec", {words}, {variables}) = 0'


@unless_emulated("strace shows the calls of qemu")
def test_child_in_which_pkexec_cannot_be_started_ends_as_in_a_shell(machine):
    machine.pkexec("#!/no/such/interpreter\n")
    strace = 'exec strace -f -q -e signal=none -e trace=none -o /home/trace "$@"'
    assert machine.run(*SET_MONO, user="ann", env=TRACED, script=strace) == TOLD_NOTHING_CHANGED
    ends = [line.split(maxsplit=1)[1] for line in (machine.home / "trace").read_text().splitlines()]
    assert ends == ["+++ exited with 127 +++", "+++ exited with 1 +++"]
