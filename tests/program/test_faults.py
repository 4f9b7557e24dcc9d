"""Every system call of a run fails, one at a time, with every error that it can give.

Which calls there are is read from a trace of an undisturbed run. What a run is to say and leave behind when one of them
fails is worked out by the functions `set_mono`, `show` and `clear` below: they are the tool, told in a few lines.

The first calls of a run are the dynamic loader's. When one of those fails the program may not start at all, with a
status or signal and words of the loader's; then nothing may have been touched either. One error each is enough there:
the tool never sees it.
"""

import os
import re
import shutil
import stat
from collections import Counter
from collections.abc import Callable, Iterator, Sequence
from pathlib import Path
from typing import NamedTuple

import png
import pytest
from cache import CACHE, FITS, PHOTO, Cache, report, report_all
from machine import Machine, Outcome
from texts import CANNOT_WRITE, COULD_NOT_WRITE, HINT, NOTICE, PATH, listing, shown, stored
from tracing import Call, Traced, counts_lines, is_sanitized, is_the_tools, strace, uses_glibc

# What each call can fail with. brk says in a way of its own that there is no memory.
ERRORS = {
    "access": "EACCES EIO ELOOP ENOENT ENOMEM ENOTDIR EROFS",
    "arch_prctl": "EINVAL",
    "brk": "",
    "chmod": "EACCES EIO ELOOP ENOENT ENOMEM ENOTDIR EPERM EROFS",
    "clone": "EAGAIN ENOMEM EPERM",
    "close": "EDQUOT EINTR EIO ENOSPC",
    "fadvise64": "EINVAL EIO",
    "futex": "EAGAIN EINTR EINVAL",
    "getdents64": "EINTR EIO ENOENT ENOMEM",
    "getrandom": "EAGAIN EINTR ENOSYS",
    "lseek": "EINVAL EOVERFLOW ESPIPE",
    "mkdir": "EACCES EDQUOT EIO ELOOP EMLINK ENOENT ENOMEM ENOSPC ENOTDIR EPERM EROFS",
    "mmap": "ENOMEM",
    "mprotect": "ENOMEM",
    "munmap": "ENOMEM",
    "newfstatat": "EACCES EIO ELOOP ENOENT ENOMEM ENOTDIR EOVERFLOW",
    "openat": "EACCES EDQUOT EINTR EIO ELOOP EMFILE ENFILE ENOENT ENOMEM ENOSPC ENOTDIR EPERM EROFS",
    "pread64": "EAGAIN EINTR EIO EISDIR ENOMEM ESPIPE",
    "preadv2": "EAGAIN EINTR EINVAL EIO ENOMEM ENOSYS EOPNOTSUPP",
    "prlimit64": "EPERM",
    "read": "EAGAIN EINTR EIO EISDIR ENOMEM",
    "readlink": "EACCES EINVAL EIO ELOOP ENOENT ENOMEM ENOTDIR",
    "rename": "EACCES EBUSY EDQUOT EIO EISDIR ELOOP ENOENT ENOMEM ENOSPC ENOTDIR EPERM EROFS EXDEV",
    "rseq": "ENOSYS",
    "rt_sigprocmask": "EINVAL",
    "set_robust_list": "ENOSYS",
    "unlink": "EACCES EBUSY EIO EISDIR ELOOP ENOENT ENOMEM ENOTDIR EPERM EROFS",
    "wait4": "ECHILD EINTR",
    "write": "EAGAIN EDQUOT EFBIG EINTR EIO ENOSPC EPERM EPIPE",
}
# execve because all that follows it is a program that started, fcntl because it is only asked for a file's flags, ioctl
# because it is only asked whether a file is a terminal.
NEVER_FAILS = {"execve", "exit_group", "fcntl", "geteuid", "ioctl", "set_tid_address"}


def faults(traced: Traced) -> list[str]:
    """The ways in which a call can fail, as strace puts them."""
    name = traced.call.name
    if name in NEVER_FAILS:
        return []
    if name == "brk":
        return [] if traced.words.startswith("NULL") else ["retval=0"]  # NULL asks for nothing
    return [f"error={error}" for error in ERRORS[name].split()]


# What the tool promises. `failed` is the call that fails, None in an undisturbed run.

PREFS = PATH.decode()
PREFS_TMP = PREFS + ".tmp"
DIRECTORY = os.path.dirname(PREFS)
OLD = {"labelformat": "on"}

