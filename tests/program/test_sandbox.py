"""The sandbox of the other tests: a run sees its own machine, and the real machine never sees the run."""

import os
import subprocess

import pytest
from machine import HANGS, SUPPORT, Outcome, sandbox


def private(script: str, *words) -> Outcome:
    """Runs a shell script in a mount namespace, where the sandboxes that it starts find the real machine."""
    command = [SUPPORT / "private", "sh", "-euc", script, "sh", *words]
    done = subprocess.run(command, cwd="/", capture_output=True, timeout=HANGS)
    return Outcome(done.returncode, done.stdout, done.stderr)


def test_directories_of_the_machine_replace_the_real_ones(machine):
    (machine.bin / "nebulark-ctl").unlink()
    machine.pkexec("#!/bin/sh\necho own pkexec\n")
    done = sandbox(machine.root, "sh", "-c", "find /usr/share /home; pkexec; test -x /usr/bin/env; exit $(($? + 7))")
    found = b"/usr/share\n/usr/share/nebulark\n/home\n/home/ann\nown pkexec\n"
    assert (done.returncode, done.stdout, done.stderr) == (7, found, b"")


@pytest.mark.skipif(not os.path.lexists("/usr/bin/pkexec"), reason="there is no pkexec")
def test_pkexec_of_the_real_machine_is_hidden(machine):
    done = sandbox(machine.root, "ls", "/usr/bin/pkexec", "/usr/bin/nebulark-ctl")
    said = b"ls: cannot access '/usr/bin/pkexec': No such file or directory\n"
    assert (done.returncode, done.stdout, done.stderr) == (2, b"/usr/bin/nebulark-ctl\n", said)


@pytest.mark.parametrize("missing", ["share", "bin", "home"])
def test_nothing_runs_if_a_directory_is_missing(machine, missing):
    (machine.root / missing).rename(machine.root / "elsewhere")
    done = sandbox(machine.root, "echo", "ran")
    assert (done.returncode != 0, done.stdout, done.stderr != b"") == (True, b"", True)


def test_no_mount_is_visible_outside(machine):
    # Mounts outside are shared, as on most machines.
    script = """
        mount --make-rshared /
        cat /proc/self/mountinfo >"$2/before"
        "$1" "$2" cat /proc/$$/mountinfo >"$2/meanwhile"
        cmp "$2/before" "$2/meanwhile"
        cmp "$2/before" /proc/self/mountinfo
    """
    assert private(script, SUPPORT / "sandbox", machine.root) == (0, b"", b"")


def test_nothing_runs_if_the_root_directory_is_not_a_mount_point(machine):
    script = """
        cd "$2"
        mkdir root root/usr root/proc
        for directory in usr proc; do mount --rbind /$directory root/$directory; done
        ln -s usr/bin usr/lib usr/lib64 root
        cp "$1" root/private
        chroot root /private echo ran
    """
    reason = b"the root directory is not a mount point, as in a plain chroot; bind it onto itself before entering"
    assert private(script, SUPPORT / "private", machine.root) == (125, b"", b"private: " + reason + b"\n")
