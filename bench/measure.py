"""Measures nebulark-ctl against other programs that do the same work, and prints a table. script/bench starts it.

    measure.py [--large] [DIRECTORY]

Times are processor time, in the program and in the kernel, so that other processes do not count. For a cold cache they
are time on the clock, because most of that is waiting for the disk. The compared programs take turns, so that a slow
moment slows all of them, and the median of the rounds counts.

Caches are where temporary files go: usually on an ordinary file system, as real caches are. On tmpfs the kernel does
less for each file, and the tool's own work counts for more.
"""

import argparse
import os
import platform
import re
import shlex
import sys
import tempfile
from pathlib import Path

from instruments import BENCH, cache, clock_time, file_system, instructions, peak_memory, race, run, system_calls

TOOL, UNHARDENED = BENCH.parent / "release/nebulark-ctl", BENCH / "unhardened/nebulark-ctl"
FLOOR, HELLO = BENCH / "floor", BENCH / "hello"

CLEAR = [TOOL, "--clear-thumb-cache"]  # the cache that XDG_CACHE_HOME names
GREP = ["grep", "-rlF", "-e.xisf", "-e.fits", "-e.fit", "-e.fts", "-e.kxproj"]
FEW, SOME, MANY, MILLION = 1000, 3000, 20_000, 1_000_000

# Repeated measurements differ by less: a fraction of a time, and KiB of memory.
NOISE, SOME_PAGES = 0.05, 128

HEADINGS = ("", "nebulark-ctl", "against", "which has", "ratio", "at most", "reached")
WORDS = (0, 2)  # the columns of words, flush left; numbers are flush right

DROP_CACHES = Path("/proc/sys/vm/drop_caches")

rows = []
notes = []  # on what could not be measured


def row(what, tool, against, other, ratio, bound="", reached=None):
    """Adds a row to the table. `ratio` is a number, `reached` true or false, the rest texts."""
    verdict = "" if reached is None else "yes" if reached else "no"
    rows.append((what, tool, against, other, f"{ratio:.2f}", bound, verdict))
    print(f"  {what}: {tool}, {against} {other}", file=sys.stderr)


def compare(what, shown, tool, against, other, bound=None):
    """Adds a row of two numbers, whose ratio should be at most the bound."""
    ratio = tool / other
    within = (times(bound), ratio <= bound) if bound else ()
    row(what, shown(tool), against, shown(other), ratio, *within)


def print_table():
    widths = [max(map(len, column)) for column in zip(HEADINGS, *rows)]
    rule = ["-" * width if i in WORDS else "-" * (width - 1) + ":" for i, width in enumerate(widths)]
    for cells in (HEADINGS, rule, *rows):
        padded = [c.ljust(w) if i in WORDS else c.rjust(w) for i, (c, w) in enumerate(zip(cells, widths))]
        print("|", " | ".join(padded), "|")


def time(seconds):
    if seconds >= 1:
        return f"{seconds:.2f} s"
    return f"{seconds * 1000:.{1 if seconds >= 0.01 else 2}f} ms"


def times(factor):
    return f"{factor:.2f} times"


def kib(size):
    return f"{size:.0f} KiB"


def per_file(place, measure, percent, *words):
    """What one more file costs the tool and the floor: the difference between two caches."""
    measured = []
    for count in (FEW, SOME):
        with cache(place, count, percent) as (directory, fill):
            tool = measure(*CLEAR, *words)
            run(*fill)
            measured.append((tool, measure(FLOOR, directory, *words)))
    return [(some - few) / (SOME - FEW) for few, some in zip(*measured)]