SAVED = "-rw-r--r--"
UNSHARED = "-rw-------"  # what the umask of these runs makes of a file whose mode is not set
Files = dict[str, tuple[str, bytes | str | None]]  # by path, the mode and what is in it


def loaded(failed: Call | None, stands: dict | None, opening: int = 1, reading: int = 1) -> dict:
    """What is read from the file. Its first read gets everything; a second one finds the end, or an error."""
    unread = failed in (Call("openat", PREFS, opening), Call("read", PREFS, reading))
    return {} if unread or stands is None else stands


def writable(failed: Call | None, user: str, stands: dict | None) -> bool:
    return user == "root" and failed != Call("access", DIRECTORY if stands is None else PREFS, 1)


def printed(failed: Call | None, stream: str, text: bytes, nth: int = 1) -> bytes:
    """A text that is written at once. If it cannot be it is lost, and nothing else comes of it."""
    return b"" if failed == Call("write", stream, nth) else text


def set_mono(failed: Call | None, files: Files, user: str, old: dict | None, elevates: bool = False) -> Outcome:
    """--set cfa=mono, by root, or by a user whose pkexec gives root's rights or does not."""
    changed = loaded(failed, old) | {"cfa": "mono"}
    if not writable(failed, user, old):
        return elevate(failed, files, user, old, elevates)
    if failed == Call("openat", PREFS_TMP, 1):
        return Outcome(1, b"", COULD_NOT_WRITE)
    # How closing ends, and the text gets out, is not looked at: the one way to a file that is neither old nor new.
    text = b"" if failed == Call("write", PREFS_TMP, 1) else stored(**changed)
    mode = UNSHARED if failed == Call("chmod", PREFS_TMP, 1) else SAVED
    if failed == Call("rename", PREFS_TMP, 1):
        files[PREFS_TMP] = mode, text
        return Outcome(1, b"", COULD_NOT_WRITE)
    files[PREFS] = mode, text
    return Outcome(0, printed(failed, "stdout", listing(**changed) + HINT), b"")


NO_SECOND_RUN = [Call("access", "/usr/bin/pkexec", 1), Call("readlink", "/proc/self/exe", 1), Call("clone", "", 1)]


def elevate(failed: Call | None, files: Files, user: str, old: dict | None, elevates: bool) -> Outcome:
    notice = printed(failed, "stdout", NOTICE)
    second = b""
    if user != "root" and elevates and failed not in NO_SECOND_RUN:
        second = set_mono(None, files, "root", old).out
    if not second or failed == Call("wait4", "", 1):
        return Outcome(1, notice + second, printed(failed, "stderr", CANNOT_WRITE))
    now = loaded(failed, (old or {}) | {"cfa": "mono"}, opening=2, reading=3)
    return Outcome(0, notice + second + printed(failed, "stdout", listing(**now), nth=2), b"")


def show(failed: Call | None, files: Files, user: str, old: dict | None) -> Outcome:
    """--prefs."""
    suffix = b"" if writable(failed, user, old) else b" (needs sudo to change)"
    return Outcome(0, printed(failed, "stdout", shown(suffix, **loaded(failed, old))), b"")


# A thumbnail whose tags fit into the first read, but not what comes between them and the image; and one whose tags
# come behind that.
LONG = png.chunk(b"zTXt", bytes(5000))
IMAGE_AT = FITS.index(b"IDAT") - 4
LONG_BEHIND = FITS[:IMAGE_AT] + LONG + FITS[IMAGE_AT:]
LONG_BEFORE = FITS[:8] + LONG + FITS[8:]

THUMBNAILS = {
    "normal/m31.png": FITS,
    "normal/app/late.png": LONG_BEFORE,
    "large/early.png": LONG_BEHIND,
    "large/harbour.png": PHOTO,
    "fail/app/1.0/m31.png": FITS,
    "fail/stray": b"no picture",
}
# The calls that get at the tags of Nebulark's.
HEAD = [("openat", 1), ("pread64", 1)]
TAGS_BY = {FITS: HEAD, LONG_BEHIND: HEAD, LONG_BEFORE: [*HEAD, ("pread64", 2)]}


def out_of_sight(failed: Call | None, name: str) -> bool:
    """Whether the file has no status, or a directory above it cannot be opened or read to its first entry."""
    if failed is None or not f"{CACHE}/{name}".startswith(failed.subject):
        return False
    return (
        failed.name == "newfstatat"
        or failed.subject != f"{CACHE}/{name}"
        and (failed.name == "openat" or (failed.name, failed.nth) == ("getdents64", 1))
    )


