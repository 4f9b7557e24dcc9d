"""Every system call of a run, except the C library's own.

So the tool does not force data to disk, lock, sleep, handle a signal, change the directory or the umask, or tidy up
after a failure.
"""

import re

import pytest
from cache import CACHE, CLEAR, FITS, HOME, PHOTO
from machine import SET_MONO
from texts import PATH
from tracing import COLD, COUNTS_LINES, SANITIZED, Traced, strace

MEMORY = {"brk", "getrandom", "mmap", "mprotect", "munmap"}
STARTING = {"execve", "arch_prctl", "prlimit64", "rseq", "rt_sigprocmask", "set_robust_list", "set_tid_address"}
LIBRARIES = ("/etc/ld.so.", "/lib", "/usr/lib")
STATE_OF_A_DESCRIPTOR = r"""\d+<.*>, (("", )?\{|F_GETFL\b|F_SETFD, FD_CLOEXEC\))"""

pytestmark = pytest.mark.skipif(SANITIZED or COUNTS_LINES, reason="this build makes other calls too")


def is_the_c_librarys(traced: Traced) -> bool:
    name, subject, _ = traced.call
    known = name in MEMORY | STARTING or subject.startswith(LIBRARIES)
    return known or re.match(STATE_OF_A_DESCRIPTOR, traced.words) is not None


def short(call: str) -> str:
    """With F for the preferences file, and T for a thumbnail."""
    return call.replace(PATH.decode(), "F").replace(f"{CACHE}/normal/m31.png", "T")


SAY, COMPLAIN = ["write stdout"], ["write stderr"]
READ = ["openat F", "read F", "read F", "close F"]
READ_DIRECTORY = ["openat F", "read F", "close F"]
WRITABLE, NOT_WRITABLE = ["access F"], ["access F", "access F"]
ABSENT = ["openat F", "access F", "access F", "access /usr/share/nebulark"]
WRITE = ["mkdir /usr/share/nebulark", "openat F.tmp", "write F.tmp", "close F.tmp", "chmod F.tmp", "rename F.tmp"]
ELEVATE = ["geteuid", "access /usr/bin/pkexec", "readlink /proc/self/exe", "clone", "wait4"]
PROBE = ["openat T", "preadv2 T", "close T"]
STATUS, DELETE = ["newfstatat T"], ["unlink T"]
JUDGE = ["openat T", "pread64 T", "close T"]
OTHER_SIZES = [f"openat {CACHE}/{size}" for size in ("large", "x-large", "xx-large", "fail")]
NORMAL = f"{CACHE}/normal"
ENTER = [f"{name} {NORMAL}/sub" for name in ("newfstatat", "openat", "getdents64", "getdents64", "close")]


def walk(*about_the_entry: str) -> list[str]:
    listing = [f"getdents64 {NORMAL}", *about_the_entry, f"getdents64 {NORMAL}"]
    return [f"openat {NORMAL}", *listing, f"close {NORMAL}", *OTHER_SIZES, *SAY]


PREPARE = {
    "nothing": lambda machine, cache: None,
    "a file": lambda machine, cache: machine.prefs.write_text("cfa=color\n"),
    "a pkexec that cannot be run": lambda machine, cache: machine.pkexec("#!/bin/sh\n", 0o644),
    "a directory as file": lambda machine, cache: machine.prefs.mkdir(),
    "no directory": lambda machine, cache: machine.prefs.parent.rmdir(),
    "a directory": lambda machine, cache: cache.directory("normal/sub"),
    "FITS": lambda machine, cache: cache.put(FITS, "normal/m31.png"),
    "a photo": lambda machine, cache: cache.put(PHOTO, "normal/m31.png"),
}
RUNS = {
    "no command word": ("nothing", "root", [], COMPLAIN),
    "help": ("nothing", "root", ["--help"], COMPLAIN),
    "unknown command": ("nothing", "root", ["x"], COMPLAIN + COMPLAIN),
    "version": ("nothing", "root", ["--version"], SAY),
    "prefs": ("a file", "root", ["--prefs"], READ + WRITABLE + SAY),
    "prefs of another": ("a file", "ann", ["--prefs"], READ + NOT_WRITABLE + SAY),
    "prefs without a file": ("nothing", "root", ["--prefs"], ABSENT + SAY),
    "set without a word": ("a file", "root", ["--set"], COMPLAIN),
    "rejected word": ("a file", "root", [*SET_MONO, "x"], READ + COMPLAIN),
    "save": ("a file", "root", SET_MONO, READ + WRITABLE + WRITE + SAY),
    "first save": ("nothing", "root", SET_MONO, ABSENT + WRITE + SAY),
    "save that fails": ("a directory as file", "root", SET_MONO, READ_DIRECTORY + WRITABLE + WRITE + COMPLAIN),
    "root without a directory": ("no directory", "root", SET_MONO, ABSENT + SAY + ELEVATE[:1] + COMPLAIN),
    "elevation": ("a file", "ann", SET_MONO, READ + NOT_WRITABLE + SAY + ELEVATE + READ + SAY),
    "no elevation": ("a pkexec that cannot be run", "ann", SET_MONO, ABSENT + SAY + ELEVATE[:2] + COMPLAIN),
    "clearing without a cache": ("nothing", "ann", CLEAR, [f"openat {NORMAL}", *OTHER_SIZES, *SAY]),
    "clearing": ("FITS", "ann", CLEAR, walk(*PROBE, *STATUS, *JUDGE, *DELETE)),
    "clearing of a directory": ("a directory", "ann", CLEAR, walk(*ENTER)),
    "clearing of another's": ("a photo", "ann", CLEAR, walk(*PROBE, *STATUS, *JUDGE)),
    "clearing of all": ("a photo", "ann", [*CLEAR, "--all"], walk(*STATUS, *DELETE)),
}


