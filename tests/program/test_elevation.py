"""--set through pkexec: what the second run gets, and what comes of it."""

import signal
import sys

import pytest

from machine import BECOME, EMULATOR, RUN_TOOL, SET_MONO, TOOL, TRACED, entries, unless_emulated
from texts import CANNOT_WRITE, HINT, NOTICE, listing, stored

NOT_CHANGED = (1, NOTICE, CANNOT_WRITE)

# A script's words begin with "/bin/sh /usr/bin/pkexec" instead of "pkexec".
TELLS_ITS_WORDS = "#!/bin/sh\ncat /proc/$$/cmdline\n"


def given(*words: str) -> bytes:
    return "".join(f"{word}\0" for word in ("/bin/sh", "/usr/bin/pkexec", *words)).encode()


@pytest.mark.usefixtures("polkit")
def test_second_run_saves_and_the_first_lists_the_file_again(machine):
    machine.prefs.write_text("labelformat=on\n")
    changed = listing(labelformat="on", cfa="mono")
    run = machine.run(*SET_MONO, user="ann", script='exec "$@" 2>&1')
    assert run == (0, NOTICE + changed + HINT + changed, b"")
    (saved,) = entries(machine.prefs.parent).values()
    assert saved[1:] == ("-rw-r--r--", 0, stored(labelformat="on", cfa="mono"))


@pytest.mark.usefixtures("polkit")
def test_second_run_that_fails_says_so_before_the_first(machine):
    machine.prefs.parent.rmdir()
    run = machine.run(*SET_MONO, user="ann", script='exec "$@" 2>&1')
    assert run == (1, NOTICE + NOTICE + CANNOT_WRITE + CANNOT_WRITE, b"")
    assert entries(machine.share) == {}


def test_last_listing_is_read_from_the_file(machine):
    machine.prefs.write_text("brightness=darker\n")
    machine.pkexec("#!/bin/sh\n")
    assert machine.run(*SET_MONO, user="ann") == (0, NOTICE + listing(brightness="darker"), b"")
    assert machine.prefs.read_text() == "brightness=darker\n"


@pytest.mark.parametrize(
    "words",
    [
        ["AutoStretch = ON", "\tCFA\t=\rMono\r", "autostretch=1", "cfa=mono", "cfa=" + " " * 100 * 1024 + "mono"],
        [f"{name}=on" for name in ("autostretch", "labelformat")] * 5000,
    ],
    ids=["odd and long", "ten thousand"],
)
def test_words_reach_the_second_run_as_typed(machine, words):
    machine.pkexec(TELLS_ITS_WORDS)
    assert machine.run("--set", *words, user="ann") == (0, NOTICE + given(TOOL, "--set", *words) + listing(), b"")


@unless_emulated("the variables come in another order")
def test_environment_reaches_pkexec_unchanged(machine):
    machine.pkexec("#!/bin/sh\n/usr/bin/cat /proc/$$/environ\n")
    env = {
        b"PATH": b"/nowhere",
        b"PKEXEC_UID": b"0",
        b"odd \x01": b"%s\n\xff",
        b"EMPTY": b"",
        b"LONG": b"x" * 100 * 1024,
    }
    told = b"".join(name + b"=" + value + b"\0" for name, value in env.items())
    assert machine.run(*SET_MONO, user="ann", env=env) == (0, NOTICE + told + listing(), b"")


@unless_emulated("signals and limits are those of qemu")
def test_pkexec_inherits_the_state_of_the_tool(machine):
    machine.pkexec(
        """#!/bin/sh
        pwd -P
        umask
        readlink /proc/$$/fd/*
        cut -d " " -f 5-8,19 /proc/self/stat  # process group, session, terminal, niceness
        exec grep -h -e "^Max" -e "^NoNewPrivs" -e "^Sig[BI]" /proc/self/limits /proc/self/status
    """
    )
    odd = 'cd /home/ann; umask 027; ulimit -n 100; trap "" PIPE USR1; exec 7</etc/passwd'
    before = " ".join([*BECOME["ann"], "env", "-i", "/usr/bin/pkexec"])
    script = f'{odd}; renice 3 $$ >/dev/null; {before}; exec "$@"'
    run = machine.run(*SET_MONO, user="ann", env={"ASAN_OPTIONS": "disable_coredump=0"}, script=script)
    told = run.out.partition(NOTICE)[0]
    assert told.startswith(b"/home/ann\n0027\n")
    assert run == (0, told + NOTICE + told + listing(), b"")


DEEP = "/home" + 16 * ("/" + "d" * 240)
LONGEST = DEEP + "/" + "t" * (4095 - len(DEEP) - 1)


@pytest.mark.parametrize(
    "prepare, tool, path",
    [
        ("ln -s /usr/bin/nebulark-ctl /home/link", ["/home/link"], TOOL),
        ("cp /usr/bin/nebulark-ctl '/home/a %s\nb'", ["/home/a %s\nb"], "/home/a %s\nb"),
        # On a file system that ends with the run: outside, the path would be too long to remove.
        (f"mount -t tmpfs tmpfs /home; mkdir -p {DEEP}; cp {TOOL} {LONGEST}", [LONGEST], LONGEST),
        pytest.param(
            *(":", ["perl", "-e", "exec { shift } @ARGV", TOOL, "/bin/false"], TOOL),
            marks=unless_emulated("argument 0 is that of qemu"),
        ),
    ],
    ids=["link", "odd path", "longest path", "another argument 0"],
)
def test_second_run_is_the_running_file(machine, prepare, tool, path):
    machine.pkexec(TELLS_ITS_WORDS)
    run = machine.run(*SET_MONO, user="ann", tool=[*EMULATOR, *tool], script=f'{prepare}; exec "$@"')
    assert run == (0, NOTICE + given(path, *SET_MONO) + listing(), b"")


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