def clear(failed: Call | None, files: Files, user: str, all: bool) -> Outcome:
    """--clear-thumb-cache. Calls that only have the kernel read ahead change nothing: for them `failed` is None."""
    removed = left = 0
    for name, content in THUMBNAILS.items():
        path = f"{CACHE}/{name}"
        if out_of_sight(failed, name):
            continue
        tags_by = TAGS_BY.get(content)
        if not all and (tags_by is None or failed in [Call(call, path, nth) for call, nth in tags_by]):
            left += 1
        elif failed != Call("unlink", path, 1):
            removed += 1
            del files[path]
    told = report_all(removed) if all else report(removed, left)
    return told._replace(out=printed(failed, "stdout", told.out))


class Kind(NamedTuple):
    model: Callable[..., Outcome]
    words: list[str]
    user: str
    how: dict
    always: Sequence[str] = ()  # what goes wrong in each of its runs


# The cache is not in memory, as far as the kernel says.
COLD = ["-e", "inject=preadv2:error=EAGAIN"]

KINDS = {
    "a save": Kind(set_mono, ["--set", "cfa=mono"], "root", dict(old=OLD)),
    "the first save": Kind(set_mono, ["--set", "cfa=mono"], "root", dict(old=None)),
    "an elevated --set": Kind(set_mono, ["--set", "cfa=mono"], "ann", dict(old=OLD, elevates=True)),
    "a refused --set": Kind(set_mono, ["--set", "cfa=mono"], "ann", dict(old=OLD, elevates=False)),
    "--prefs": Kind(show, ["--prefs"], "root", dict(old=OLD)),
    "--prefs without a file": Kind(show, ["--prefs"], "ann", dict(old=None)),
    "clearing": Kind(clear, ["--clear-thumb-cache"], "ann", dict(all=False)),
    "clearing a cold cache": Kind(clear, ["--clear-thumb-cache"], "ann", dict(all=False), COLD),
    "clearing of all": Kind(clear, ["--clear-thumb-cache", "--all"], "ann", dict(all=True)),
}


def prepare(machine: Machine, old: dict | None = None, elevates: bool = True, all: bool | None = None):
    """Makes the machine what it is before each run of a kind."""
    if old is not None:
        machine.prefs.write_bytes(stored(**old))
    if not elevates:
        machine.pkexec("#!/bin/sh\nexit 1\n")
    if all is not None:
        cache = Cache(machine)
        for name, content in THUMBNAILS.items():
            cache.put(content, name)
        cache.put(FITS, "small/m31.png", "../../Pictures/m31.png")
        (cache.path / "normal/link").symlink_to("/home/ann/Pictures")
        (cache.path / "normal/link.png").symlink_to("/home/ann/Pictures/m31.png")
    for top in (machine.share, machine.home):
        shutil.copytree(top, machine.root / "kept" / top.name, symlinks=True, copy_function=os.link)


def restore(machine: Machine, before: Files, after: Files):
    """Brings back the files of before, all of them and in one order: on some file systems a directory gives its entries
    in the order in which they were made, and a call is known by its number."""
    names = {
        path: path.removeprefix("/usr").lstrip("/") for path, (mode, _) in (before | after).items() if mode[0] != "d"
    }
    for name in names.values():
        (machine.root / name).unlink(missing_ok=True)
    for path, name in names.items():
        if path in before:
            os.link(machine.root / "kept" / name, machine.root / name, follow_symlinks=False)


def files_of(machine: Machine) -> Files:
    """All that is below /usr/share and /home, by the paths that the tool knows."""
    found = {}
    for top, seen_as in ((machine.share, "/usr/share"), (machine.home, "/home")):
        for path in top.rglob("*"):
            mode = stat.filemode(path.lstat().st_mode)
            content = {"l": os.readlink, "-": Path.read_bytes, "d": lambda _: None}[mode[0]](path)
            found[f"{seen_as}/{path.relative_to(top)}"] = mode, content
    return found


def left_open(trace: list[Traced]) -> set[str]:
    """The files that a run opened and did not try to close."""
    still = {}
    for traced in trace:
        if traced.call.name == "openat" and (opened := re.search(r" = (\d+)<", traced.words)):
            still[opened[1]] = traced.call.subject
        if traced.call.name == "close":
            still.pop(re.match(r"\d+", traced.words)[0], None)
    return set(still.values())


