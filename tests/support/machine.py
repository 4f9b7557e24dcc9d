"""Machines for tests, and runs of the built tool on them.

A machine is a directory that replaces /usr/share, a part of /usr/bin, and /home (see `sandbox`). Each run has a
private mount namespace, in which the tool works on its real paths; tests prepare and examine the same files outside.

    def test_shows_defaults(machine):
        assert machine.run("--prefs") == (0, b"autostretch = on\\n...", b"")

NEBULARK_CTL names the tool, or it is build/release/nebulark-ctl. NEBULARK_EMULATOR runs a tool for another processor.
"""

import os
import stat
import subprocess
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import NamedTuple

import pytest

SUPPORT = Path(__file__).parent
PROJECT = SUPPORT.parents[1]
BUILT = Path(os.environ.get("NEBULARK_CTL", PROJECT / "build/release/nebulark-ctl"))
TOOL = "/usr/bin/nebulark-ctl"

HANGS = 600  # seconds: only a hung program takes so long

EMULATOR = os.environ.get("NEBULARK_EMULATOR", "").split()
RUN_TOOL = [*EMULATOR, TOOL]


def cannot_run(reason: str):
    """Skips the present test, or fails it under CI."""
    if "CI" in os.environ:
        pytest.fail(reason)
    pytest.skip(reason)


def unless_emulated(reason: str):
    """Skips a test under qemu, with this reason."""
    return pytest.mark.skipif(bool(EMULATOR), reason=f"under qemu {reason}")


os.umask(0o022)  # ann enters the machines' directories too

ANN = 1000  # an ordinary user: her user id and her only group
BECOME: dict[str, list[str]] = {"root": [], "ann": f"setpriv --reuid={ANN} --regid={ANN} --clear-groups --".split()}

PATHS = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}
SET_MONO = ["--set", "cfa=mono"]
# Under strace a sanitized tool cannot look for leaks.
TRACED = {"ASAN_OPTIONS": "detect_leaks=0"}


class Outcome(NamedTuple):
    status: int  # negative: the signal that ended the run
    out: bytes
    err: bytes


class Machine:
    """A machine with the tool, an empty preferences directory, no pkexec, and an ordinary user, ann."""

    def __init__(self, root: Path, tool: Path):
        self.root = root
        self.share = root / "share"  # /usr/share
        self.bin = root / "bin"  # /usr/bin, in addition to the real programs
        self.home = root / "home"  # /home
        self.ann = self.home / "ann"
        self.prefs = self.share / "nebulark/preferences.conf"
        self.prefs_tmp = self.share / "nebulark/preferences.conf.tmp"
        for directory in (self.prefs.parent, self.bin, self.ann):
            directory.mkdir(parents=True)
        os.chown(self.ann, ANN, ANN)
        os.link(tool, self.bin / "nebulark-ctl")

    def pkexec(self, text: str, mode: int = 0o755):
        (self.bin / "pkexec").write_text(text)
        (self.bin / "pkexec").chmod(mode)

    def run(
        self,
        *words: str | bytes,
        user: str = "root",
        env: Mapping = {},
        script: str = 'exec "$@"',
        tool: Sequence[str | bytes] = RUN_TOOL,
    ) -> Outcome:
        """Runs the tool as "root" or "ann", with env as its whole environment.

        script is run by sh, as root inside the namespace, and runs "$@", the tool:

            exec "$@" 2>&1
            mount -o remount,bind,ro /usr/share; exec "$@"

        tool is what starts the tool inside. Status 125 means that the sandbox failed; the tool's own are 0 to 2.
        """
        variables = [b"=".join(map(os.fsencode, pair)) for pair in env.items()]
        command: list[str | bytes] = [*BECOME[user], "env", "-i", *variables, *tool, *words]
        done = sandbox(self.root, "sh", "-c", script, "sh", *command, input=b"")
        return Outcome(done.returncode, done.stdout, done.stderr)


class Entry(NamedTuple):
    inode: int
    mode: str
    owner: int
    content: object  # a file's bytes, a link's target


def entry(path: Path) -> Entry:
    status = path.lstat()
    content = os.readlink(path) if path.is_symlink() else path.read_bytes() if path.is_file() else None
    return Entry(status.st_ino, stat.filemode(status.st_mode), status.st_uid, content)


def entries(directory: Path) -> dict[Path, Entry]:
    return {path: entry(path) for path in directory.rglob("*")}


def around(before: str, after: str) -> str:
    """A script that runs the tool between two others, and ends with its status."""
    return f'{before}\n"$@"\nstatus=$?\n{after}\nexit $status'


def sandbox(root: Path, *command: str | bytes, **how) -> subprocess.CompletedProcess:
    """Runs a command in a sandbox. It has a new session, so that signals to its process group spare the tests. It
    ignores no signal, even if the tests do, as under nohup."""
    return subprocess.run(
        ["/usr/bin/env", "--default-signal", SUPPORT / "sandbox", root, *command],
        env=PATHS,
        cwd="/",
        capture_output=True,
        start_new_session=True,
        timeout=HANGS,
        **how,
    )


def why_no_sandbox() -> str:
    done = subprocess.run([SUPPORT / "probe"], stderr=subprocess.PIPE, timeout=HANGS)
    return "" if done.returncode == 0 else os.fsdecode(done.stderr).strip() or f"status {done.returncode}"