FAILING = {
    "not executable": ("#!/bin/sh\n", 0o644),
    "no program": ("echo run by a shell\n", 0o755),
    "ends with 1": ("#!/bin/sh\nexit 1\n", 0o755),
    "dismissed": ("#!/bin/sh\nexit 126\n", 0o755),
    "refused": ("#!/bin/sh\nexit 127\n", 0o755),
    "ends with 255": ("#!/bin/sh\nexit 255\n", 0o755),
    "hung up": ("#!/bin/sh\nkill -HUP $$\n", 0o755),
    "killed": ("#!/bin/sh\nkill -KILL $$\n", 0o755),
}


@pytest.mark.parametrize("pkexec, mode", FAILING.values(), ids=FAILING)
def test_failing_pkexec_changes_nothing(machine, pkexec, mode):
    machine.prefs.write_text("labelformat=on\n")
    machine.pkexec(pkexec, mode)
    before = entries(machine.share)
    assert machine.run(*SET_MONO, user="ann") == NOT_CHANGED
    assert entries(machine.share) == before


def test_root_never_elevates(machine):
    machine.pkexec("#!/bin/sh\n")
    machine.prefs.parent.rmdir()
    assert machine.run(*SET_MONO) == NOT_CHANGED


def test_pkexec_elsewhere_in_path_is_not_run(machine):
    machine.pkexec("#!/bin/sh\n")
    (machine.bin / "pkexec").rename(machine.ann / "pkexec")
    machine.pkexec("#!/bin/sh\nexit 1\n")
    assert machine.run(*SET_MONO, user="ann", env={"PATH": "/home/ann"}) == NOT_CHANGED


def test_stopped_pkexec_is_waited_for(machine):
    machine.pkexec(
        """#!/bin/sh
        (until grep -q "State:.T" /proc/$$/status; do :; done; kill -CONT $$) &
        kill -STOP $$
        wait
        echo went on
    """
    )
    assert machine.run(*SET_MONO, user="ann") == (0, NOTICE + b"went on\n" + listing(), b"")


def test_signal_from_the_terminal_ends_both_runs(machine):
    machine.pkexec("#!/bin/sh\nkill -INT 0\n")
    assert machine.run(*SET_MONO, user="ann") == (-signal.SIGINT, NOTICE, b"")


def test_outcome_of_another_child_does_not_count(machine):
    # The other child ends before pkexec does.
    machine.pkexec(
        """#!/bin/sh
        while grep -qs "State:.[^Z]" "/proc/$(cat /home/other)/status"; do :; done
        exit 1
    """
    )
    other = ': & echo $! >/home/other; exec "$@"'
    assert machine.run(*SET_MONO, user="ann", script=other) == NOT_CHANGED


@pytest.mark.usefixtures("polkit")
def test_unknown_outcome_is_a_failure_even_if_the_file_changed(machine):
    # If SIGCHLD is ignored, the kernel does not say how a child ended.
    run = machine.run(*SET_MONO, user="ann", tool=["env", "--ignore-signal=CHLD", *RUN_TOOL])
    assert run == (1, NOTICE + listing(cfa="mono") + HINT, CANNOT_WRITE)
    assert machine.prefs.read_bytes() == stored(cfa="mono")


@unless_emulated("strace pokes the memory of qemu")
def test_pkexec_that_leaves_a_core_is_a_failure(machine):
    # Whether there is a core depends on the machine, so strace changes the wait's answer.
    machine.pkexec("#!/bin/sh\n")
    answer = (signal.SIGABRT | 0x80).to_bytes(4, sys.byteorder).hex()
    strace = f'exec strace -o /dev/null -e trace=wait4 -e inject=wait4:poke_exit=@arg2={answer} "$@"'
    assert machine.run(*SET_MONO, user="ann", env=TRACED, script=strace) == NOT_CHANGED


@unless_emulated("strace shows the calls of qemu")
def test_child_that_cannot_start_pkexec_ends_with_127(machine):
    machine.pkexec("#!/no/such/interpreter\n")
    strace = 'exec strace -f -q -e signal=none -e trace=none -o /home/trace "$@"'
    assert machine.run(*SET_MONO, user="ann", env=TRACED, script=strace) == NOT_CHANGED
    ends = [line.split(maxsplit=1)[1] for line in (machine.home / "trace").read_text().splitlines()]
    assert ends == ["+++ exited with 127 +++", "+++ exited with 1 +++"]


@unless_emulated("the tool's set-user-id bit has no effect")
@pytest.mark.parametrize("file", [None, "labelformat=on\n"], ids=["no file", "root's file"])
def test_set_user_id_tool_neither_saves_nor_elevates(machine, file):
    # Set-user-id root: the real user decides what may be written, the effective user who is root.
    machine.pkexec("#!/bin/sh\necho ran\n")
    if file:
        machine.prefs.write_text(file)
    before = entries(machine.share)
    own = 'mount -t tmpfs tmpfs /home; cp /usr/bin/nebulark-ctl /home/ctl; chmod 4755 /home/ctl; exec "$@"'
    assert machine.run(*SET_MONO, user="ann", tool=["/home/ctl"], script=own) == NOT_CHANGED
    assert entries(machine.share) == before
