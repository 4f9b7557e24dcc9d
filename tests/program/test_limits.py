"""What is left of the tool where the machine is short of something: room, memory, descriptors, streams, /proc."""

import bisect
import itertools
import os

import pytest
from cache import CACHE, FITS, PHOTO, report, report_all
from machine import EMULATOR, TOOL, Outcome
from png import chunk
from texts import CANNOT_WRITE, COULD_NOT_WRITE, HINT, NOTICE, listing, shown, stored
from tracing import is_sanitized, uses_glibc

SET_MONO = ["--set", "cfa=mono"]
HOME = {"HOME": "/home/ann"}
BAD_WORD = b"nebulark-ctl: cfa: expected auto, color or mono\n"
FURNITURE = {"normal/m31.png": FITS, "normal/harbour.png": PHOTO}


@pytest.fixture
def furnished(machine, cache):
    """A machine with preferences and a cache, each with something in it."""
    machine.prefs.write_bytes(stored(labelformat="on"))
    for name, content in FURNITURE.items():
        cache.put(content, name)
    return machine


def state(machine) -> tuple[bytes, set[str], set[str]]:
    """The preferences, the names beside them, and the names in the first size directory."""
    cached = set(os.listdir(machine.ann / ".cache/thumbnails/normal"))
    return machine.prefs.read_bytes(), set(os.listdir(machine.prefs.parent)), cached


BEFORE = stored(labelformat="on"), {"preferences.conf"}, {"m31.png", "harbour.png"}
SAVED = stored(labelformat="on", cfa="mono"), *BEFORE[1:]
CLEARED = *BEFORE[:2], {"harbour.png"}
EMPTIED = *BEFORE[:2], set()
CHANGED = listing(labelformat="on", cfa="mono")

# Runs by their names: the words, by whom, what comes of them where nothing is short, and what they leave.
RUNS = {
    "prefs": (["--prefs"], "root", Outcome(0, shown(labelformat="on"), b""), BEFORE),
    "save": (SET_MONO, "root", Outcome(0, CHANGED + HINT, b""), SAVED),
    "elevated": (SET_MONO, "ann", Outcome(0, NOTICE + CHANGED + HINT + CHANGED, b""), SAVED),
    "rejected": (["--set", "cfa=x"], "root", Outcome(2, b"", BAD_WORD), BEFORE),
    "clearing": (["--clear-thumb-cache"], "ann", report(1, 1), CLEARED),
    "clearing of all": (["--clear-thumb-cache", "--all"], "ann", report_all(2), EMPTIED),
}
EACH_RUN = pytest.mark.parametrize("words, user, outcome, after", RUNS.values(), ids=RUNS)


# Streams


@pytest.mark.usefixtures("polkit")
@EACH_RUN
def test_closed_standard_streams_lose_what_is_said_and_nothing_else(furnished, words, user, outcome, after):
    # The files that the tool opens get the numbers of the closed streams, the preferences among them.
    for closed in itertools.chain.from_iterable(itertools.combinations((0, 1, 2), n) for n in (1, 2, 3)):
        furnished.prefs.write_bytes(BEFORE[0])
        for name, content in FURNITURE.items():
            (furnished.ann / ".cache/thumbnails" / name).write_bytes(content)
        heard = outcome._replace(out=outcome.out * (1 not in closed), err=outcome.err * (2 not in closed))
        script = 'exec "$@" ' + " ".join(f"{fd}>&-" for fd in closed)
        assert (furnished.run(*words, user=user, env=HOME, script=script), state(furnished)) == (heard, after), closed


def test_message_of_a_failing_save_does_not_end_up_in_a_file(furnished):
    # The save fails at its last step, when the temporary file is complete; the preferences cannot be replaced.
    furnished.prefs.unlink()
    furnished.prefs.mkdir()
    for closed in ("2>&-", "1>&- 2>&-", "0>&- 1>&- 2>&-"):
        assert furnished.run(*SET_MONO, script=f'exec "$@" {closed}') == (1, b"", b"")
        assert furnished.prefs_tmp.read_bytes() == stored(cfa="mono")
        assert list(furnished.prefs.iterdir()) == []


