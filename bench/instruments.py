"""The instruments of measure.py: caches, and the times, calls, instructions and memory of commands."""

import contextlib
import json
import os
import re
import shlex
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

BENCH = Path(__file__).parents[1] / "build/bench"
GENERATE = BENCH / "generate"

os.environ["LC_ALL"] = "C"


def run(*command):
    """The standard output of a command that must succeed."""
    command = list(map(str, command))
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{shlex.join(command)}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


@contextlib.contextmanager
def cache(place, count, percent=0, *how):
    """A directory with a cache of that many thumbnails, that percentage Nebulark's; and the command that fills it."""
    with tempfile.TemporaryDirectory(prefix="bench.", dir=place) as directory:
        fill = [GENERATE, directory, count, percent, *how]
        run(*fill)
        os.sync()  # or the kernel writes the cache to disk during the measurement
        os.environ["XDG_CACHE_HOME"] = directory
        yield directory, fill


def file_system(directory):
    """Its type, by stat, which also works in a chroot, but calls ext4 ext2/ext3."""
    return run("stat", "--file-system", "--format=%T", directory).strip()


def processor_time(timed):
    return timed["user"] + timed["system"]


def clock_time(timed):
    return timed["mean"]


def race(rounds, runs, *commands, before=None, seconds=processor_time):
    """The median seconds of each command. In each round it has several runs, each after `before`."""
    texts = [shlex.join(map(str, command)) for command in commands]
    prepare = ["--prepare", shlex.join(map(str, before))] if before else []
    times = {text: [] for text in texts}
    with tempfile.NamedTemporaryFile("r") as result:
        how = ["--shell=none", "--style=none", "--ignore-failure", f"--runs={runs}", f"--export-json={result.name}"]
        for turn in range(rounds):
            first = turn % len(texts)
            run("hyperfine", *how, *prepare, *texts[first:], *texts[:first])
            for timed in json.loads(Path(result.name).read_text())["results"]:
                expected = 1 if timed["command"].startswith("grep ") else 0  # grep finds nothing
                if set(timed["exit_codes"]) != {expected}:
                    sys.exit(f"{timed['command']}: status {timed['exit_codes']}")
                times[timed["command"]].append(seconds(timed))
    return [statistics.median(times[text]) for text in texts]


def system_calls(*command):
    with tempfile.NamedTemporaryFile("r") as summary:
        run("strace", "--summary-only", "--summary-columns=calls,name", f"--output={summary.name}", *command)
        return int(re.search(r"(\d+) total\n", summary.read())[1])


def instructions(*command):
    with tempfile.NamedTemporaryFile("r") as log:
        run("valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", f"--log-file={log.name}", *command)
        return int(re.search(r"Collected : (\d+)", log.read())[1])


def peak_memory(*command):
    """In KiB: the median of several runs, which differ by a few pages."""
    peaks = []
    with tempfile.NamedTemporaryFile("r") as result:
        for _ in range(5):
            run("/usr/bin/time", "--format=%M", f"--output={result.name}", *command)
            peaks.append(int(Path(result.name).read_text()))
    return statistics.median(peaks)
