"""Runs with closed streams, little memory or few descriptors."""

import bisect
import os

import pytest
from cache import CACHE, CLEAR, FITS, HOME, ON_TMPFS, PHOTO, Cache, clearing, report, report_all
from machine import EMULATOR, SET_MONO, TOOL, Outcome, around
from png import chunk
from texts import HINT, NOTICE, listing, shown, stored
from tracing import GLIBC, SANITIZED

BAD_WORD = b"nebulark-ctl: cfa: expected auto, color or mono\n"


def fill(machine):
    machine.prefs.write_bytes(stored(labelformat="on"))
    Cache(machine).put(FITS, "normal/m31.png")
    Cache(machine).put(PHOTO, "normal/harbour.png")


def state(machine) -> tuple[bytes, set[str], set[str]]:
    """The preferences, the names in their directory, and the names in the first size directory."""
    cached = set(os.listdir(machine.ann / ".cache/thumbnails/normal"))
    return machine.prefs.read_bytes(), set(os.listdir(machine.prefs.parent)), cached


BEFORE = stored(labelformat="on"), {"preferences.conf"}, {"m31.png", "harbour.png"}
SAVED = stored(labelformat="on", cfa="mono"), *BEFORE[1:]
CHANGED = listing(labelformat="on", cfa="mono")

# The words, the user, and the outcome and state when nothing is short.
RUNS = {
    "prefs": (["--prefs"], "root", Outcome(0, shown(labelformat="on"), b""), BEFORE),
    "save": (SET_MONO, "root", Outcome(0, CHANGED + HINT, b""), SAVED),
    "elevated": (SET_MONO, "ann", Outcome(0, NOTICE + CHANGED + HINT + CHANGED, b""), SAVED),
    "rejected": (["--set", "cfa=x"], "root", Outcome(2, b"", BAD_WORD), BEFORE),
    "clearing": (CLEAR, "ann", report(1, 1), (*BEFORE[:2], {"harbour.png"})),
    "clearing of all": ([*CLEAR, "--all"], "ann", report_all(2), (*BEFORE[:2], set[str]())),
}
EACH_RUN = pytest.mark.parametrize("words, user, outcome, after", RUNS.values(), ids=RUNS)


# Streams


@pytest.mark.usefixtures("polkit")
@EACH_RUN
@pytest.mark.parametrize("closed", ["0", "1", "2", "01", "02", "12", "012"])
def test_closed_standard_streams_lose_only_their_output(machine, closed, words, user, outcome, after):
    # The files that the tool opens get the numbers of the closed streams.
    fill(machine)
    heard = outcome._replace(out=outcome.out * ("1" not in closed), err=outcome.err * ("2" not in closed))
    script = 'exec "$@" ' + " ".join(f"{stream}>&-" for stream in closed)
    assert (machine.run(*words, user=user, env=HOME, script=script), state(machine)) == (heard, after)


# Memory

COUNTABLE = pytest.mark.skipif(
    SANITIZED or bool(EMULATOR), reason="a sanitizer and qemu need more memory than the tool"
)


def memory(kib: int) -> list[str]:
    """Starts the tool with so much memory, and without core dumps."""
    return ["/usr/bin/prlimit", f"--as={kib << 10}", "--core=0", TOOL]


@COUNTABLE
@pytest.mark.skipif(not GLIBC, reason="another C library needs memory to read a file")
@pytest.mark.parametrize("name", [name for name in RUNS if name != "elevated"])
def test_with_little_memory_the_work_is_done_wholly_or_not_at_all(machine, name):
    words, user, outcome, after = RUNS[name]

    def does_the_work(kib: int) -> bool:
        fill(machine)
        run = machine.run(*words, user=user, env=HOME, tool=memory(kib))
        if run.status < 0 or run.status == 127:  # out of memory, or not even started
            assert (run.out, state(machine)) == (b"", BEFORE), (kib, run)
            return False
        assert (run, state(machine)) == (outcome, after), kib
        return True

    # Finds what is enough, to the page, then tries up to 128 KiB less.
    enough = 4 * (bisect.bisect_left(range(0, 16 << 10, 4), True, key=does_the_work))
    assert does_the_work(enough)
    assert not any(does_the_work(enough - less) for less in range(4, 128, 8))


@COUNTABLE
def test_preferences_larger_than_memory_are_read_line_by_line(machine):
    machine.prefs.write_bytes((b"#" * 63 + b"\n") * (1 << 20) + stored(labelformat="on"))
    assert machine.run("--prefs", tool=memory(60_000_000 >> 10)) == (0, shown(labelformat="on"), b"")


