"""Many runs of the tool under strace in one sandbox, and the calls that it shows."""

import os
import re
import subprocess
from collections import Counter
from collections.abc import Iterator, Mapping, Sequence
from contextlib import contextmanager
from pathlib import Path
from typing import NamedTuple

import pytest
from machine import BECOME, BUILT, EMULATOR, HANGS, PATHS, SUPPORT, TOOL, TRACED, Machine, Outcome


COUNTS_LINES = b"__gcov_init" in BUILT.read_bytes()
SANITIZED = b"__asan_init" in BUILT.read_bytes()
GLIBC = b"GLIBC_2" in BUILT.read_bytes()

COLD = ["-e", "inject=preadv2:error=EAGAIN"]  # strace's option: the kernel says that no thumbnail is in memory


# Other processors and C libraries have other names for the same call.
ONE_NAME = {
    **{"faccessat": "access", "faccessat2": "access", "readlinkat": "readlink", "open": "openat", "mkdirat": "mkdir"},
    **{"unlinkat": "unlink", "renameat": "rename", "renameat2": "rename", "fchmodat": "chmod"},
    **{"readv": "read", "writev": "write"},
    **{"clone3": "clone", "fork": "clone", "stat": "newfstatat", "lstat": "newfstatat", "fstat": "newfstatat"},
}


class Call(NamedTuple):
    """A system call of the tool."""

    name: str
    subject: str  # a path, "stdin", "stdout", "stderr" or ""
    nth: int  # of all calls with this name and subject


def is_the_tools(call: Call) -> bool:
    """Not from a sanitizer, the line counts or another C library."""
    return call.name in ("clone", "wait4") or call.subject.startswith(("/usr/share/", "/usr/bin/", "/home/", "std"))


class Traced(NamedTuple):
    call: Call
    raw: tuple[str, int]  # strace's name, and the number among all calls of that name
    words: str  # the rest of the line


LINE = re.compile(r"(\w+)\((.*)")
SUBJECT = re.compile(r'(?:(?P<fd>\d+|AT_FDCWD)<(?P<place>.*?)>(?:, )?)?(?:"(?P<path>[^"]*)")?')
STREAMS = {"0": "stdin", "1": "stdout", "2": "stderr"}


def subject(raw_name: str, words: str) -> str:
    match = SUBJECT.match(words)
    assert match
    fd, place, path = match.groups()
    if fd in STREAMS:
        return STREAMS[fd]
    if fd and not raw_name.rstrip("2").endswith("at"):  # what is quoted then is no path
        return place
    return os.path.join(place or "", path or "").rstrip("/")


def calls_of_the_tool(trace: Path) -> list[Traced]:
    """The calls in a trace, starting with the one that starts the tool."""
    found: list[Traced] = []
    raw: Counter[str] = Counter()
    seen: Counter[tuple[str, str]] = Counter()
    for match in map(LINE.match, trace.read_text(errors="surrogateescape").splitlines()):
        if match is None:
            continue  # a signal, or the end
        name, words = match.groups()
        raw[name] += 1
        if name == "execve" and words.startswith(f'"{TOOL}"'):
            found.clear()
            seen.clear()
        about = ONE_NAME.get(name, name), subject(name, words)
        seen[about] += 1
        found.append(Traced(Call(*about, seen[about]), (name, raw[name]), words))
    return found


class Strace:
    """Runs the tool again and again in one sandbox. The traces name every descriptor's file."""

    def __init__(self, machine: Machine, inside: list[str]):
        self.inside = inside
        self.trace = machine.root / "trace"

    def start(
        self, words: Sequence[str], user: str = "root", options: Sequence[str] = (), env: Mapping[str, str] = {}
    ) -> subprocess.Popen[bytes]:
        if EMULATOR:
            pytest.skip("under qemu strace shows the calls of qemu")
        strace = [*self.inside, "/usr/bin/strace", "-y", "-s", "0", "-o", str(self.trace), *options]
        variables = [f"{name}={value}" for name, value in {**TRACED, **env}.items()]
        command = [*strace, *BECOME[user], "env", "-i", *variables, TOOL, *words]
        both = subprocess.PIPE
        return subprocess.Popen(command, env=PATHS, cwd="/", stdout=both, stderr=both, umask=0o077)

    def run(self, *how, **more) -> tuple[Outcome, list[Traced]]:
        """Like start(), and waits for the end."""
        with self.start(*how, **more) as run:
            try:
                out, err = run.communicate(timeout=HANGS)
            finally:
                run.kill()
        return Outcome(run.returncode, out, err), calls_of_the_tool(self.trace)


@contextmanager
def strace(machine: Machine) -> Iterator[Strace]:
    """A sandbox until the end of the block."""
    waiting = [str(SUPPORT / "sandbox"), str(machine.root), "sh", "-c", "echo; exec cat"]
    pipe = subprocess.PIPE
    with subprocess.Popen(waiting, env=PATHS, cwd="/", start_new_session=True, stdin=pipe, stdout=pipe) as process:
        assert process.stdout and process.stdout.read(1) == b"\n"
        # The root directory too: otherwise entering the namespace would leave a chroot.
        places = {"mount": "ns/mnt", "root": "root", "wd": "cwd"}
        entered = [f"--{what}=/proc/{process.pid}/{place}" for what, place in places.items()]
        yield Strace(machine, ["/usr/bin/nsenter", *entered, "--"])
