"""Machines of the tests' own, and runs of the built tool on them.

A machine is a directory that stands in for /usr/share, what differs in /usr/bin, and /home (see `sandbox`). A run
happens in a mount namespace of its own, in which the tool is /usr/bin/nebulark-ctl and works on its real, fixed paths;
tests prepare and examine the same files from outside.

    def test_shows_defaults(machine):
        assert machine.run("--prefs") == (0, b"autostretch = on\\n...", b"")

The tool is the file named by NEBULARK_CTL, or else build/release/nebulark-ctl. NEBULARK_EMULATOR is the program that
runs it, where it is built for another processor.
"""

import os
import subprocess
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import NamedTuple

import pytest

SUPPORT = Path(__file__).parent
PROJECT = SUPPORT.parents[1]
BUILT = Path(os.environ.get("NEBULARK_CTL", PROJECT / "build/release/nebulark-ctl"))
TOOL = "/usr/bin/nebulark-ctl"

# What runs the tool where it is built for another processor. Its own files are all real ones: the tool names the C
# library of that processor, so that qemu need not look for any path in another place.
EMULATOR = os.environ.get("NEBULARK_EMULATOR", "").split()
RUN_TOOL = [*EMULATOR, TOOL]


def unless_emulated(reason: str):
    """Marks a test that would say nothing of the tool under qemu, or nothing true."""
    return pytest.mark.skipif(bool(EMULATOR), reason=f"under qemu {reason}")


os.umask(0o022)  # the machines' directories are for ann too, whoever runs the tests

ANN = 1000  # an ordinary user: her user id and her only group
BECOME = {
    "root": [],
    "ann": ["setpriv", f"--reuid={ANN}", f"--regid={ANN}", "--clear-groups", "--"],
}

# The environment of a run under strace, where a sanitized tool cannot look for leaks.
TRACED = {"ASAN_OPTIONS": "detect_leaks=0"}


class Outcome(NamedTuple):
    status: int  # negative: the signal that ended the run
    out: bytes
    err: bytes


class Machine:
    """A machine with the tool installed, the preferences directory empty, no pkexec, and an ordinary user, ann.

    share   is /usr/share
    prefs   is /usr/share/nebulark/preferences.conf, and prefs_tmp the temporary file beside it
    bin     is what /usr/bin has besides the real one's programs
    home    is /home, and ann, in it, belongs to the ordinary user
    """

    def __init__(self, root: Path, tool: Path):
        self.root = root
        self.share, self.bin, self.home = root / "share", root / "bin", root / "home"
        self.ann = self.home / "ann"
        self.prefs = self.share / "nebulark/preferences.conf"
        self.prefs_tmp = self.share / "nebulark/preferences.conf.tmp"
        for directory in (self.prefs.parent, self.bin, self.ann):
            directory.mkdir(parents=True)
        os.chown(self.ann, ANN, ANN)
        os.link(tool, self.bin / "nebulark-ctl")

    def pkexec(self, text: str, mode: int = 0o755):
        """Installs a pkexec: a program text that begins with #!, or whatever the file is to hold."""
        (self.bin / "pkexec").write_text(text)
        (self.bin / "pkexec").chmod(mode)

    def run(
        self,
        *words: str | bytes,
        user: str = "root",
        env: Mapping[str | bytes, str | bytes] = {},
        stdin: bytes = b"",
        script: str = 'exec "$@"',
        tool: Sequence[str | bytes] = RUN_TOOL,
    ) -> Outcome:
        """Runs the tool with these words, as "root" or as "ann", and gives its status and what it wrote.

        env     is the tool's whole environment
        script  is run by sh, as root and inside the namespace, and is to run "$@", which is the tool. Here stands what
                is special about a run, for example
                    umask 077; exec "$@"
                    exec "$@" 2>&1                                          both streams in one pipe, err stays empty
                    exec "$@" >&-                                           standard output closed
                    mount -o remount,bind,ro /usr/share; exec "$@"          the share directory mounted read-only
                    exec strace -f -o /home/trace "$@"
                    "$@"; status=$?; cp -a /tmp/. /home; exit $status       looked at while the namespace still stands
        tool    is what starts the tool inside, where that is not its plain path; behind EMULATOR, if that is the tool

        The status of sandbox, should it fail, is 125, and of the tool, should it not start, 126 or 127; the tool itself
        has none of these.
        """
        variables = [b"=".join(map(os.fsencode, pair)) for pair in env.items()]
        command = [*BECOME[user], "env", "-i", *variables, *tool, *words]
        done = sandbox(self.root, "sh", "-c", script, "sh", *command, input=stdin)
        return Outcome(done.returncode, done.stdout, done.stderr)


def sandbox(root: Path, *command: str | bytes, **how) -> subprocess.CompletedProcess:
    """Runs a command in a sandbox with these three directories, and in a session of its own, so that a signal to its
    process group does not reach the tests, nor the signals that they ignore it: those of a test run under nohup or in
    the background. The time limit only keeps a hang from lasting."""
    return subprocess.run(
        ["/usr/bin/env", "--default-signal", SUPPORT / "sandbox", root, *command],
        env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"},
        cwd="/",
        capture_output=True,
        start_new_session=True,
        timeout=60,
        **how,
    )


def why_no_sandbox() -> str:
    """Why there can be none here; "" where there can."""
    done = subprocess.run([SUPPORT / "probe"], stderr=subprocess.PIPE, timeout=60)
    return "" if done.returncode == 0 else os.fsdecode(done.stderr).strip() or f"status {done.returncode}"
