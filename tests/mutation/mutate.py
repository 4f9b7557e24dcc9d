"""Changes the sources one small thing at a time, and tells which changes no test notices. script/mutate starts it.

Each processor has a copy of the tree, and builds and tests one change after the other in it: the tests of CTest, in a
box, those first that are quick and have noticed changes of the same file. The first that fails is enough.
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

# Optimised, so that a change which makes no difference often makes the same program; and no release build, which adds
# tests that notice nothing, of pages and completions.
CONFIGURE = ["cmake", "-B", "build", "-DCMAKE_BUILD_TYPE=", "-DNEBULARK_HARDENING=OFF"]
CONFIGURE += ["-DCMAKE_CXX_FLAGS=-O2 -w -include fcntl.h -include sys/stat.h -include unistd.h"]
PROGRAMS = {"unit-tests": "tests/unit/unit-tests", "corpora": "tests/fuzz/replay"}  # what the others test is the tool
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
        make = ["make", "--silent", "-C", self.place / "build", f"--jobs={WORKERS}", target]
        return subprocess.run(make, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def read(self, program: str) -> bytes:
        return (self.place / "build" / program).read_bytes()

    def test(self, *options: str, limit: float | None = None) -> tuple[bool, str]:
        """Runs tests. Whether they passed within so many seconds, and what they printed."""
        command = ["setpriv", "--pdeathsig", "KILL", "tests/mutation/box", "ctest", "--test-dir", "build", *options]
        how = dict(env=ENVIRONMENT, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        try:
            done = subprocess.run(command, cwd=self.place, timeout=limit, start_new_session=True, **how)
            return done.returncode == 0, done.stdout.decode(errors="replace")
        except subprocess.TimeoutExpired:
            return False, ""

    def verdict(self, mutant: Mutant, tests: dict[str, float]) -> str:
        """The first of the tests, each with the time it takes, that notices a mutant; or why there is none."""
        changed = self.place / mutant.path
        changed.write_text(mutant.mutated())
        try:
            return self.killer(tests) if self.build("nebulark-ctl") else "not compiled"
        finally:
            changed.write_text(mutant.text)

    def killer(self, tests: dict[str, float]) -> str:
        verdict = "same program"
        for test, seconds in tests.items():
            program = PROGRAMS.get(test, "nebulark-ctl")
            if not self.build(Path(program).name):
                return test
            if self.read(program) != self.unchanged[program]:
                verdict = "survived"
                if not self.test("-R", f"^{test}$", limit=10 + 5 * seconds)[0]:
                    return test
        return verdict


def time_tests(tree: Tree) -> dict[str, float]:
    passed, said = tree.test("--parallel", str(WORKERS), "--output-on-failure")
    if not passed:
        sys.exit(f"{said}\nThe tests do not pass on the unchanged sources.")
    times = re.findall(r"Test +#\d+: (\S+) \.+ +Passed +([\d.]+) sec", said)
    return {name: float(seconds) for name, seconds in times}


def try_all(mutants: list[Mutant], place: Path) -> Counter:
    """Prints the survivors, and counts the verdicts."""
    print("Building and testing the unchanged sources", file=sys.stderr)
    built = [Tree(place / str(number)) for number in range(WORKERS)]
    times = time_tests(built[0])
    free: SimpleQueue[Tree] = SimpleQueue()
    for tree in built:
        free.put(tree)
    noticed: dict[Path, Counter] = defaultdict(Counter)  # how often by which test
    verdicts: Counter = Counter()

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
    """The lines of src, by file and number, that are not as they were."""
    git = ["git", "diff", "--unified=0", "--no-ext-diff", revision, "--", "src"]
    said = subprocess.run(git, cwd=ROOT, stdout=subprocess.PIPE, text=True, check=True).stdout
    changed, path = set(), ""
    for name, first, count in re.findall(r"^(?:\+\+\+ b/(.*)|@@ \S+ \+(\d+)(?:,(\d+))? @@)", said, re.MULTILINE):
        path = name or path
        changed.update((path, int(first) + line) for line in range(int(count or 1)) if first)
    return changed


def chosen(files: list[Path], since: str | None) -> list[Mutant]:
    changed = changed_since(since) if since else set()
    found, known = [], set()
    for source in sorted([path.resolve() for path in files] or ROOT.glob("src/*/*.*[ph]")):
        for mutant in mutants_of(source.relative_to(ROOT), source.read_text()):
            name, change = str(mutant.path), mutant.change()
            same = {(file, pattern) for file, pattern in EQUIVALENT if name == file and re.search(pattern, change)}
            known |= same
            if not same and not (since and changed.isdisjoint((name, line) for line in mutant.lines())):
                found.append(mutant)
    for file, pattern in set() if files else set(EQUIVALENT) - known:
        sys.exit(f"tests/mutation/equivalent: no change of {file} is like {pattern}")
    return found


def main():
    parser = argparse.ArgumentParser(prog="script/mutate", description="Tells which changes of src/ no test notices.")
    parser.add_argument("--list", action="store_true", help="print the changes, and try none")
    parser.add_argument("--since", metavar="REVISION", help="change only lines that are not as they were then")
    parser.add_argument("file", nargs="*", type=Path, help="a source file; without any, all of src/")
    options = parser.parse_args()
    mutants = chosen(options.file, options.since)
    if options.list:
        return print(*mutants, sep="\n")
    with tempfile.TemporaryDirectory(prefix="mutate.") as place:
        Path(place).chmod(0o755)
        verdicts = try_all(mutants, Path(place))
    print("\n" + ", ".join(f"{verdict}: {count}" for verdict, count in verdicts.most_common()))
    sys.exit(verdicts["survived"] > 0)


if __name__ == "__main__":
    main()
