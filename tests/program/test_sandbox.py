"""What the other tests rest on: that a run sees its own machine, and that the real one never sees the run."""

import shutil

import pytest
from machine import SUPPORT, sandbox


def outcome(done) -> tuple[int, bytes, bytes]:
    return done.returncode, done.stdout, done.stderr


@pytest.fixture
def inner(machine) -> str:
    """A sandbox to be started in another one, which is the real machine to it. Ann's home is its machine."""
    for name in ("private", "sandbox"):
        shutil.copy2(SUPPORT / name, machine.share)
    for name in ("share", "bin", "home"):
        (machine.ann / name).mkdir()
    return "/usr/share/sandbox /home/ann"


def test_directories_of_the_machine_take_the_place_of_the_real_ones(machine):
    (machine.bin / "nebulark-ctl").unlink()
    machine.pkexec("#!/bin/sh\necho own pkexec\n")
    done = sandbox(machine.root, "sh", "-c", "find /usr/share /home; pkexec; test -x /usr/bin/env; exit $(($? + 7))")
    assert outcome(done) == (7, b"/usr/share\n/usr/share/nebulark\n/home\n/home/ann\nown pkexec\n", b"")


def test_pkexec_of_the_real_machine_is_hidden(machine, inner):
    machine.pkexec("#!/bin/sh\n")
    done = sandbox(machine.root, "sh", "-c", f"{inner} ls /usr/bin/pkexec /usr/bin/nebulark-ctl")
    said = b"ls: cannot access '/usr/bin/pkexec': No such file or directory\n"
    assert outcome(done) == (2, b"/usr/bin/nebulark-ctl\n", said)


@pytest.mark.parametrize("missing", ["share", "bin", "home"])
def test_nothing_runs_where_a_directory_is_missing(machine, missing):
    (machine.root / missing).rename(machine.root / "elsewhere")
    done = sandbox(machine.root, "echo", "ran")
    assert (done.returncode != 0, done.stdout, done.stderr != b"") == (True, b"", True)


def test_no_mount_shows_outside(machine, inner):
    # Mounts outside are shared, as on most machines.
    script = f"""
        mount --make-rshared /
        cat /proc/self/mountinfo >/home/before
        {inner} cat /proc/$$/mountinfo >/home/meanwhile
        cmp /home/before /home/meanwhile
        cmp /home/before /proc/self/mountinfo
    """
    assert outcome(sandbox(machine.root, "sh", "-euc", script)) == (0, b"", b"")


def test_nothing_runs_where_the_root_directory_is_not_a_mount_point(machine, inner):
    script = """
        mkdir -p /home/root/usr /home/root/proc
        cd /home/root
        for directory in usr proc; do mount --rbind /$directory $directory; done
        ln -s usr/bin usr/lib usr/lib64 .
        chroot . /usr/share/private echo ran
    """
    reason = b"the root directory is not a mount point, as in a plain chroot; bind it onto itself before entering"
    assert outcome(sandbox(machine.root, "sh", "-c", script)) == (125, b"", b"private: " + reason + b"\n")