def check_answers(place):
    """Ends the run if the tool and the floor do different work: a comparison would mean nothing."""
    found = []
    with cache(place, SOME, percent=10) as (directory, fill):
        for command in (CLEAR, [FLOOR, directory]):
            run(*fill)
            said = run(*command)
            found.append((re.findall(r"\d+", said)[:2], sorted(Path(directory).rglob("*.png"))))
    if found[0] != found[1] or found[0][0] != [str(SOME // 10), str(SOME - SOME // 10)]:
        sys.exit("nebulark-ctl and the floor do not delete the same files")


def count(place):
    for what, percent, words, bound in (
        ("system calls for a thumbnail that is kept", 0, [], 4.05),
        ("system calls for a thumbnail that is deleted", 100, [], 5.05),
        ("system calls for a file with --all", 0, ["--all"], 2),
    ):
        tool, floor = per_file(place, system_calls, percent, *words)
        row(what, f"{tool:.2f}", "floor", f"{floor:.2f}", tool / floor, f"{bound} calls", round(tool, 2) <= bound)
    tool, floor = per_file(place, instructions, 0)
    compare("instructions for a thumbnail that is kept", "{:,.0f}".format, tool, "floor", floor)


def time_scanning(place):
    with cache(place, MANY) as (directory, _):
        unhardened = [UNHARDENED, *CLEAR[1:]]
        tool, floor, grep, unhardened = race(21, 1, CLEAR, [FLOOR, directory], [*GREP, directory], unhardened)
    what = f"scanning {MANY:,} thumbnails, all kept"
    compare(what, time, tool, "floor", floor, 1.08)
    compare(what, time, tool, "grep -rl", grep, 0.65)
    compare(what, time, tool, "no hardening", unhardened)


def why_not_cold(place):
    """Why no cache there can be cold; "" if one can."""
    if file_system(place) == "tmpfs":
        return "tmpfs is memory"
    if not os.access(DROP_CACHES, os.W_OK):
        return "only root may drop the page cache"
    return ""


def time_scanning_cold(place):
    what = f"scanning {MANY:,} cold thumbnails"
    if reason := why_not_cold(place):
        notes.append(f"Not measured: {what}. {reason.capitalize()}.")
        return
    with cache(place, MANY) as (directory, _):
        forget = ["sh", "-c", f"sync && echo 3 >{DROP_CACHES}"]  # pages, directory entries and inodes
        commands = CLEAR, [*GREP, directory], [FLOOR, directory]
        tool, grep, floor = race(5, 1, *commands, before=forget, seconds=clock_time)
    compare(what, time, tool, "grep -rl", grep, 0.45)
    compare(what, time, tool, "floor", floor, 0.45)


def time_deleting(place):
    with cache(place, MANY // 4, percent=100) as (directory, fill):
        tool, floor = race(24, 1, CLEAR, [FLOOR, directory], before=fill)
    compare(f"deleting {MANY // 4:,} of Nebulark's thumbnails", time, tool, "floor", floor, 1.08)


def time_clearing(place):
    with cache(place, MANY // 4) as (directory, fill):
        rm, find = ["rm", "-rf", f"{directory}/thumbnails"], ["find", directory, "-type", "f", "-delete"]
        # The last command left the directories or deleted them; each command gets new ones.
        refill = ["sh", "-c", f"{shlex.join(rm)} && {shlex.join(map(str, fill))}"]
        tool, rm, find = race(12, 1, [*CLEAR, "--all"], rm, find, before=refill)
    what = f"clearing {MANY // 4:,} files with --all"
    compare(what, time, tool, "rm -rf", rm, 1.08)
    compare(what, time, tool, "find -delete", find, 1.08)


def time_starting():
    tool, hello = race(7, 150, [TOOL, "--version"], [HELLO])
    compare("starting, with --version", time, tool, "hello", hello, 1.1)


def measure_memory(place):
    """Returns the memory that the tool takes for few thumbnails."""
    hello = peak_memory(HELLO)
    with cache(place, FEW):
        tool = peak_memory(*CLEAR)
    what = f"peak memory for {FEW:,} thumbnails"
    row(what, kib(tool), "hello", kib(hello), tool / hello, "1 MiB more", tool <= hello + 1024)
    return tool


def measure_growth(place, most, memory_for_few, *how):
    """What a large cache costs, and one of a quarter of the size. Both exist at once, so that the runs can take
    turns."""
    with cache(place, most // 4, 0, *how) as (small, _), cache(place, most, 0, *how) as (large, _):
        tool = [["env", f"XDG_CACHE_HOME={directory}", *CLEAR] for directory in (small, large)]
        floor = [[FLOOR, directory] for directory in (small, large)]
        tool_small, tool_large, floor_small, floor_large = race(7, 1, *tool, *floor)
        memory = peak_memory(*CLEAR)
    compare(f"scanning {most:,} thumbnails, all kept", time, tool_large, "floor", floor_large)
    tool, floor = tool_large / tool_small, floor_large / floor_small
    what = f"time for 4 times {most // 4:,} thumbnails"
    row(what, times(tool), "floor", times(floor), tool / floor, "the same", tool <= floor * (1 + NOISE))
    what, growth = f"peak memory for {most:,} thumbnails", memory / memory_for_few
    same = memory <= memory_for_few + SOME_PAGES
    row(what, kib(memory), f"{FEW:,} of them", kib(memory_for_few), growth, "the same", same)


def main():
    parser = argparse.ArgumentParser(prog="script/bench")
    parser.add_argument("--large", action="store_true", help="measure a cache of 1,000,000 files too")
    parser.add_argument("directory", nargs="?", metavar="DIRECTORY", help="where to make the caches")
    options = parser.parse_args()
    place = options.directory or tempfile.gettempdir()
    large_place = options.directory or "/dev/shm"

    check_answers(place)
    count(place)
    time_scanning(place)
    time_scanning_cold(place)
    time_deleting(place)
    time_clearing(place)
    time_starting()
    memory = measure_memory(place)
    measure_growth(place, 4 * MANY, memory)
    if options.large:
        measure_growth(large_place, MILLION, memory, "--holes")

    print(f"{run(TOOL, '--version').strip()} on Linux {platform.release()}, {platform.machine()};", end=" ")
    million = f", the million on {file_system(large_place)}" if options.large else ""
    print(f"caches on {file_system(place)}" + million, end="\n\n")
    print_table()
    for note in notes:
        print("", note, sep="\n")


main()
