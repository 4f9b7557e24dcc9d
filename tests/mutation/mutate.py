"""Changes the sources one small thing at a time, and tells which changes no test notices. script/mutate starts it.

    mutate.py [--list] [FILE...]

Each processor has a copy of the tree to work in. A change is built into the library, and with that into the unit tests,
the replay of the fuzz corpora and the tool. Their tests run in this order, quick ones first, until one fails.

A changed tool may delete what it should keep. No test of it runs but in the box below, where nothing can be written
except directories of the test's own.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter
from collections.abc import Iterator
from pathlib import Path

from mutants import Mutant, mutants_of

ROOT = Path(__file__).parents[2]
EQUIVALENT = Path(__file__).with_name("equivalent")
LOG = ROOT / "build/mutants.log"
BOUND = 95  # per cent that have to be killed
FAILED = re.compile(r"^(?:FAILED|ERROR) tests/program/(\S+)|^\[  FAILED  \] (\S+)", re.MULTILINE)

# As a debug build, because that compiles fast; as a release otherwise, because that starts fast.
CONFIGURE = ["cmake", "-S", ".", "-B", "build", "-D", "CMAKE_BUILD_TYPE=", "-D", "CMAKE_CXX_FLAGS=-O0"]
CONFIGURE += ["-D", "NEBULARK_HARDENING=OFF"]

QUICK = ["elevation", "command_line", "preferences", "cache", "cost", "limits"]
SLOW = ["faults", "races"]
NOT_OF_THE_TOOL = ["completions", "documentation", "page", "sandbox"]
PYTEST = ["/usr/bin/python3", "-m", "pytest", "-x", "-q", "-p", "no:cacheprovider"]
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "CI": "1", "PYTHONDONTWRITEBYTECODE": "1"}

# Run by sh, as root, as process 1 of a namespace of processes, so that whatever it starts ends with it, and in a
# namespace of mounts, all of which it makes read-only, but for /proc, where no file can be deleted. File systems of the
# test's own then cover the directories for temporary files. The copy of the tree may lie below one of them, and is
# mounted there anew, by way of the working directory, which still is the old one. A tool that starts itself without
# end is stopped before the machine has no processes left for other tests.
BOX = """
set -eu
tree=$1 outside=$2
shift 2
cd "$tree"
for place in $(cut -d ' ' -f 5 /proc/self/mountinfo); do
    case $place in /proc) ;; *) mount -o remount,bind,ro "$(printf %b "$place")" ;; esac
done
for place in /tmp /var/tmp /dev/shm /run; do mount -t tmpfs tmpfs "$place"; done
mkdir -p "$tree"
mount --no-canonicalize --bind . "$tree"
cd "$tree"
for place in . "$outside" / /etc /dev /home /usr /var; do
    if (: >"$place/written") 2>/dev/null; then
        rm "$place/written"
        echo "$place could be written to" >&2
        exit 1
    fi
