"""--clear-thumb-cache on sizes, times and inode numbers of more than 32 bits, and on more than 65,535 files."""

import pytest
from cache import CACHE, CLEAR, FITS, HOME, ON_TMPFS, PHOTO, clearing, report, report_all
from machine import around

# An overlay of two file systems marks the inode numbers of the lower one in their highest bits.
OVERLAY = f"""
    mount -t tmpfs tmpfs /mnt
    mkdir /mnt/lower /mnt/upper /mnt/work
    mount -t tmpfs tmpfs /mnt/lower
    cp -a /home/ann /mnt/lower
    mount -t overlay -o lowerdir=/mnt/lower,upperdir=/mnt/upper,workdir=/mnt/work,xino=on overlay /home
    cd {CACHE}/normal
"""


@pytest.fixture
def clear(machine, cache):
    def clear(*words: str, prepare: str):
        """Clears a cache with a thumbnail of each kind. Returns the outcome and what is left."""
        cache.put(PHOTO, "normal/harbour.png")
        cache.put(FITS, "normal/m31.png")
        script = around(prepare, "ls >/usr/share/survivors")
        outcome = machine.run(*CLEAR, *words, user="ann", env=HOME, script=script)
        return outcome, (machine.share / "survivors").read_text().split()

    return clear


# Changes of the thumbnails, and what stat then prints. 32-bit times go from 1901 to 2038, or without a sign to 2106.
CHANGES = {
    "2 GiB": (f"{ON_TMPFS}; truncate -s 2G *", "%s", {1 << 31}),
    "4 GiB and a byte": (f"{ON_TMPFS}; truncate -s {(1 << 32) + 1} *", "%s", {(1 << 32) + 1}),
    "2106": (f"{ON_TMPFS}; touch -d @{1 << 32} . *", "%Y", {1 << 32}),
    "2038": (f"{ON_TMPFS}; touch -d @{1 << 31} . *", "%Y", {1 << 31}),
    "1970": (f"{ON_TMPFS}; touch -d @0 . *", "%Y", {0}),
    "1901": (f"{ON_TMPFS}; touch -d @{-(1 << 31) - 1} . *", "%Y", {-(1 << 31) - 1}),
    "inode numbers": (OVERLAY, "%i", range(1 << 32, 1 << 64)),
}


@clearing((report(1, 1), ["harbour.png"]), (report_all(2), []))
@pytest.mark.parametrize("change, format, expected", CHANGES.values(), ids=CHANGES)
def test_large_numbers_change_nothing(machine, clear, change, format, expected, words, result):
    assert clear(*words, prepare=f"{change}\nstat -c {format} * >/usr/share/numbers") == result
    numbers = [int(word) for word in (machine.share / "numbers").read_text().split()]
    assert [number in expected for number in numbers] == [True, True]


MANY = 65536
LINK = f"for n in range({MANY}): os.link('m31.png', f'm{{n}}'); os.link('harbour.png', f'h{{n}}')"


@clearing(report(MANY + 1, MANY + 1), report_all(2 * MANY + 2))
def test_more_than_65535_files_are_counted(clear, words, result):
    prepare = f'{ON_TMPFS}; mount -o remount,nr_inodes=0 /home; /usr/bin/python3 -c "import os\n{LINK}"'
    outcome, there = clear(*words, prepare=prepare)
    assert (outcome, len(there)) == (result, 0 if words else MANY + 1)
