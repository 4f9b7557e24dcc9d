"""All that the tool asks of the kernel, call by call, but for what the C library does for itself.

A tool that does no more than it says makes no call that is not listed here. None forces data to disk, locks, sleeps,
handles a signal, changes the directory or the umask, tidies up after a failure, or looks where nobody sent it.
"""

import re

import pytest
from cache import CACHE, FITS, PHOTO
from tracing import Traced, counts_lines, is_sanitized, strace

MEMORY = {"brk", "getrandom", "mmap", "mprotect", "munmap"}
STARTING = {"execve", "arch_prctl", "prlimit64", "rseq", "set_robust_list", "set_tid_address"}
LIBRARIES = ("/etc/ld.so.", "/lib", "/usr/lib")
STATE_OF_A_DESCRIPTOR = r"""\d+<.*>, ("", \{|F_GETFL\b|F_SETFD, FD_CLOEXEC\))"""


def is_the_c_librarys(traced: Traced) -> bool:
    name, subject, _ = traced.call
    known = name in MEMORY | STARTING or subject.startswith(LIBRARIES)
    return known or re.match(STATE_OF_A_DESCRIPTOR, traced.words) is not None


def told(traced: Traced) -> str:
    subject = traced.call.subject.removeprefix("/usr/share/nebulark/").removeprefix(f"{CACHE}/")
    return f"{traced.call.name} {subject}".rstrip()


READ = ["openat preferences.conf", "read preferences.conf", "read preferences.conf", "close preferences.conf"]
NOT_READ = ["openat preferences.conf"]
SEE_THAT_IT_IS_WRITABLE = ["access preferences.conf"]
SEE_THAT_IT_IS_NOT = ["access preferences.conf", "access preferences.conf"]
SEE_THAT_IT_IS_ABSENT = [*SEE_THAT_IT_IS_NOT, "access /usr/share/nebulark"]
WRITE = ["mkdir /usr/share/nebulark", "openat preferences.conf.tmp", "write preferences.conf.tmp",
         "close preferences.conf.tmp", "chmod preferences.conf.tmp", "rename preferences.conf.tmp"]  # fmt: skip
ELEVATE = ["geteuid", "access /usr/bin/pkexec", "readlink /proc/self/exe", "clone", "wait4"]
SAY, COMPLAIN = ["write stdout"], ["write stderr"]

PROBE = ["openat normal/m31.png", "preadv2 normal/m31.png", "close normal/m31.png"]
STATUS = ["newfstatat normal/m31.png"]
JUDGE = ["openat normal/m31.png", "pread64 normal/m31.png", "close normal/m31.png"]
DELETE = ["unlink normal/m31.png"]
OTHER_SIZES = ["openat large", "openat x-large", "openat xx-large", "openat fail"]


def walk(*calls: str) -> list[str]:
    listing = ["getdents64 normal", *calls, "getdents64 normal"]
    return ["openat normal", *listing, "close normal", *OTHER_SIZES, *SAY]


def file_there(machine, cache):
    machine.prefs.write_text("cfa=color\n")


def nothing_there(machine, cache):
    pass


def pkexec_there(machine, cache):
    machine.prefs.write_text("cfa=color\n")
    machine.pkexec("#!/bin/sh\n")


def directory_in_the_way(machine, cache):
    machine.prefs.mkdir()


def no_directory(machine, cache):
    machine.prefs.parent.rmdir()


def thumbnail(content: bytes):
    return lambda machine, cache: cache.put(content, "normal/m31.png")


SET_MONO = ["--set", "cfa=mono"]
CLEAR = ["--clear-thumb-cache"]
RUNS = {
    "no command word": (nothing_there, "root", [], COMPLAIN),
    "help": (nothing_there, "root", ["--help"], COMPLAIN),
    "unknown command": (nothing_there, "root", ["x"], [*COMPLAIN, *COMPLAIN]),
    "version": (nothing_there, "root", ["--version"], SAY),
    "prefs": (file_there, "root", ["--prefs"], [*READ, *SEE_THAT_IT_IS_WRITABLE, *SAY]),
    "prefs of another": (file_there, "ann", ["--prefs"], [*READ, *SEE_THAT_IT_IS_NOT, *SAY]),
    "prefs without a file": (nothing_there, "root", ["--prefs"], [*NOT_READ, *SEE_THAT_IT_IS_ABSENT, *SAY]),
    "set without a word": (file_there, "root", ["--set"], COMPLAIN),
    "rejected word": (file_there, "root", [*SET_MONO, "x"], [*READ, *COMPLAIN]),
    "save": (file_there, "root", SET_MONO, [*READ, *SEE_THAT_IT_IS_WRITABLE, *WRITE, *SAY]),
    "first save": (nothing_there, "root", SET_MONO, [*NOT_READ, *SEE_THAT_IT_IS_ABSENT, *WRITE, *SAY]),
    "save that fails": (
        directory_in_the_way,
        "root",
        SET_MONO,
        ["openat preferences.conf", "read preferences.conf", "close preferences.conf", *SEE_THAT_IT_IS_WRITABLE,
         *WRITE, *COMPLAIN],
    ),
    "root without a directory": (
        no_directory,
        "root",
        SET_MONO,
        [*NOT_READ, *SEE_THAT_IT_IS_ABSENT, *SAY, "geteuid", *COMPLAIN],
    ),
    "elevation": (pkexec_there, "ann", SET_MONO, [*READ, *SEE_THAT_IT_IS_NOT, *SAY, *ELEVATE, *READ, *SAY]),
    "clearing without a cache": (nothing_there, "ann", CLEAR, ["openat normal", *OTHER_SIZES, *SAY]),
    "clearing": (thumbnail(FITS), "ann", CLEAR, walk(*PROBE, *STATUS, *JUDGE, *DELETE)),
    "clearing of another's": (thumbnail(PHOTO), "ann", CLEAR, walk(*PROBE, *STATUS, *JUDGE)),
    "clearing of all": (thumbnail(PHOTO), "ann", [*CLEAR, "--all"], walk(*STATUS, *DELETE)),
}  # fmt: skip


@pytest.mark.parametrize("prepare, user, words, calls", RUNS.values(), ids=RUNS)
def test_makes_these_calls_and_no_others(machine, cache, installed_tool, prepare, user, words, calls):
    if is_sanitized(installed_tool) or counts_lines(installed_tool):
        pytest.skip("what this build has besides the tool makes calls of its own")
    prepare(machine, cache)
    with strace(machine) as inside:
        _, trace = inside.run(words, user, env={"HOME": "/home/ann"})
    assert [told(each) for each in trace if not is_the_c_librarys(each)] == [*calls, "exit_group"]
