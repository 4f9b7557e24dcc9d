"""Changes the sources one small thing at a time, and prints the changes that no test notices. script/mutate starts it.

Each processor has a copy of the tree. It builds one change after the other there, and runs CTest's tests in a box until
one fails. Quick tests come first, and tests that noticed other changes of the same file.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
from collections import Counter, defaultdict
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from queue import SimpleQueue

from mutants import Mutant, mutants_of

ROOT = Path(__file__).parents[2]
LOG = ROOT / "build/mutants.log"
EQUIVALENT = re.findall(r"^(src/\S+): (.*)", Path(__file__).with_name("equivalent").read_text(), re.MULTILINE)
WORKERS = os.cpu_count() or 1

# Optimised, because then a change without effect often gives the same program. No release build: its extra tests, of
# pages and completions, notice nothing.
CONFIGURE = ["cmake", "-B", "build", "-DCMAKE_BUILD_TYPE=", "-DNEBULARK_HARDENING=OFF"]
CONFIGURE += ["-DCMAKE_CXX_FLAGS=-O2 -w -D_GLIBCXX_ASSERTIONS -include fcntl.h -include sys/stat.h -include unistd.h"]
PROGRAMS = {"unit-tests": "tests/unit/unit-tests", "corpora": "tests/fuzz/replay"}  # every other test runs the tool
BOXED = ["setpriv", "--pdeathsig", "KILL", "tests/mutation/box"]
ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "CI": "1", "GTEST_FAIL_FAST": "1", "PYTEST_ADDOPTS": "-x"}


class Tree:
    """A copy of the tree, built."""

    def __init__(self, place: Path):
        self.place = place
        shutil.copytree(ROOT, place, ignore=shutil.ignore_patterns("build", ".git", "__pycache__"), symlinks=True)
        subprocess.run(CONFIGURE, cwd=place, stdout=subprocess.DEVNULL, check=True)
        if not self.build("all"):
            sys.exit("The unchanged sources cannot be built.")
        self.unchanged = {program: self.read(program) for program in ("nebulark-ctl", *PROGRAMS.values())}

    def build(self, target: str) -> bool:
        make = ["make", "--silent", f"--directory={self.place}/build", f"--jobs={WORKERS}", target]
        return subprocess.run(make, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def read(self, program: str) -> bytes:
        return (self.place / "build" / program).read_bytes()

    def test(self, *options: str, seconds: float = 0) -> tuple[bool, str]:
        """Runs tests. Returns whether they passed within so many seconds (0: no limit), and what they printed."""
        command = [*BOXED, "timeout", "--signal=KILL", str(seconds), "ctest", "--test-dir", "build"]
        command += ["--no-tests=error", *options]
        done = subprocess.run(command, cwd=self.place, env=ENVIRONMENT, capture_output=True, input="", errors="replace")
        return done.returncode == 0, done.stdout + done.stderr

    def verdict(self, mutant: Mutant, times: dict[str, float]) -> str:
        """The first test that notices the mutant, or why none does. `times` has the tests, each with its seconds."""
        changed = self.place / mutant.path
        changed.write_text(mutant.mutated())
        try:
            return self.killer(times) if self.build("nebulark-ctl") else "not compiled"
        finally:
            changed.write_text(mutant.text)

    def killer(self, times: dict[str, float]) -> str:
        verdict = "same program"
        for test, seconds in times.items():
            program = PROGRAMS.get(test, "nebulark-ctl")
            if not self.build(Path(program).name):
                return test
            if self.read(program) != self.unchanged[program]:
                verdict = "survived"
                if not self.test("-R", f"^{test}$", seconds=10 + 5 * seconds)[0]:
                    return test
        return verdict


def time_tests(tree: Tree) -> dict[str, float]:
    passed, said = tree.test("--parallel", str(WORKERS), "--output-on-failure")
    if not passed:
        sys.exit(f"{said}\nThe tests do not pass on the unchanged sources.")
    times = re.findall(r"Test +#\d+: (\S+) \.+ +Passed +([\d.]+) sec", said)
    return {name: float(seconds) for name, seconds in times}


def try_all(mutants: list[Mutant], place: Path) -> Counter[str]:
    """Prints the survivors, and counts the verdicts."""
    print("Building and testing the unchanged sources", file=sys.stderr)
    built = [Tree(place / str(number)) for number in range(WORKERS)]
    times = time_tests(built[0])
    free: SimpleQueue[Tree] = SimpleQueue()
    for tree in built:
        free.put(tree)
    noticed: dict[Path, Counter[str]] = defaultdict(Counter)  # by file and test
    verdicts: Counter[str] = Counter()

    def attempt(mutant: Mutant) -> tuple[Mutant, str, float]:
        tree, begun, by = free.get(), time.monotonic(), noticed[mutant.path]
        verdict = tree.verdict(mutant, dict(sorted(times.items(), key=lambda each: each[1] / (1 + by[each[0]]))))
        by[verdict] += 1
        free.put(tree)
        return mutant, verdict, time.monotonic() - begun

    LOG.parent.mkdir(exist_ok=True)
    with LOG.open("w") as log, ThreadPoolExecutor(WORKERS) as pool:
        for mutant, verdict, seconds in pool.map(attempt, mutants):
            verdicts[verdict] += 1
            print(f"{verdict:<24}{seconds:5.1f} s  {mutant}", file=log, flush=True)
            if verdict == "survived":
                print(f"\r{mutant}", flush=True)
            print(f"\r{verdicts.total()} of {len(mutants)} ", end="", file=sys.stderr, flush=True)
    return verdicts


def changed_since(revision: str) -> set[tuple[str, int]]:
    """The lines of src that are new or different: files and numbers."""
    git = ["git", "diff", "--unified=0", "--no-ext-diff", revision, "--", "src"]
    said = subprocess.run(git, cwd=ROOT, stdout=subprocess.PIPE, text=True, check=True).stdout
    changed: set[tuple[str, int]] = set()
    path = ""
    for name, first, count in re.findall(r"^(?:\+\+\+ b/(.*)|@@ \S+ \+(\d+)(?:,(\d+))? @@)", said, re.MULTILINE):
        path = name or path
        changed.update((path, int(first) + line) for line in range(int(count or 1)) if first)
    return changed


def chosen(files: list[Path], since: str | None) -> list[Mutant]:
    sources = sorted([path.resolve() for path in files] or ROOT.glob("src/*/*.*[ph]"))
    found = [mutant for source in sources for mutant in mutants_of(source.relative_to(ROOT), source.read_text())]
    for file, pattern in EQUIVALENT:
        same = {mutant for mutant in found if str(mutant.path) == file and re.search(pattern, mutant.change())}
        if not same and not files:
            sys.exit(f"tests/mutation/equivalent: no change of {file} is like {pattern}")
        found = [mutant for mutant in found if mutant not in same]
    if since is None:
        return found
    changed = changed_since(since)
    return [mutant for mutant in found if not changed.isdisjoint((str(mutant.path), line) for line in mutant.lines())]


def main() -> None:
    parser = argparse.ArgumentParser(
        prog="script/mutate", description="Prints the changes of src/ that no test notices."
    )
    parser.add_argument("--list", action="store_true", help="print the changes, and try none")
    parser.add_argument("--since", metavar="REVISION", help="change only lines that are new or different since then")
    parser.add_argument("file", nargs="*", type=Path, help="a source file; without any, all of src/")
    options = parser.parse_args()
    mutants = chosen(options.file, options.since)
    if options.list:
        print(*mutants, sep="\n")
        return
    with tempfile.TemporaryDirectory(prefix="mutate.") as place:
        Path(place).chmod(0o755)
        verdicts = try_all(mutants, Path(place))
    print("\n" + ", ".join(f"{verdict}: {count}" for verdict, count in verdicts.most_common()))
    sys.exit(verdicts["survived"] > 0)


if __name__ == "__main__":
    main()
