"""--clear-thumb-cache on files whose size, time or inode number needs more than 32 bits, and on more than 65,535."""

import pytest
from cache import CACHE, FITS, PHOTO, report, report_all

GIB = 1 << 30
THUMBNAILS = ["harbour.png", "m31.png"]
MODES = pytest.mark.parametrize(
    "words, result, survivors",
    [([], report(1, 1), THUMBNAILS[:1]), (["--all"], report_all(2), [])],
    ids=["default", "all"],
)

# A file system that takes every size and time, whatever there is outside.
TMPFS = f"""
    mount -t tmpfs tmpfs /mnt
    cp -a /home/ann /mnt
    mount --move /mnt /home
    cd {CACHE}/normal
"""

# An overlay of two file systems marks the inode numbers of the lower one in their highest bits.
OVERLAY = f"""
    mount -t tmpfs tmpfs /mnt
    mkdir /mnt/lower /mnt/upper /mnt/work
    mount -t tmpfs tmpfs /mnt/lower
    cp -a /home/ann /mnt/lower
    mount -t overlay -o lowerdir=/mnt/lower,upperdir=/mnt/upper,workdir=/mnt/work,xino=on overlay /home
    cd {CACHE}/normal
"""


class Clearing:
    """A run on a cache with one thumbnail of each kind, after a script has changed something about them.

    outcome    is what comes of the run
    numbers    is what stat told of the thumbnails before it, by this format
    survivors  is what the run left
    """

    def __init__(self, machine, cache, words, prepare: str, format: str):
        cache.put(PHOTO, "normal/harbour.png")
        cache.put(FITS, "normal/m31.png")
        script = f"""
            {prepare}
            stat -c {format} * >/usr/share/numbers
            "$@"
            status=$?
            ls >/usr/share/survivors
            exit $status
        """
        self.outcome = machine.run("--clear-thumb-cache", *words, user="ann", env={"HOME": "/home/ann"}, script=script)
        self.numbers = [int(word) for word in (machine.share / "numbers").read_text().split()]
        self.survivors = (machine.share / "survivors").read_text().split()


@MODES
@pytest.mark.parametrize("size", [2 * GIB, 3 * GIB, 4 * GIB, 4 * GIB + 1])
def test_files_of_gigabytes_are_cleared_as_small_ones(machine, cache, size, words, result, survivors):
    run = Clearing(machine, cache, words, f"{TMPFS} truncate -s {size} *", "%s")
    assert run.numbers == [size, size]
    assert (run.outcome, run.survivors) == (result, survivors)


# The last second of 32 bits is in January of 2038, and in February of 2106 if it has no sign. The first one is in 1901.
@MODES
@pytest.mark.parametrize(
    "seconds",
    [1 << 31, 2208988800, 1 << 32, 0, -1, -(1 << 31) - 1],
    ids=["2038", "2040", "2106", "1970", "1969", "1901"],
)
def test_files_of_any_year_are_cleared_as_others(machine, cache, seconds, words, result, survivors):
    run = Clearing(machine, cache, words, f"{TMPFS} touch -d @{seconds} . *", "%Y")
    assert run.numbers == [seconds, seconds]
    assert (run.outcome, run.survivors) == (result, survivors)


@MODES
def test_files_with_a_long_inode_number_are_cleared_as_others(machine, cache, words, result, survivors):
    run = Clearing(machine, cache, words, OVERLAY, "%i")
    assert [number >= 1 << 32 for number in run.numbers] == [True, True]
    assert (run.outcome, run.survivors) == (result, survivors)


# Many names of two files, which are soon made: each of them is a thumbnail to the tool.
MANY = 65536
NAME = f"""
import os
for number in range({MANY}):
    os.link("m31.png", f"m{{number}}")
    os.link("harbour.png", f"h{{number}}")
"""


@pytest.mark.parametrize("all", [False, True], ids=["default", "all"])
def test_more_files_than_16_bits_can_count_are_counted(machine, cache, all):
    cache.put(PHOTO, "normal/harbour.png")
    cache.put(FITS, "normal/m31.png")
    script = f"""
        {TMPFS}
        mount -o remount,nr_inodes=0 /home
        /usr/bin/python3 -c '{NAME}'
        "$@"
        status=$?
        ls | wc -l >/usr/share/survivors
        exit $status
    """
    words = ["--all"] * all
    run = machine.run("--clear-thumb-cache", *words, user="ann", env={"HOME": "/home/ann"}, script=script)
    left = 0 if all else MANY + 1
    assert run == (report_all(2 * MANY + 2) if all else report(MANY + 1, left))
    assert int((machine.share / "survivors").read_text()) == left