def reads_ahead(calls: list[Traced]) -> bool:
    """Whether a descriptor, known by the calls from its opening to its closing, is there for the kernel's sake only. A
    C library without preadv2 opens a file and asks nothing."""
    names = [each.call.name for each in calls]
    hint = "preadv2" in names or "fadvise64" in names or names == ["openat", "close"]
    return hint or calls[0].call.subject.endswith("/.")


def by_descriptor(trace: list[Traced]) -> Iterator[list[Traced]]:
    """The calls of each descriptor, the one that opens it first."""
    open_now: dict[str, list[Traced]] = {}
    for traced in trace:
        about = re.match(r"\d+", traced.words)
        opened = re.search(r" = (\d+)<", traced.words) if traced.call.name == "openat" else None
        if opened:
            yield open_now.pop(opened[1], [])
            open_now[opened[1]] = [traced]
        elif about and about[0] in open_now:
            open_now[about[0]].append(traced)
    yield from open_now.values()


def calls_that_count(trace: list[Traced]) -> list[Call | None]:
    """The calls, each with its number among those of its kind that can change a result; None for the others."""
    hints = {each.call for calls in by_descriptor(trace) if calls and reads_ahead(calls) for each in calls}
    seen, found = Counter(), []
    for traced in trace:
        about = traced.call[:2]
        seen[about] += traced.call not in hints
        found.append(None if traced.call in hints else Call(*about, seen[about]))
    return found


@pytest.mark.usefixtures("polkit")
@pytest.mark.parametrize("kind", KINDS.values(), ids=KINDS)
def test_no_failing_call_does_more_harm_than_it_must(machine, installed_tool, kind):
    model, words, user, how, always = kind
    other_library = not uses_glibc(installed_tool)
    only_its_own = other_library or is_sanitized(installed_tool) or counts_lines(installed_tool)

    def run(*options: str) -> tuple[Outcome, list[Traced], Files]:
        outcome, trace = inside.run(words, user, [*always, *options], env={"HOME": "/home/ann"})
        return outcome, trace, files_of(machine)

    def expected(failed: Call | None) -> tuple[Outcome, Files]:
        files = dict(before)
        return model(failed, files, user, **how), files

    with strace(machine) as inside:
        prepare(machine, **how)
        before = files_of(machine)
        restore(machine, before, before)
        _, shortest = inside.run(["--version"], user)
        outcome, undisturbed, after = run()
        assert (outcome, after) == expected(None)
        loading = len(os.path.commonprefix([[each.call for each in trace] for trace in (shortest, undisturbed)]))

        for place, (traced, counted) in enumerate(zip(undisturbed, calls_that_count(undisturbed))):
            if always and traced.call.name == "preadv2":
                continue
            if traced.call.subject.endswith(".gcda"):
                break  # the counts of the lines that ran: from here on, how many calls there are changes with them
            if only_its_own and not is_the_tools(traced.call):
                continue
            if other_library and traced.call.subject.startswith("std"):
                continue  # a text of which any piece may be lost
            name, nth = traced.raw
            for fault in faults(traced)[: 1 if place < loading else None]:
                restore(machine, before, after)
                outcome, trace, after = run("-e", f"inject={name}:{fault}:when={nth}")
                case = f"{traced.call}, {fault}"
                injected = [each.call for each in trace if "(INJECTED)" in each.words]
                assert [call for call in injected if not always or call.name != "preadv2"] == [traced.call], case
                if place < loading and (outcome.status < 0 or outcome.status == 127):
                    assert (outcome.out, after) == (b"", before), case
                else:
                    assert (outcome, after) == expected(counted), case
                    assert left_open(trace) == set(), case


@pytest.mark.parametrize("error", "E2BIG EACCES EIO ELOOP ENOENT ENOEXEC ENOMEM EPERM ETXTBSY".split())
def test_pkexec_that_cannot_be_started_is_a_failure(machine, error):
    machine.pkexec("#!/bin/sh\necho started\n")
    fault = ["-f", "-P", "/usr/bin/pkexec", "-e", f"inject=execve:error={error}"]
    with strace(machine) as inside:
        before = files_of(machine)
        outcome, _ = inside.run(["--set", "cfa=mono"], "ann", fault)
        assert (outcome, files_of(machine)) == ((1, NOTICE, CANNOT_WRITE), before)