# A pipe that nobody reads any more.
TO_NOBODY = 'mkfifo /home/pipe; exec 3<>/home/pipe 4>/home/pipe 3>&-; exec "$@" >&4 4>&-'
KILLED = Outcome(-13, b"", b"")


@pytest.mark.usefixtures("polkit")
@EACH_RUN
def test_closed_pipe_ends_the_tool_when_it_writes_and_the_work_is_done_by_then(furnished, words, user, outcome, after):
    # The notice of an elevation is written before the work, so that this run ends there.
    expected = (KILLED, BEFORE if user == "ann" and after == SAVED else after) if outcome.out else (outcome, after)
    assert (furnished.run(*words, user=user, env=HOME, script=TO_NOBODY), state(furnished)) == expected


@pytest.mark.usefixtures("polkit")
@EACH_RUN
def test_closed_pipe_whose_signal_is_ignored_changes_nothing_else(furnished, words, user, outcome, after):
    if EMULATOR and user == "ann" and after == SAVED:
        pytest.skip("under qemu a second run does not inherit that the signal is ignored")
    run = furnished.run(*words, user=user, env=HOME, script="trap '' PIPE; " + TO_NOBODY)
    assert (run, state(furnished)) == (outcome._replace(out=b""), after)


# File systems


def test_no_room_for_another_file_leaves_the_old_one(machine):
    # A root directory and one file are all that this file system can hold.
    full = """
        mount -t tmpfs -o nr_inodes=2 tmpfs /usr/share/nebulark
        echo labelformat=on >/usr/share/nebulark/preferences.conf
        "$@"
        status=$?
        cp -a /usr/share/nebulark /home
        exit $status
    """
    assert machine.run(*SET_MONO, script=full) == (1, b"", COULD_NOT_WRITE)
    kept = {path.name: path.read_bytes() for path in (machine.home / "nebulark").iterdir()}
    assert kept == {"preferences.conf": b"labelformat=on\n"}


@pytest.mark.parametrize("words, result", [([], report(1, 1)), (["--all"], report_all(2))], ids=["default", "all"])
def test_clearing_needs_no_room(furnished, words, result):
    full = """
        mount -t tmpfs -o size=64k tmpfs /mnt
        cp -a /home/ann /mnt
        mount --move /mnt /home
        cat /dev/zero >/home/rest 2>/dev/null
        "$@"
        status=$?
        ls /home/ann/.cache/thumbnails/normal >/usr/share/survivors
        exit $status
    """
    assert furnished.run("--clear-thumb-cache", *words, user="ann", env=HOME, script=full) == result
    assert (furnished.share / "survivors").read_text() == ("" if words else "harbour.png\n")


@pytest.mark.usefixtures("polkit")
def test_read_only_mount_is_beyond_elevation_too(furnished):
    script = 'mount -o remount,bind,ro /usr/share; exec "$@"'
    run = furnished.run(*SET_MONO, user="ann", script=script)
    assert (run, state(furnished)) == ((1, NOTICE + NOTICE, CANNOT_WRITE + CANNOT_WRITE), BEFORE)


@pytest.mark.usefixtures("polkit")
@EACH_RUN
def test_without_proc_only_elevation_is_missing(furnished, installed_tool, words, user, outcome, after):
    if is_sanitized(installed_tool):
        pytest.skip("the address sanitizer needs /proc")
    if EMULATOR and user == "ann" and after == SAVED:
        pytest.skip("under qemu the tool's own path is known without /proc")
    if user == "ann" and after == SAVED:
        outcome, after = Outcome(1, NOTICE, CANNOT_WRITE), BEFORE
    script = 'mount -t tmpfs tmpfs /proc; exec "$@"'
    assert (furnished.run(*words, user=user, env=HOME, script=script), state(furnished)) == (outcome, after)


