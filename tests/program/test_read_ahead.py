"""Having the kernel read ahead where the cache is not in memory: what is asked for and when, and that nothing else
changes. strace answers for the kernel, so that it does not matter what is in memory.
"""

import os
from collections import Counter

import pytest
from cache import CACHE, FITS, PHOTO, report, report_all
from machine import ANN
from tracing import is_sanitized, strace, uses_glibc

HOME = {"HOME": "/home/ann"}
FILES = 1000
BATCH = 64
CLEAR = ["--clear-thumb-cache"]


def answering(result: str) -> list[str]:
    """strace's options for a kernel that always answers so when it is asked whether a head is in memory."""
    return ["-e", f"inject=preadv2:{result}"]


COLD = answering("error=EAGAIN")
HINTS = {"preadv2", "fadvise64"}


@pytest.fixture(autouse=True)
def unsanitized(installed_tool):
    if is_sanitized(installed_tool):
        pytest.skip("the address sanitizer's own calls come between")
    if not uses_glibc(installed_tool):
        pytest.skip("another C library may have no preadv2")


@pytest.fixture
def run(machine, cache):
    """Runs the clearing of a cache with FILES thumbnails, every tenth of them Nebulark's. Gives the calls' names and
    what they are about, after it has looked at what was deleted and said."""
    with strace(machine) as inside:

        def run(*options: str, words=CLEAR, expected=report(FILES // 10, FILES * 9 // 10)):
            names = [f"normal/{number}" for number in range(FILES)]
            cache.put(PHOTO, *names)
            cache.put(FITS, *names[::10])
            outcome, calls = inside.run(words, "ann", options, HOME)
            assert outcome == expected
            assert len(os.listdir(cache.at("normal"))) == (0 if "--all" in words else FILES * 9 // 10)
            return [traced.call[:2] for traced in calls if traced.call.subject.startswith(CACHE)]

        yield run


def count(calls, name: str) -> int:
    return sum(call[0] == name for call in calls)


def test_a_cold_cache_has_every_head_but_the_first_asked_for_once(run):
    calls = run(*COLD)
    asked = Counter(subject for name, subject in calls if name == "fadvise64")
    judged = [subject for name, subject in calls if name == "pread64"]
    assert asked == dict.fromkeys(judged[1:], 1)


def test_heads_are_asked_for_64_to_128_files_before_they_are_judged(run):
    asked = judged = 0
    for name, _ in run(*COLD):
        if name == "newfstatat" and judged > 0:
            assert min(asked, FILES - 1) - judged <= 2 * BATCH
        if name == "fadvise64":
            asked += 1
        if name == "pread64":
            judged += 1
            assert asked >= min(judged + BATCH, FILES - 1), judged
            assert asked - judged < 2 * BATCH


@pytest.mark.parametrize(
    "answer",
    ["retval=1", "retval=0", "error=EOPNOTSUPP", "error=ENOSYS", "error=EINVAL", "error=EIO"],
)
def test_where_the_kernel_does_not_say_cold_64_files_share_one_probe(run, answer):
    calls = run(*answering(answer))
    assert count(calls, "preadv2") == -(-FILES // BATCH)
    assert count(calls, "fadvise64") == 0
    assert count(calls, "openat") == 5 + FILES + count(calls, "preadv2")  # the size directories are listed once


def test_reading_ahead_begins_where_two_heads_are_cold_and_ends_where_one_is_not(run):
    calls = run("-e", "inject=preadv2:error=EAGAIN:when=2..3")
    signs = {"preadv2": "?", "fadvise64": "!", "pread64": "."}
    batch = "?" + "." * BATCH
    begun = "??" + "!" * 2 * BATCH + "." * BATCH
    assert "".join(signs.get(name, "") for name, _ in calls)[: 6 * BATCH + 5] == batch + begun + 2 * batch


def test_only_regular_files_are_opened_for_it(machine, cache):
    top = cache.directory("normal")
    for number in range(2 * BATCH):
        os.mkfifo(top / f"pipe{number}")
        (top / f"link{number}").symlink_to("/home/ann/m31.png")
        cache.directory(f"normal/directory{number}")
    cache.put(FITS, "normal/m31.png", "../../m31.png")
    for path in top.iterdir():
        os.lchown(path, ANN, ANN)
    with strace(machine) as inside:
        outcome, calls = inside.run(CLEAR, "ann", COLD, HOME)
    assert outcome == report(1)
    opened = {each.call.subject for each in calls if each.call.name == "openat"}
    assert not [path for path in opened if "pipe" in path or "link" in path or path == "/home/ann/m31.png"]
    assert {each.call.subject for each in calls if each.call.name in HINTS} == {f"{CACHE}/normal/m31.png"}


def test_nothing_stays_open_for_it_while_a_file_is_judged(machine, cache):
    # The streams, the directory, and one more for the file.
    names = [f"normal/{number}" for number in range(3 * BATCH)]
    cache.put(FITS, *names)
    with strace(machine) as inside:
        inside.inside = [*inside.inside, "prlimit", "--nofile=5"]
        assert inside.run(CLEAR, "ann", COLD, HOME)[0] == report(len(names))


def test_all_files_go_without_a_look_ahead(run):
    calls = run(*COLD, words=[*CLEAR, "--all"], expected=report_all(FILES))
    assert {name for name, _ in calls} == {"openat", "newfstatat", "unlink", "getdents64", "fcntl", "close"}
