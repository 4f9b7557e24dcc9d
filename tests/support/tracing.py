"""Many runs of the tool under strace in one sandbox, and what strace tells of them."""

import os
import re
import subprocess
from collections import Counter
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path
from typing import NamedTuple

import pytest
from machine import BECOME, EMULATOR, SUPPORT, TOOL, TRACED, Machine, Outcome

ENTERED = {"mount": "ns/mnt", "root": "root", "wd": "cwd"}
PATHS = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}

# The same call has another name on another processor, or in another libc.
ONE_NAME = {
    **{"faccessat": "access", "faccessat2": "access", "readlinkat": "readlink", "open": "openat", "mkdirat": "mkdir"},
    **{"unlinkat": "unlink", "renameat": "rename", "renameat2": "rename", "fchmodat": "chmod"},
    **{"readv": "read", "writev": "write"},
    **{"clone3": "clone", "fork": "clone", "stat": "newfstatat", "lstat": "newfstatat", "fstat": "newfstatat"},
}


class Call(NamedTuple):
    """One system call of the tool: its name, what it is about, and the how-manieth it is that has both in common.

    What it is about is a path, "stdin", "stdout" or "stderr", or nothing.
    """

    name: str
    subject: str
    nth: int


def is_sanitized(tool: Path) -> bool:
    return b"__asan_init" in tool.read_bytes()


def counts_lines(tool: Path) -> bool:
    return b"__gcov_init" in tool.read_bytes()


def uses_glibc(tool: Path) -> bool:
    """Another C library takes memory page by page where glibc takes it once, and prints a text in pieces."""
    return b"GLIBC_2" in tool.read_bytes()


def is_the_tools(call: Call) -> bool:
    """Whether a call is the tool's own, and not one of the sanitizer in it, which complains for itself, of what counts
    the lines that run, or of another C library than the one whose calls are known."""
    return call.name in ("clone", "wait4") or call.subject.startswith(("/usr/share/", "/usr/bin/", "/home/", "std"))


class Traced(NamedTuple):
    call: Call
    raw: tuple[str, int]  # the name as strace has it, and how many of that name there have been, this one included
    words: str  # the rest of the line


LINE = re.compile(r"(\w+)\((.*)")
SUBJECT = re.compile(r'(?:(?P<fd>\d+|AT_FDCWD)<(?P<place>.*?)>(?:, )?)?(?:"(?P<path>[^"]*)")?')
STREAMS = {"0": "stdin", "1": "stdout", "2": "stderr"}


def subject(raw_name: str, words: str) -> str:
    fd, place, path = SUBJECT.match(words).groups()
    if fd in STREAMS:
        return STREAMS[fd]
    if fd and not raw_name.rstrip("2").endswith("at"):  # what is quoted then is no path
        return place
    return os.path.join(place or "", path or "").rstrip("/")


def calls_of_the_tool(trace: Path) -> list[Traced]:
    """The system calls that a trace tells of, from the one that starts the tool on."""
    found, raw, seen = [], Counter(), Counter()
    for line in trace.read_text(errors="surrogateescape").splitlines():
        match = LINE.match(line)
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
    """Runs the tool on a machine, again and again, in one sandbox. The traces name every descriptor's file."""

    def __init__(self, machine: Machine, inside: Sequence[str]):
        self.inside = inside
        self.trace = machine.root / "trace"

    def command(self, words: Sequence[str], user: str, options: Sequence[str], env: dict[str, str]) -> list[str | Path]:
        if EMULATOR:
            pytest.skip("under qemu strace shows the calls of qemu")
        strace = ["/usr/bin/strace", "-y", "-s", "0", "-o", self.trace, *options]
        variables = [f"{name}={value}" for name, value in (TRACED | env).items()]
        return [*self.inside, *strace, *BECOME[user], "env", "-i", *variables, TOOL, *words]

    def run(
        self, words: Sequence[str], user: str = "root", options: Sequence[str] = (), env: dict[str, str] = {}
    ) -> tuple[Outcome, list[Traced]]:
        command = self.command(words, user, options, env)
        done = subprocess.run(command, env=PATHS, cwd="/", capture_output=True, umask=0o077, timeout=60)
        return Outcome(done.returncode, done.stdout, done.stderr), calls_of_the_tool(self.trace)


@contextmanager
def strace(machine: Machine) -> Iterator[Strace]:
    """A sandbox that stands until the end of the block."""
    waiting = [SUPPORT / "sandbox", machine.root, "sh", "-c", "echo; exec cat"]
    pipes = dict(stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    with subprocess.Popen(waiting, env=PATHS, cwd="/", start_new_session=True, **pipes) as process:
        assert process.stdout.read(1) == b"\n"
        # The root directory too: where it is that of a chroot, entering the namespace would leave it.
        entered = [f"--{what}=/proc/{process.pid}/{place}" for what, place in ENTERED.items()]
        yield Strace(machine, ["/usr/bin/nsenter", *entered, "--"])
