"""What the other tests rest on: that a run sees its own machine, and that the real one never sees the run."""

import pytest

from conftest import HERE, sandbox


def outcome(done) -> tuple[int, bytes, bytes]:
    return done.returncode, done.stdout, done.stderr


def test_directories_of_the_machine_take_the_place_of_the_real_ones(machine):
    (machine.bin / "nebulark-ctl").unlink()
    machine.pkexec("#!/bin/sh\necho own pkexec\n")
    done = sandbox(machine.root, "sh", "-c", "find /usr/share /home; pkexec; test -x /usr/bin/env; exit $(($? + 7))")
    assert outcome(done) == (7, b"/usr/share\n/usr/share/nebulark\n/home\n/home/ann\nown pkexec\n", b"")


def test_pkexec_of_the_real_machine_is_hidden(machine):
    # One sandbox in another, which is the real machine to it; the shell between them stands where its caller does.
    machine.pkexec("#!/bin/sh\n")
    for name in ("share", "bin", "home"):
        (machine.ann / name).mkdir()
    inner = [HERE / "sandbox", "/home/ann", "sh", "-c", "ls /usr/bin/pkexec /usr/bin/nebulark-ctl"]
    done = sandbox(machine.root, "sh", "-c", '"$@"; exit $?', "sh", *inner)
    said = b"ls: cannot access '/usr/bin/pkexec': No such file or directory\n"
    assert outcome(done) == (2, b"/usr/bin/nebulark-ctl\n", said)


@pytest.mark.parametrize("missing", ["share", "bin", "home"])
def test_nothing_runs_where_a_directory_is_missing(machine, missing):
    (machine.root / missing).rename(machine.root / "elsewhere")
    done = sandbox(machine.root, "echo", "ran")
    assert (done.returncode != 0, done.stdout, done.stderr != b"") == (True, b"", True)


@pytest.mark.parametrize("word", ["--private", "--unchanged"])
def test_nothing_is_mounted_outside_a_namespace(machine, word):
    # Started as it starts itself, but in its parent's namespace; another sandbox keeps a mistake from doing harm.
    script = f"""
        cat /proc/self/mountinfo >/home/before
        {HERE}/sandbox {word} /home/ann echo ran
        status=$?
        cmp /home/before /proc/self/mountinfo
        exit $status
    """
    for name in ("share", "bin", "home"):
        (machine.ann / name).mkdir()
    said = f"sandbox: {word} is for this script's own use\n".encode()
    assert outcome(sandbox(machine.root, "sh", "-c", script)) == (125, b"", said)


def test_no_mount_shows_outside(machine):
    # Outside is another sandbox, where nothing but this test mounts anything; the shell stands where the caller does.
    # Its mounts are shared, as on most machines; in a plain chroot, whose root directory is no mount point, they stay.
    for name in ("share", "bin", "home"):
        (machine.ann / name).mkdir()
    script = f"""
        mount --make-rshared / 2>/dev/null || :
        cat /proc/self/mountinfo >/home/before
        {HERE}/sandbox /home/ann cat /proc/$$/mountinfo >/home/meanwhile
        cmp /home/before /home/meanwhile
        cmp /home/before /proc/self/mountinfo
    """
    assert outcome(sandbox(machine.root, "sh", "-euc", script)) == (0, b"", b"")


# A root directory that is no mount point, on a mount that is private or shared, as below a plain chroot. A sandbox
# around it stands between this and the real machine.
CHROOT = """
    mount --make-{propagation} /home
    mkdir -p /home/root
    cd /home/root
    mkdir -p usr proc dev home machine/share machine/bin machine/home
    for directory in usr proc dev; do mount --rbind /$directory $directory; done
    ln -s usr/bin usr/sbin usr/lib usr/lib64 .
    cp {sandbox} .
    cp /proc/self/mountinfo before
    chroot . /sandbox /machine echo ran
    status=$?
    cmp before /proc/self/mountinfo
    exit $status
"""


@pytest.mark.parametrize(
    "propagation, expected",
    [
        ("private", (0, b"ran\n", b"")),
        ("shared", (125, b"", b"sandbox: mounts made in this root directory would show outside\n")),
    ],
)
def test_chroot_is_used_only_if_its_mounts_stay_inside(machine, propagation, expected):
    script = CHROOT.format(propagation=propagation, sandbox=HERE / "sandbox")
    assert outcome(sandbox(machine.root, "sh", "-c", script)) == expected
