"""Reading ahead: what the kernel is asked for, and when. strace answers for the kernel, so it does not matter what is
in memory."""

import os
from collections import Counter

import pytest
from cache import CACHE, CLEAR, FITS, HOME, PHOTO, report
from machine import ANN
from tracing import GLIBC, SANITIZED, strace

FILES = 1000
BATCH = 64
COLD = "error=EAGAIN"  # the answer for a head that is not in memory
HINTS = {"preadv2", "fadvise64"}

pytestmark = pytest.mark.skipif(SANITIZED or not GLIBC, reason="this build makes other calls, or has no preadv2")


def clear(machine, answer: str, limit=()):
    """Clears with this answer from the kernel. Returns the outcome, and the name and subject of each call."""
    with strace(machine) as inside:
        inside.inside += limit
        outcome, trace = inside.run(CLEAR, "ann", ["-e", f"inject=preadv2:{answer}"], HOME)
    return outcome, [each.call[:2] for each in trace if each.call.subject.startswith("/home/ann")]


@pytest.fixture
def calls(machine, cache):
    def calls(answer: str) -> list[tuple[str, str]]:
        """The calls to clear a cache in which every tenth file is Nebulark's."""
        names = [f"normal/{number}" for number in range(FILES)]
        cache.put(PHOTO, *names)
        cache.put(FITS, *names[::10])
        outcome, calls = clear(machine, answer)
        assert outcome == report(FILES // 10, FILES * 9 // 10)
        assert len(os.listdir(cache.at("normal"))) == FILES * 9 // 10
        return calls

    return calls


def test_every_head_of_a_cold_cache_but_the_first_is_asked_for_once(calls):
    told = calls(COLD)
    asked = Counter(subject for name, subject in told if name == "fadvise64")
    judged = [subject for name, subject in told if name == "pread64"]
    assert asked == dict.fromkeys(judged[1:], 1)


def test_heads_are_asked_for_64_to_128_files_before_they_are_judged(calls):
    asked = judged = 0
    for name, _ in calls(COLD):
        if name == "newfstatat" and judged > 0:
            assert min(asked, FILES - 1) - judged <= 2 * BATCH
        if name == "fadvise64":
            asked += 1
        if name == "pread64":
            judged += 1
            assert asked >= min(judged + BATCH, FILES - 1), judged
            assert asked - judged < 2 * BATCH


@pytest.mark.parametrize("answer", ["retval=1", "retval=0", "error=EOPNOTSUPP", "error=EIO"])
def test_cache_that_is_not_cold_has_one_probe_for_64_files(calls, answer):
    counts = Counter(name for name, _ in calls(answer))
    probes = -(-FILES // BATCH)
    assert (counts["preadv2"], counts["fadvise64"]) == (probes, 0)
    assert counts["openat"] == 5 + FILES + probes  # the size directories are listed once


def test_reading_ahead_begins_at_two_cold_heads_and_ends_at_a_warm_one(calls):
    signs = {"preadv2": "?", "fadvise64": "!", "pread64": "."}
    batch = "?" + "." * BATCH
    begun = "??" + "!" * 2 * BATCH + "." * BATCH
    told = "".join(signs.get(name, "") for name, _ in calls(f"{COLD}:when=2..3"))
    assert told[: 6 * BATCH + 5] == batch + begun + 2 * batch


def test_only_regular_files_are_read_ahead(machine, cache):
    top = cache.directory("normal")
    for number in range(2 * BATCH):
        os.mkfifo(top / f"pipe{number}")
        (top / f"link{number}").symlink_to("/home/ann/m31.png")
        cache.directory(f"normal/directory{number}")
    cache.put(FITS, "normal/m31.png", "../../m31.png")
    for path in top.iterdir():
        os.lchown(path, ANN, ANN)
    outcome, told = clear(machine, COLD)
    assert outcome == report(1)
    opened = {subject for name, subject in told if name == "openat"}
    assert not [path for path in opened if "pipe" in path or "link" in path or path == "/home/ann/m31.png"]
    assert {subject for name, subject in told if name in HINTS} == {f"{CACHE}/normal/m31.png"}


def test_reading_ahead_keeps_nothing_open(machine, cache):
    # Enough for the streams, the directory and one file.
    names = [f"normal/{number}" for number in range(3 * BATCH)]
    cache.put(FITS, *names)
    assert clear(machine, COLD, limit=["prlimit", "--nofile=5"])[0] == report(len(names))