# Memory


def memory(kib: int) -> list[str]:
    """The tool with so much memory; whoever becomes ann before that needs some too. Aborting dumps no core."""
    return ["/usr/bin/prlimit", f"--as={kib << 10}", "--core=0", TOOL]


@pytest.fixture
def unsanitized(installed_tool):
    if is_sanitized(installed_tool):
        pytest.skip("the address sanitizer reserves terabytes of addresses")
    if EMULATOR:
        pytest.skip("qemu needs more memory than the tool")


@pytest.mark.usefixtures("unsanitized")
@pytest.mark.parametrize("name", [name for name in RUNS if name != "elevated"])
def test_however_little_memory_there_is_the_work_is_done_or_left(furnished, installed_tool, name):
    if not uses_glibc(installed_tool):
        pytest.skip("another C library asks for memory again and again, and files cannot be read where there is none")
    words, user, outcome, after = RUNS[name]

    def does_the_work(kib: int) -> bool:
        furnished.prefs.write_bytes(BEFORE[0])
        for each, content in FURNITURE.items():
            (furnished.ann / ".cache/thumbnails" / each).write_bytes(content)
        run = furnished.run(*words, user=user, env=HOME, tool=memory(kib))
        if run.status < 0 or run.status == 127:  # out of memory, or not even started
            assert (run.out, state(furnished)) == (b"", BEFORE), (kib, run)
            return False
        assert (run, state(furnished)) == (outcome, after), kib
        return True

    # What is enough, to the page, and then what is up to 128 KiB less than that.
    enough = 4 * (bisect.bisect_left(range(0, 16 << 10, 4), True, key=does_the_work))
    assert does_the_work(enough)
    assert not any(does_the_work(enough - less) for less in range(4, 128, 8))


@pytest.mark.usefixtures("unsanitized")
@pytest.mark.parametrize("name", ["prefs", "save"])
def test_preferences_larger_than_memory_are_read_line_by_line(furnished, name):
    words, user, outcome, after = RUNS[name]
    big = (b"#" * 63 + b"\n") * (1 << 20) + BEFORE[0]
    furnished.prefs.write_bytes(big)
    run = furnished.run(*words, user=user, tool=memory(60_000_000 >> 10))
    assert (run, state(furnished)) == (outcome, (big if name == "prefs" else after[0], *after[1:]))


@pytest.mark.usefixtures("unsanitized")
def test_line_longer_than_memory_ends_the_reading(machine):
    # The line is read, and its value copied three times. Whichever of these finds no memory, nothing after it counts.
    content = b"labelcorner=topleft\nautostretch=" + b"x" * (16 << 20) + b"\nlabelformat=on\n"
    start = dict(labelcorner="topleft", cfa="mono")
    whole = dict(start, labelformat="on")
    enough = []
    for mib in range(16, 112, 4):
        machine.prefs.write_bytes(content)
        run = machine.run(*SET_MONO, tool=memory(mib << 10))
        enough.append(run.out == listing(**whole) + HINT)
        read = whole if enough[-1] else start
        assert (run, machine.prefs.read_bytes()) == ((0, listing(**read) + HINT, b""), stored(**read)), mib
    assert set(enough) == {False, True}
    assert enough == sorted(enough)


# How a run ends for which there is not even memory for an exception: by libstdc++, and by libc++.
NO_EXCEPTION = {
    False: [Outcome(-6, b"", b"terminate called without an active exception\n")],
    True: [Outcome(-6, b"", b"libc++abi: terminating\n"), Outcome(-11, b"", b"")],
}