@COUNTABLE
def test_line_longer_than_memory_ends_the_reading(machine):
    # The line is read, and its value copied three times: each may run out of memory.
    content = b"labelcorner=topleft\nautostretch=" + b"x" * (16 << 20) + b"\nlabelformat=on\n"
    start = dict(labelcorner="topleft", cfa="mono")
    enough = []
    for mib in range(16, 112, 4):
        machine.prefs.write_bytes(content)
        run = machine.run(*SET_MONO, tool=memory(mib << 10))
        enough.append(b"labelformat = on" in run.out)
        read = start | {"labelformat": "on"} if enough[-1] else start
        assert (run, machine.prefs.read_bytes()) == ((0, listing(**read) + HINT, b""), stored(**read)), mib
    assert set(enough) == {False, True}
    assert enough == sorted(enough)


# What libstdc++ and libc++ do without memory for an exception.
NO_EXCEPTION = [
    Outcome(-6, b"", b"terminate called without an active exception\n"),
    Outcome(-6, b"", b"libc++abi: terminating\n"),
    Outcome(-11, b"", b""),
]


@COUNTABLE
def test_text_too_long_for_memory_ends_the_reading_of_its_file_only(machine, cache):
    # Without memory for a text of 1 MiB, a URI after it is not seen. Two such texts need no more memory than one. A URI
    # of that length is also kept, and needs the memory twice.
    long_text = chunk(b"tEXt", b"Comment\0".ljust(1 << 20, b"x"))
    long_uri = chunk(b"tEXt", (b"Thumb::URI\0" + b"x" * (1 << 20))[: (1 << 20) - 5] + b".fits")
    long_files = {f"{n}.png": FITS[:8] + n * long_text + FITS[8:] for n in (1, 2)}
    long_files["uri.png"] = PHOTO[:33] + long_uri
    others = {f"m{number}.png" for number in range(20)}
    outcomes = [(report(20, 3), {*long_files}), (report(22, 1), {"uri.png"}), (report(23), set())]
    seen = []
    for kib in range(1 << 10, 16 << 10, 128):
        cache.put(FITS, *(f"normal/{name}" for name in others))
        for name, content in long_files.items():
            cache.put(content, f"normal/{name}")
        run = machine.run(*CLEAR, user="ann", env=HOME, tool=memory(kib))
        there = set(os.listdir(cache.at("normal")))
        if not seen and (run.status == 127 or run in NO_EXCEPTION):
            assert there == others | long_files.keys()
        else:
            assert (run, there) in outcomes, kib
            seen.append(outcomes.index((run, there)))
    assert seen == sorted(seen)
    assert set(seen) == {0, 1, 2}


# Descriptors and depth


@EACH_RUN
def test_three_free_descriptors_are_enough(machine, words, user, outcome, after):
    fill(machine)
    if outcome.out.startswith(NOTICE):
        (machine.bin / "pkexec").symlink_to("true")
        outcome, after = Outcome(0, NOTICE + listing(labelformat="on"), b""), BEFORE
    run = machine.run(*words, user=user, env=HOME, script='ulimit -n 6; exec "$@"')
    assert (run, state(machine)) == (outcome, after)


LEVELS = 5000  # more than any path can name
DIG = f"""
import os
for level in range({LEVELS}):
    os.mkdir("d")
    for name in ("m", "h"):
        os.link(name, "d/" + name)
    os.chdir("d")
"""


@pytest.mark.parametrize("descriptors, opened", [(1024, 1021), (8192, LEVELS + 1)])
@clearing(False, True)
def test_descriptors_and_not_the_stack_limit_the_depth(machine, cache, descriptors, opened, words, result):
    # Every level takes a descriptor, and judging a file one more. Deeper files are skipped.
    cache.put(FITS, "normal/m")
    cache.put(PHOTO, "normal/h")
    prepare = f"""
        {ON_TMPFS}
        /usr/bin/python3 -c '{DIG}'
        set -- prlimit --stack=262144 --nofile={descriptors} "$@"
    """
    look = f"find {CACHE}/normal -type f -printf '%d %f\\n' >/usr/share/survivors"
    run = machine.run(*CLEAR, *words, env=HOME, script=around(prepare, look))
    looked_into = min(opened, descriptors - 4)
    removed = {"m": opened if words else looked_into, "h": opened if words else 0}
    there = {f"{level + 1} {name}" for level in range(LEVELS + 1) for name in "mh" if level >= removed[name]}
    assert run == (report_all(2 * opened) if words else report(looked_into, 2 * opened - looked_into))
    assert set((machine.share / "survivors").read_text().splitlines()) == there
