"""Reading ahead: what the kernel is asked for, and when. strace answers for the kernel, so it does not matter what is
in memory."""

import os
from collections import Counter

import pytest
from cache import CLEAR, FITS, HOME, PHOTO, report
from tracing import GLIBC, SANITIZED, strace

FILES = 1000
BATCH = 64
COLD = "error=EAGAIN"  # the answer for a head that is not in memory
# A sign for each call: a head is probed, or asked for, or its file judged.
SIGNS = {"preadv2": "?", "fadvise64": "!", "pread64": "."}

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
def test_heads_of_regular_files_are_asked_for_as_long_as_they_are_cold(machine, cache, answer, signs):
    names = [f"normal/{number}" for number in range(FILES)]
    cache.put(PHOTO, *names, "../../harbour.png")
    cache.put(FITS, *names[::10])
    for number in range(2 * BATCH):  # none of these is one
        os.mkfifo(cache.at(f"normal/pipe{number}"))
        cache.at(f"normal/link{number}").symlink_to("/home/ann/harbour.png")
        cache.directory(f"normal/directory{number}")
    outcome, calls = clear(machine, answer)
    assert outcome == report(FILES // 10, FILES * 9 // 10)
    assert len([path for path in cache.at("normal").iterdir() if path.name.isdigit()]) == FILES * 9 // 10
    assert "".join(SIGNS.get(name, "") for name, _ in calls) == signs
    asked, judged = ([subject for name, subject in calls if SIGNS.get(name) == sign] for sign in "!.")
    opened = {subject for name, subject in calls if name == "openat"}
    assert not [path for path in opened if "pipe" in path or "link" in path or "harbour" in path]
    counts = Counter(name for name, _ in calls)
    assert counts["openat"] == counts["close"] + 4  # four size directories are missing
    start = signs.partition("??")[0].count(".") + 1  # the probe has asked for the first cold head
    assert asked == judged[start : start + len(asked)]