done
ulimit -c 0
ulimit -v 8388608
(while sleep 1; do [ "$(ls /proc | grep -c '^[0-9]')" -lt 1000 ] || kill -KILL -1; done) &
exec "$@"
"""


def boxed(tree: Path, command: list[str], limit: float | None = None) -> tuple[bool, str]:
    """Runs a command in the box, in a tree. Whether it succeeded within so many seconds, and what it printed if not."""
    box = ["setpriv", "--pdeathsig", "KILL", "unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    with tempfile.TemporaryFile("w+") as said:
        try:
            how = dict(env=ENVIRONMENT, stdin=subprocess.DEVNULL, stdout=said, stderr=said, start_new_session=True)
            done = subprocess.run([*box, "sh", "-c", BOX, "sh", tree, ROOT, *command], timeout=limit, **how)
            if done.returncode == 0:
                return True, ""
        except subprocess.TimeoutExpired:
            return False, "timeout"
        said.seek(max(0, said.seek(0, os.SEEK_END) - 10_000))
        return False, said.read()


class Worker:
    """A copy of the tree, built, in which one mutant after another is tried."""

    def __init__(self, tree: Path):
        self.tree = tree
        self.limits: dict[str, float] = {}
        ignored = shutil.ignore_patterns("build", ".git", "__pycache__")
        shutil.copytree(ROOT, tree, ignore=ignored, symlinks=True)
        tree.chmod(0o755)
        subprocess.run(CONFIGURE, cwd=tree, stdout=subprocess.DEVNULL, check=True)

    def build(self, target: str) -> bool:
        make = ["make", "--silent", "-C", self.tree / "build", target]
        return subprocess.run(make, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def suites(self) -> Iterator[tuple[str, str, list[str]]]:
        """The tests: their name, what has to be built for them, and the command."""
        yield "unit tests", "unit-tests", ["build/tests/unit/unit-tests", "--gtest_brief=1", "--gtest_fail_fast"]
        yield "corpora", "replay", ["build/tests/fuzz/replay", "--gtest_brief=1", "--gtest_fail_fast"]
        modules = {path.stem.removeprefix("test_") for path in (self.tree / "tests/program").glob("test_*.py")}
        others = sorted(modules.difference(QUICK, SLOW, NOT_OF_THE_TOOL))
        names = [f"tests/program/test_{name}.py" for name in (*QUICK, *others, *SLOW)]
        tool = f"NEBULARK_CTL={self.tree}/build/nebulark-ctl"
        yield "program tests", "nebulark-ctl", ["env", tool, *PYTEST, *names]

    def try_unchanged(self):
        """Fails unless every test passes. A test that takes much longer with a mutant counts as failed."""
        for name, target, command in self.suites():
            if not self.build(target):
                sys.exit(f"{target} cannot be built")
            begun = time.monotonic()
            passed, said = boxed(self.tree, command)
            self.limits[name] = 10 + 5 * (time.monotonic() - begun)
            if not passed:
                sys.exit(f"{said}\nThe {name} do not pass on the unchanged sources.")

    def verdict(self, mutant: Mutant) -> tuple[str, str]:
        """Which tests killed it, and what failed; or "survived", or "not compiled"."""
        changed = self.tree / mutant.path
        changed.write_text(mutant.mutated())
        try:
            return self.killer(has_unit_tests="cli" not in mutant.path.parts)
        finally:
            changed.write_text(mutant.text)

    def killer(self, has_unit_tests: bool) -> tuple[str, str]:
        if not self.build("nebulark"):
            return "not compiled", ""
        for name, target, command in self.suites():
            if target != "nebulark-ctl" and not has_unit_tests:
                continue
            if not self.build(target):
                return ("not compiled", "") if target == "nebulark-ctl" else (name, "building")
            passed, said = boxed(self.tree, command, self.limits[name])
            if not passed:
                failed = FAILED.search(said)
                return name, failed[1] or failed[2] if failed else said.strip().rpartition("\n")[2]
        return "survived", ""


def read_equivalent() -> dict[tuple[str, str], str]:
    """The mutants that are known to do what the tool does, each with the reason."""
    reasons, those = {}, []
    for line in EQUIVALENT.read_text().splitlines():
        if match := re.match(r"(src/[^:]*): (.*)", line):
            those.append(match.groups())
        elif line.startswith("    "):
            reasons.update(dict.fromkeys(those, line.strip()))
            those = []
    return reasons


def try_all(mutants: list[Mutant], place: Path) -> Counter:
    """Prints the survivors, and counts the verdicts."""
    equivalent = read_equivalent()
    print("Building and testing the unchanged sources", file=sys.stderr)
    workers = [Worker(place / str(number) / "tree") for number in range(os.cpu_count() or 1)]
    workers[0].try_unchanged()
    waiting, counts, lock = iter(mutants), Counter(), threading.Lock()

    def work(worker: Worker, log):
        worker.limits = workers[0].limits
        while True:
            with lock:
                mutant = next(waiting, None)
            if mutant is None:
                return
            verdict, failed = worker.verdict(mutant)
            reason = equivalent.get((str(mutant.path), mutant.change()))
            if verdict == "survived" and reason:
                verdict = "equivalent"
            with lock:
                counts[verdict] += 1
                print(f"{verdict:<14}{mutant}" + (f"\n{'':<14}{failed}" if failed else ""), file=log, flush=True)
                if verdict == "survived" or reason:
                    print(mutant, f"    {verdict}: {reason or failed}", sep="\n", flush=True)
                print(f"\r{counts.total()} of {len(mutants)} ", end="", file=sys.stderr, flush=True)

    LOG.parent.mkdir(exist_ok=True)
    with LOG.open("w") as log:
        threads = [threading.Thread(target=work, args=(worker, log), daemon=True) for worker in workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    return counts


def report(counts: Counter) -> bool:
    """Prints the sums. Whether enough were killed of those that are not known to be equivalent."""
    compiled = counts.total() - counts["not compiled"]
    killed = compiled - counts["survived"] - counts["equivalent"]
    counted = max(1, compiled - counts["equivalent"])
    print(f"\n{counts.total()} mutants, {counts['not compiled']} of which do not compile.", end=" ")
    print(f"Killed: {killed}. Equivalent: {counts['equivalent']}. Survived: {counts['survived']}.")
    print(f"{100 * killed / max(1, compiled):.1f} per cent killed,", end=" ")
    print(f"{100 * killed / counted:.1f} of those that are not equivalent.")
    return 100 * killed >= BOUND * counted


def main() -> bool:
    parser = argparse.ArgumentParser(prog="script/mutate", description="Tells which changes of src/ no test notices.")
    parser.add_argument("--list", action="store_true", help="print the mutants, and try none")
    parser.add_argument("file", nargs="*", type=Path, help="a source file; without any, all of src/")
    options = parser.parse_args()
    paths = [path.resolve().relative_to(ROOT) for path in options.file]
    paths = paths or sorted(path.relative_to(ROOT) for path in ROOT.glob("src/**/*") if path.suffix in (".cpp", ".h"))
    mutants = [mutant for path in paths for mutant in mutants_of(path, (ROOT / path).read_text())]
    if options.list:
        print(*mutants, sep="\n")
        return True
    with tempfile.TemporaryDirectory(prefix="mutate.") as place:
        Path(place).chmod(0o755)
        return report(try_all(mutants, Path(place)))


if __name__ == "__main__":
    sys.exit(not main())
