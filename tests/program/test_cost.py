"""What clearing costs for each file: system calls, and the instructions of the release build.

A cost is the difference between a cache and one with twice the files, so that starting and reporting do not count. It
does not depend on how fast or busy the machine is.
"""

import platform
import re
from collections import Counter

import pytest
from cache import CLEAR, FITS, HOME, PHOTO, Cache, report, report_all
from machine import BUILT, TOOL, unless_emulated
from png import chunk
from tracing import COUNTS_LINES, GLIBC, SANITIZED, strace

FILES = 128  # in one directory; twice as many are still listed in one go
PROBED = 1 / 64  # of the files are opened twice, to see whether the cache is in memory

KEPT = {"newfstatat": 1, "openat": 1 + PROBED, "pread64": 1, "close": 1 + PROBED, "preadv2": PROBED}
DELETED = KEPT | {"unlink": 1}
DELETED_UNREAD = {"newfstatat": 1, "unlink": 1}
INSTRUCTIONS = 1100  # 830 with GCC 12 for x86-64; another compiler may need more

pytestmark = pytest.mark.skipif(
    SANITIZED or COUNTS_LINES or not GLIBC, reason="this build makes other calls for each file"
)


def fill(machine, content: bytes, count: int):
    Cache(machine).put(content, *(f"normal/{number:032x}.png" for number in range(count)))


def left(count):
    return report(0, count)


def padded(content: bytes, size: int) -> bytes:
    return content + bytes(size - len(content))


def after_a_profile(content: bytes, size: int) -> bytes:
    """The thumbnail with a colour profile of that size before the tags."""
    return content[:33] + chunk(b"iCCP", bytes(size)) + content[33:]


# Failure markers are shorter than 256 bytes, and many thumbnails shorter than the 4 KiB that are read at once.
COSTS = {
    **{f"kept, {size}": (padded(PHOTO, size), [], left, KEPT) for size in (256, 4095, 4096, 4097, 65536)},
    **{f"deleted, {size}": (padded(FITS, size), [], report, DELETED) for size in (256, 4095, 4096, 4097, 65536)},
    **{f"broken off at {end}": (PHOTO[:end], [], left, KEPT) for end in (PHOTO.index(b"IDAT") - 4, 20, 0)},
    "tags in the first 4 KiB": (padded(after_a_profile(FITS, 3700), 65536), [], report, DELETED),
    "tags after that": (padded(after_a_profile(PHOTO, 5000), 65536), [], left, KEPT | {"pread64": 2}),
    "tags after 1 MiB": (after_a_profile(PHOTO, 1 << 20), [], left, KEPT | {"pread64": 2}),
    "all": (padded(FITS, 65536), ["--all"], report_all, DELETED_UNREAD),
}


@pytest.mark.parametrize("content, words, expect, cost", COSTS.values(), ids=COSTS)
def test_file_costs_these_calls(machine, content, words, expect, cost):
    counts = []
    with strace(machine) as inside:
        for count in (FILES, 2 * FILES):
            fill(machine, content, count)
            outcome, calls = inside.run([*CLEAR, *words], env=HOME)
            assert outcome == expect(count)
            counts.append(Counter(each.call.name for each in calls))
    few, many = counts
    assert {name: (many[name] - few[name]) / FILES for name in many if many[name] != few[name]} == cost


@pytest.fixture
def release_build():
    settings = BUILT.parent / "CMakeCache.txt"
    if not settings.exists() or "CMAKE_BUILD_TYPE:STRING=Release\n" not in settings.read_text():
        pytest.skip("not a release build")
    if platform.machine() != "x86_64":
        pytest.skip("instructions are counted for x86-64")


@unless_emulated("the instructions of qemu are counted")
def test_keeping_a_thumbnail_takes_few_instructions(release_build, machine):
    callgrind = ["/usr/bin/valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--log-file=/home/log"]
    counts = []
    for count in (FILES, 2 * FILES):
        fill(machine, padded(PHOTO, 8192), count)
        assert machine.run(*CLEAR, env=HOME, tool=[*callgrind, TOOL]) == left(count)
        counts.append(int(re.search(r"Collected : (\d+)", (machine.home / "log").read_text())[1]))
    assert (counts[1] - counts[0]) / FILES <= INSTRUCTIONS