@pytest.mark.parametrize("there, user, words, expected", RUNS.values(), ids=RUNS)
def test_makes_these_calls_and_no_others(machine, cache, there, user, words, expected):
    machine.pkexec("#!/bin/sh\n")
    PREPARE[there](machine, cache)
    with strace(machine) as inside:
        _, trace = inside.run(words, user, env=HOME)
    told = [" ".join(filter(None, each.call[:2])) for each in trace if not is_the_c_librarys(each)]
    assert [short(each) for each in told] == [*expected, "exit_group"]


def test_waits_for_the_end_of_its_own_child_and_for_no_other(machine):
    machine.pkexec("#!/bin/sh\n")
    with strace(machine) as inside:
        _, trace = inside.run(SET_MONO, "ann")
        fork, wait = (each for each in trace if each.call.name in ("clone", "wait4"))
        _, without_child = inside.run(SET_MONO, "ann", ["-e", f"inject={fork.raw[0]}:error=EAGAIN"])
    child = fork.words.rpartition(" = ")[2]
    assert wait.words == f"{child}, [{{WIFEXITED(s) && WEXITSTATUS(s) == 0}}], 0, NULL) = {child}"
    assert "wait4" not in {each.call.name for each in without_child}


OPENED = {
    "F": "O_RDONLY",
    "F.tmp": "O_WRONLY|O_CREAT|O_TRUNC|O_CLOEXEC, 0644",
    NORMAL: "O_RDONLY|O_CLOEXEC|O_DIRECTORY",
    f"{NORMAL}/.": "O_RDONLY|O_CLOEXEC|O_DIRECTORY",
    f"{NORMAL}/sub": "O_RDONLY|O_NOFOLLOW|O_CLOEXEC|O_DIRECTORY",
    "T": "O_RDONLY|O_NONBLOCK|O_NOFOLLOW|O_CLOEXEC",
}

ASKED = {
    "preadv2": "[...], 1, 0, RWF_NOWAIT",
    "fadvise64": "0, 4096, POSIX_FADV_WILLNEED",
}


def test_opens_and_asks_for_no_more_than_it_needs_and_by_descriptor(machine, cache):
    cache.directory("normal/sub")
    cache.put(FITS, "normal/m31.png", "normal/m33.png")
    with strace(machine) as inside:
        trace = inside.run(SET_MONO, env=HOME)[1] + inside.run(CLEAR, "ann", COLD, HOME)[1]
    told = {(each.call.name, short(each.call.subject), each.words.rpartition(") =")[0]) for each in trace}
    opened = {(subject, words.partition('", ')[2]) for name, subject, words in told if name == "openat"}
    assert {each for each in opened if each[0] in OPENED} == set(OPENED.items())
    hints = {(name, words.partition(">, ")[2]) for name, _, words in told if name in ASKED}
    assert hints == set(ASKED.items())
    by_path = {subject for _, subject, words in told if not re.match(r"\d+<", words)}
    assert not [subject for subject in by_path if subject == "T" or subject.startswith(f"{NORMAL}/")]
