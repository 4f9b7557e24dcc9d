"""What clearing costs for each file, counted: system calls, and the instructions of the release build.

A cost is the difference between a cache and one with twice the files, so that starting and reporting do not count. It
does not depend on how fast or busy the machine is.
"""

import platform
import re
from collections import Counter

import pytest
from cache import FITS, PHOTO, Cache, report, report_all
from machine import BUILT, TOOL, unless_emulated
from png import chunk
from tracing import is_sanitized, strace, uses_glibc

HOME = {"HOME": "/home/ann"}
FILES = 128  # in one directory; twice as many are still listed in one go
PROBED = 1 / 64  # of the files are looked at twice, to see whether the cache is in memory

# A failure marker is shorter than 256 bytes, and many a thumbnail shorter than the 4 KiB that are read at once.
SIZES = [256, 2048, 4095, 4096, 4097, 65536]

PROBE = {"openat": PROBED, "preadv2": PROBED, "close": PROBED}
KEPT = Counter({"newfstatat": 1, "openat": 1, "pread64": 1, "close": 1}) + Counter(PROBE)
DELETED = KEPT | Counter({"unlink": 1})
DELETED_UNREAD = Counter({"newfstatat": 1, "unlink": 1})

# Counted: 830, with GCC 12 for x86-64. Another compiler may need somewhat more.
INSTRUCTIONS = 1100


@pytest.fixture(autouse=True)
def unsanitized(installed_tool):
    if is_sanitized(installed_tool):
        pytest.skip("the memory that the address sanitizer takes for each file is calls too")
    if not uses_glibc(installed_tool):
        pytest.skip("another C library lists a directory in smaller pieces, and may have no preadv2")


def fill(machine, content: bytes, count: int):
    Cache(machine).put(content, *(f"normal/{number:032x}.png" for number in range(count)))


def calls_for_a_file(machine, content: bytes, *words: str, expect) -> dict[str, int]:
    """How many calls of which name one file more of this content takes; `expect` gives the outcome for so many."""
    counts = []
    with strace(machine) as inside:
        for count in (FILES, 2 * FILES):
            fill(machine, content, count)
            outcome, calls = inside.run(["--clear-thumb-cache", *words], env=HOME)
            assert outcome == expect(count)
            counts.append(Counter(each.call.name for each in calls))
    few, many = counts
    return {name: (many[name] - few[name]) / FILES for name in many if many[name] != few[name]}


def left(count):
    return report(0, count)


def padded(content: bytes, size: int) -> bytes:
    return content + bytes(size - len(content))


def after_a_profile(content: bytes, size: int) -> bytes:
    """The thumbnail with a colour profile of that size before the tags."""
    return content[:33] + chunk(b"iCCP", bytes(size)) + content[33:]


@pytest.mark.parametrize("size", SIZES)
def test_keeping_a_thumbnail_takes_four_system_calls(machine, size):
    assert calls_for_a_file(machine, padded(PHOTO, size), expect=left) == KEPT


@pytest.mark.parametrize("size", SIZES)
def test_deleting_a_thumbnail_takes_five_system_calls(machine, size):
    assert calls_for_a_file(machine, padded(FITS, size), expect=report) == DELETED


@pytest.mark.parametrize("content", [FITS, padded(PHOTO, 65536), b""], ids=["a Nebulark", "another", "an empty"])
def test_deleting_any_file_takes_two_system_calls_with_all(machine, content):
    assert calls_for_a_file(machine, content, "--all", expect=report_all) == DELETED_UNREAD


@pytest.mark.parametrize("size", [4095, 65536])
@pytest.mark.parametrize("profile", [2048, 3700])
def test_tags_anywhere_in_the_first_4_kib_take_no_further_call(machine, profile, size):
    content = padded(after_a_profile(FITS, profile), size)
    assert content[:4096].count(b"IDAT") == 1
    assert calls_for_a_file(machine, content, expect=report) == DELETED


@pytest.mark.parametrize("size", [5000, 1 << 20])
def test_passing_over_what_lies_before_the_tags_takes_one_more_read(machine, size):
    content = padded(after_a_profile(PHOTO, size), size + 65536)
    assert calls_for_a_file(machine, content, expect=left) == KEPT + Counter({"pread64": 1})


@pytest.mark.parametrize("end", [PHOTO.index(b"IDAT") - 4, PHOTO.index(b"Thumb::URI"), 20, 8, 0])
def test_a_file_that_breaks_off_is_read_once(machine, end):
    assert calls_for_a_file(machine, PHOTO[:end], expect=left) == KEPT


@pytest.fixture
def release_build():
    """Skips where instructions are others than those that were counted."""
    settings = BUILT.parent / "CMakeCache.txt"
    if not settings.exists() or "CMAKE_BUILD_TYPE:STRING=Release\n" not in settings.read_text():
        pytest.skip("this is no release build")
    if platform.machine() != "x86_64":
        pytest.skip("instructions are counted for x86-64")


@unless_emulated("the instructions of qemu are counted")
def test_keeping_a_thumbnail_takes_no_more_instructions_than_it_did(release_build, machine):
    callgrind = ["/usr/bin/valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--log-file=/home/log"]
    counts = []
    for count in (FILES, 2 * FILES):
        fill(machine, padded(PHOTO, 8192), count)
        assert machine.run("--clear-thumb-cache", env=HOME, tool=[*callgrind, TOOL]) == left(count)
        counts.append(int(re.search(r"Collected : (\d+)", (machine.home / "log").read_text())[1]))
    assert (counts[1] - counts[0]) / FILES <= INSTRUCTIONS