@pytest.mark.usefixtures("unsanitized")
def test_a_text_too_long_for_memory_ends_the_reading_of_its_file_alone(machine, installed_tool, cache):
    # Where memory has no room for a text of 1 MiB, a URI that comes after it is not seen. Two such texts need no more
    # memory than one. A URI as long is kept as well, and needs it twice.
    long_text = chunk(b"tEXt", b"Comment\0".ljust(1 << 20, b"x"))
    long_uri = chunk(b"tEXt", (b"Thumb::URI\0" + b"x" * (1 << 20))[: (1 << 20) - 5] + b".fits")
    long_files = {f"{n}.png": FITS[:8] + n * long_text + FITS[8:] for n in (1, 2)}
    long_files["uri.png"] = PHOTO[:33] + long_uri
    others = {f"m{number}.png" for number in range(20)}
    not_started = NO_EXCEPTION[b"libc++" in installed_tool.read_bytes()]
    outcomes = [report(20, 3), report(22, 1), report(23)]
    left = [long_files.keys(), {"uri.png"}, set()]
    seen = []
    for kib in range(1 << 10, 16 << 10, 128):
        cache.put(FITS, *(f"normal/{name}" for name in others))
        for name, content in long_files.items():
            cache.put(content, f"normal/{name}")
        run = machine.run("--clear-thumb-cache", user="ann", env=HOME, tool=memory(kib))
        there = set(os.listdir(cache.at("normal")))
        if not seen and (run.status == 127 or run in not_started):
            assert there == others | long_files.keys()
        else:
            assert (run, there) in zip(outcomes, left), kib
            seen.append(outcomes.index(run))
    assert seen == sorted(seen)
    assert set(seen) == {0, 1, 2}


# Descriptors and depth


@EACH_RUN
def test_three_free_descriptors_are_enough(furnished, words, user, outcome, after):
    if outcome.out.startswith(NOTICE):
        (furnished.bin / "pkexec").write_bytes(open("/usr/bin/true", "rb").read())
        (furnished.bin / "pkexec").chmod(0o755)
        outcome, after = Outcome(0, NOTICE + listing(labelformat="on"), b""), BEFORE
    run = furnished.run(*words, user=user, env=HOME, script='ulimit -n 6; exec "$@"')
    assert (run, state(furnished)) == (outcome, after)


LEVELS = 5000  # more than any path can name
DEEP = """
import os, sys
top, levels, fits, photo = sys.argv[1], int(sys.argv[2]), *map(bytes.fromhex, sys.argv[3:5])
os.makedirs(top)
os.chdir(top)
for level in range(levels + 1):
    for name, content in (("m", fits), ("h", photo)):
        with open(name, "wb") as file:
            file.write(content)
    if level < levels:
        os.mkdir("d")
        os.chdir("d")
"""


@pytest.mark.parametrize("all", [False, True], ids=["default", "all"])
@pytest.mark.parametrize("descriptors, opened", [(1024, 1021), (8192, LEVELS + 1)])
def test_descriptors_limit_how_deep_directories_are_cleared_and_the_stack_does_not(machine, all, descriptors, opened):
    # Every level takes a descriptor, and a file in it one more while it is looked into. What lies too deep is skipped.
    # On a file system of this run's own: outside, where the paths are longer still, nobody could remove it.
    script = f"""
        mount -t tmpfs tmpfs /home
        /usr/bin/python3 -c '{DEEP}' {CACHE}/normal {LEVELS} {FITS.hex()} {PHOTO.hex()}
        prlimit --stack=262144 --nofile={descriptors} "$@"
        status=$?
        find {CACHE}/normal -type f -printf '%d %f\\n' >/usr/share/survivors
        exit $status
    """
    run = machine.run("--clear-thumb-cache", *["--all"] * all, env=HOME, script=script)
    looked_into = min(opened, descriptors - 4)
    removed = {"m": opened if all else looked_into, "h": opened if all else 0}
    there = {f"{level + 1} {name}" for level in range(LEVELS + 1) for name in "mh" if level >= removed[name]}
    assert run == (report_all(2 * opened) if all else report(looked_into, 2 * opened - looked_into))
    assert set((machine.share / "survivors").read_text().splitlines()) == there
