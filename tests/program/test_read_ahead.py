"""Reading ahead: what the kernel is asked for, and when. strace answers for the kernel, so it does not matter what is
in memory."""

import os
from collections import Counter

import pytest
from cache import CACHE, CLEAR, FITS, HOME, PHOTO, report
from tracing import GLIBC, SANITIZED, strace

FILES = 1000
BATCH = 64
COLD = "error=EAGAIN"  # the answer for a head that is not in memory
# A sign for each call: a head is probed, or asked for, or its file judged.
HINTS = {"preadv2": "?", "fadvise64": "!"}
SIGNS = HINTS | {"pread64": "."}

pytestmark = pytest.mark.skipif(SANITIZED or not GLIBC, reason="this build makes other calls, or has no preadv2")


def clear(machine, answer: str):
    """Clears with this answer from the kernel. Returns the outcome, and the name and subject of each call."""
    with strace(machine) as inside:
        outcome, trace = inside.run(CLEAR, "ann", ["-e", f"inject=preadv2:{answer}"], HOME)
    return outcome, [each.call[:2] for each in trace if each.call.subject.startswith("/home/ann")]


# A probe for 64 files, until two heads are cold: then 64 to 128 heads are asked for before they are judged, until a
# probe finds a warm one.
JUDGED = "." * BATCH
LAST = "." * (FILES % BATCH)
WARM = f"?{JUDGED}" * (FILES // BATCH) + f"?{LAST}"
BEGUN = "??" + 2 * BATCH * "!" + JUDGED
GOES_ON = "?" + BATCH * "!" + JUDGED
ANSWERS = {
    COLD: BEGUN + (FILES // BATCH - 2) * GOES_ON + "?" + (FILES % BATCH - 1) * "!" + JUDGED + LAST,
    f"{COLD}:when=2..3": f"?{JUDGED}{BEGUN}" + WARM[2 * (1 + BATCH) :],
    f"{COLD}:when=2..4": f"?{JUDGED}{BEGUN}{GOES_ON}" + WARM[3 * (1 + BATCH) :],
    **dict.fromkeys(["retval=1", "retval=0", "error=EOPNOTSUPP", "error=EIO"], WARM),
}


@pytest.mark.parametrize("answer, signs", ANSWERS.items(), ids=ANSWERS)
def test_heads_are_asked_for_as_long_as_they_are_cold(machine, cache, answer, signs):
    names = [f"normal/{number}" for number in range(FILES)]
    cache.put(PHOTO, *names)
    cache.put(FITS, *names[::10])
    outcome, calls = clear(machine, answer)
    assert outcome == report(FILES // 10, FILES * 9 // 10)
    assert len(os.listdir(cache.at("normal"))) == FILES * 9 // 10
    assert "".join(SIGNS.get(name, "") for name, _ in calls) == signs
    asked, judged = ([subject for name, subject in calls if SIGNS.get(name) == sign] for sign in "!.")
    counts = Counter(name for name, _ in calls)
    assert counts["openat"] == counts["close"] + 4  # four size directories are missing
    start = signs.partition("??")[0].count(".") + 1  # the probe has asked for the first cold head
    assert asked == judged[start : start + len(asked)]


def test_only_regular_files_are_read_ahead(machine, cache):
    cache.put(FITS, "normal/m31.png", "../../m31.png")
    for number in range(2 * BATCH):
        os.mkfifo(cache.at(f"normal/pipe{number}"))
        cache.at(f"normal/link{number}").symlink_to("/home/ann/m31.png")
        cache.directory(f"normal/directory{number}")
    outcome, told = clear(machine, COLD)
    assert outcome == report(1)
    opened = {subject for name, subject in told if name == "openat"}
    assert not [path for path in opened if "pipe" in path or "link" in path or path == "/home/ann/m31.png"]
    assert {subject for name, subject in told if name in HINTS} == {f"{CACHE}/normal/m31.png"}
