"""Every system call of a run fails, one at a time, with every error that it can give.

The calls are those of a normal run; `model` says what comes of each failure. The first calls are the dynamic
loader's: if one fails, the program may not start, and nothing changes. One error of each is enough there, because the
tool never sees it.
"""

import os
import re
import signal
import sys
from collections import Counter
from collections.abc import Callable
from typing import NamedTuple

import pytest
from cache import CACHE, CLEAR, FITS, HOME, Cache
from machine import SET_MONO, Machine, Outcome, entries
from model import THUMBNAILS, Files, clear, set_mono, show
from texts import stored
from tracing import COLD, COUNTS_LINES, GLIBC, SANITIZED, Call, Traced, is_the_tools, strace

NEVER_FAILS = "execve exit_group fcntl geteuid ioctl set_tid_address"
LOOK_UP = "EACCES EIO ELOOP ENOENT ENOMEM ENOTDIR"
CHANGE = f"{LOOK_UP} EPERM EROFS"
ERRORS = {
    NEVER_FAILS: "",
    "access": f"{LOOK_UP} EROFS",
    "arch_prctl rt_sigprocmask": "EINVAL",
    "chmod": CHANGE,
    "clone": "EAGAIN ENOMEM EPERM",
    "close": "EDQUOT EINTR EIO ENOSPC",
    "fadvise64": "EINVAL EIO",
    "futex": "EAGAIN EINTR EINVAL",
    "getdents64": "EINTR EIO ENOENT ENOMEM",
    "getrandom": "EAGAIN EINTR ENOSYS",
    "lseek": "EINVAL EOVERFLOW ESPIPE",
    "mkdir": f"{CHANGE} EDQUOT EMLINK ENOSPC",
    "mmap mprotect munmap": "ENOMEM",
    "newfstatat": f"{LOOK_UP} EOVERFLOW",
    "openat": f"{CHANGE} EAGAIN EDQUOT EINTR EMFILE ENFILE ENOSPC",
    "pread64": "EAGAIN EINTR EIO EISDIR ENOMEM ESPIPE",
    "preadv2": "EAGAIN EINTR EINVAL EIO ENOMEM ENOSYS EOPNOTSUPP",
    "prlimit64": "EPERM",
    "read": "EAGAIN EINTR EIO EISDIR ENOMEM",
    "readlink": f"{LOOK_UP} EINVAL",
    "rename": f"{CHANGE} EBUSY EDQUOT EISDIR ENOSPC EXDEV",
    "rseq set_robust_list": "ENOSYS",
    "unlink": f"{CHANGE} EBUSY EISDIR",
    "wait4": "ECHILD EINTR",
    "write": "EAGAIN EDQUOT EFBIG EINTR EIO ENOSPC EPERM EPIPE",
}
FAULTS = {name: [f"error={error}" for error in ERRORS[names].split()] for names in ERRORS for name in names.split()}
FAULTS["brk"] = ["retval=0"]  # brk has no error: this means no memory
DIED_WITH_A_CORE = (signal.SIGABRT | 0x80).to_bytes(4, sys.byteorder).hex()  # whether one is left is up to the machine
FAULTS["wait4"].append(f"poke_exit=@arg2={DIED_WITH_A_CORE}")


class Kind(NamedTuple):
    model: Callable[..., Outcome]
    words: list[str]
    user: str
    how: dict
    always: list[str] = []  # strace's options in each run


OLD = {"labelformat": "on"}
KINDS = {
    "a save": Kind(set_mono, SET_MONO, "root", dict(old=OLD)),
    "the first save": Kind(set_mono, SET_MONO, "root", dict(old=None)),
    "an elevated --set": Kind(set_mono, SET_MONO, "ann", dict(old=OLD, elevates=True)),
    "a refused --set": Kind(set_mono, SET_MONO, "ann", dict(old=OLD, elevates=False)),
    "--prefs": Kind(show, ["--prefs"], "root", dict(old=OLD)),
    "--prefs without a file": Kind(show, ["--prefs"], "ann", dict(old=None)),
    "clearing": Kind(clear, CLEAR, "ann", dict(all=False)),
    "clearing a cold cache": Kind(clear, CLEAR, "ann", dict(all=False), COLD),
    "clearing of all": Kind(clear, [*CLEAR, "--all"], "ann", dict(all=True)),
}


