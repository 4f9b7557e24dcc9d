"""--set through pkexec: what the second run gets, and what comes of it. `test_calls` has the tool's own calls."""

import os

import pytest

from machine import BECOME, EMULATOR, SET_MONO, TOOL, Outcome, entries, unless_emulated
from texts import CANNOT_WRITE, NOTICE, listing

NOT_CHANGED = (1, NOTICE, CANNOT_WRITE)


@pytest.fixture
def telling(machine):
    """A machine whose pkexec prints its words and variables: it is bash, which first runs the file in BASH_ENV."""
    (machine.share / "tell").write_text("/usr/bin/cat /proc/$$/cmdline /proc/$$/environ; exit\n")
    (machine.bin / "pkexec").symlink_to("bash")
    return machine


TELL = {"BASH_ENV": "/usr/share/tell"}


def told(words: list[str], path: str = TOOL, env: dict[str, str] = TELL) -> Outcome:
    given = ["pkexec", path, *words, *(f"{name}={value}" for name, value in env.items())]
    return Outcome(0, NOTICE + b"".join(os.fsencode(each) + b"\0" for each in given) + listing(), b"")


@pytest.mark.parametrize(
    "words",
    [
        ["AutoStretch = ON", "\tCFA\t=\rMono\r", "autostretch=1", "cfa=mono", "cfa=" + " " * 100 * 1024 + "mono"],
        [f"{name}=on" for name in ("autostretch", "labelformat")] * 5000,
    ],
    ids=["odd and long", "ten thousand"],
)
def test_words_reach_the_second_run_as_typed(telling, words):
    assert telling.run("--set", *words, user="ann", env=TELL) == told(["--set", *words])


@unless_emulated("the variables come in another order")
def test_environment_reaches_pkexec_unchanged_and_does_not_choose_it(telling):
    (telling.ann / "pkexec").symlink_to("/usr/bin/false")
    odd = {"PATH": "/home/ann", "PKEXEC_UID": "0", "odd \x01": "%s\n\udcff", "EMPTY": "", "LONG": "x" * 100 * 1024}
    assert telling.run(*SET_MONO, user="ann", env=TELL | odd) == told(SET_MONO, env=TELL | odd)


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
    state = run.out.partition(NOTICE)[0]
    assert state.startswith(b"/home/ann\n0027\n")
    assert run == (0, state + NOTICE + state + listing(), b"")


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
def test_second_run_is_the_running_file(telling, prepare, tool, path):
    script = f'{prepare}; exec "$@"'
    run = telling.run(*SET_MONO, user="ann", env=TELL, tool=[*EMULATOR, *tool], script=script)
    assert run == told(SET_MONO, path)


FAILING = {
    "missing": ("", 0),
    "not executable": ("#!/bin/sh\n", 0o644),
    "no program": ("echo run by a shell\n", 0o755),
    "ends with 1": ("#!/bin/sh\nexit 1\n", 0o755),
    "dismissed": ("#!/bin/sh\nexit 126\n", 0o755),
    "refused": ("#!/bin/sh\nexit 127\n", 0o755),
    "ends with 255": ("#!/bin/sh\nexit 255\n", 0o755),
    "killed": ("#!/bin/sh\nkill -KILL $$\n", 0o755),
}


@pytest.mark.parametrize("pkexec, mode", FAILING.values(), ids=FAILING)
def test_failing_pkexec_is_a_failure_and_another_in_path_is_not_run(machine, pkexec, mode):
    (machine.ann / "pkexec").symlink_to("/usr/bin/true")
    if mode:
        machine.pkexec(pkexec, mode)
    assert machine.run(*SET_MONO, user="ann", env={"PATH": "/home/ann"}) == NOT_CHANGED


@pytest.mark.usefixtures("polkit")
def test_second_run_that_fails_says_so_before_the_first(machine):
    machine.prefs.parent.rmdir()
    run = machine.run(*SET_MONO, user="ann", script='exec "$@" 2>&1')
    assert run == (1, NOTICE + NOTICE + CANNOT_WRITE + CANNOT_WRITE, b"")


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