def prepare(machine: Machine, old: dict | None = None, elevates: bool = True, all: bool | None = None):
    """Prepares the machine for a run. The directories stay, so that they list their files in the same order."""
    for each in entries(machine.share) | entries(machine.home):
        if each.is_symlink() or not each.is_dir():
            each.unlink()
    if old is not None:
        machine.prefs.write_bytes(stored(**old))
    if not elevates:
        machine.pkexec("#!/bin/sh\nexit 1\n")
    if all is not None:
        cache = Cache(machine)
        for path, content in THUMBNAILS.items():
            cache.put(content, os.path.relpath(path, CACHE))
        cache.put(FITS, "small/m31.png", "../../Pictures/m31.png")
        (cache.path / "normal/link").symlink_to("/home/ann/Pictures")
        (cache.path / "normal/link.png").symlink_to("/home/ann/Pictures/m31.png")


def files_of(machine: Machine) -> Files:
    """All below /usr/share and /home, by the tool's paths."""
    tops = {"/usr/share": machine.share, "/home": machine.home}
    found = [(path.relative_to(top), place, each) for place, top in tops.items() for path, each in entries(top).items()]
    return {f"{place}/{name}": (each.mode, each.content) for name, place, each in found}


def left_open(trace: list[Traced]) -> set[str]:
    """The files that a run opened and did not try to close."""
    still = {}
    for call, _, words in trace:
        if call.name == "openat" and (opened := re.search(r" = (\d+)<", words)):
            still[opened[1]] = call.subject
        if call.name == "close":
            still.pop(words.partition("<")[0], None)
    return set(still.values())


def calls_that_count(trace: list[Traced]) -> list[Call | None]:
    """The calls, numbered. Those that can change no result are None and are not numbered: calls about a file before its
    status is read, which read ahead, and calls about a directory that has been listed."""
    seen: Counter[tuple[str, str]] = Counter()
    found: list[Call | None] = []
    for (name, subject, _), _, _ in trace:
        ahead = subject in THUMBNAILS and name != "newfstatat" and not seen["newfstatat", subject]
        counts = not ahead and not seen["getdents64", subject]
        seen[name, subject] += counts
        found.append(Call(name, subject, seen[name, subject]) if counts else None)
    return found


def is_looked_at(traced: Traced) -> bool:
    if not GLIBC and traced.call.subject.startswith("std"):
        return False  # another C library writes a text in pieces, and each may be lost
    others = SANITIZED or COUNTS_LINES or not GLIBC
    return is_the_tools(traced.call) or not others


@pytest.mark.usefixtures("polkit")
@pytest.mark.parametrize("kind", KINDS.values(), ids=KINDS)
def test_failing_call_has_only_the_effects_of_the_model(machine, kind):
    model, words, user, how, always = kind

    def run(*options: str) -> tuple[Outcome, list[Traced], Files]:
        prepare(machine, **how)
        outcome, trace = inside.run(words, user, [*always, *options], HOME)
        return outcome, trace, files_of(machine)

    def expected(failed: Call | None) -> tuple[Outcome, Files]:
        files = dict(before)
        return model(failed, files, user, **how), files

    with strace(machine) as inside:
        prepare(machine, **how)
        before = files_of(machine)
        _, shortest = inside.run(["--version"], user)
        outcome, normal, after = run()
        assert (outcome, after) == expected(None)
        loading = len(os.path.commonprefix([[each.call for each in trace] for trace in (shortest, normal)]))

        for place, (traced, counted) in enumerate(zip(normal, calls_that_count(normal))):
            if traced.call.subject.endswith(".gcda"):
                break  # the line counts, whose number of calls varies
            if not is_looked_at(traced) or (always and traced.call.name == "preadv2"):
                continue
            name, nth = traced.raw
            for fault in FAULTS[traced.call.name][: 1 if place < loading else None]:
                if name == "brk" and traced.words.startswith("NULL"):
                    continue  # it asks for nothing
                outcome, trace, after = run("-e", f"inject={name}:{fault}:when={nth}")
                case = f"{traced.call}, {fault}"
                injected = [each.call for each in trace if "(INJECTED" in each.words]
                assert [call for call in injected if not always or call.name != "preadv2"] == [traced.call], case
                if place < loading and (outcome.status < 0 or outcome.status == 127):
                    assert (outcome.out, after) == (b"", before), case
                else:
                    assert (outcome, after) == expected(counted), case
                    assert left_open(trace) == set(), case
