"""Other programs change the cache during a clearing: the tool is stopped after one of its calls, and then goes on."""

import fcntl
import os
import re
import shutil
import signal
import stat
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from cache import CACHE, CLEAR, FITS, HOME, PHOTO, Cache, report, report_all
from machine import Outcome
from tracing import Call, Strace, strace

HANGS = 600  # seconds: only a hung run takes so long


def stopped_run(inside: Strace, words: list[str], stop: str, change: Callable) -> Outcome:
    inside.trace.unlink(missing_ok=True)
    with inside.start(words, "ann", ["-e", stop], HOME) as run:
        while not inside.trace.exists() or b"--- stopped by SIGSTOP ---" not in inside.trace.read_bytes():
            assert run.poll() is None
            os.sched_yield()
        tool = int(Path(f"/proc/{run.pid}/task/{run.pid}/children").read_text())
        try:
            change()
            os.kill(tool, signal.SIGCONT)
            out, err = run.communicate(timeout=HANGS)
        finally:
            if run.poll() is None:
                os.kill(tool, signal.SIGKILL)
    return Outcome(run.returncode, out, err)


def stopped_runs(
    cache: Cache, words: list[str], about: str, fill: Callable, change: Callable, expected: Outcome
) -> Iterator[tuple[Call, Outcome]]:
    """A run for each of the tool's calls about a place, stopped after this call. A normal run ends as expected."""
    with strace(cache.machine) as inside:
        fill()
        normal, trace = inside.run(words, "ann", env=HOME)
        assert normal == expected
        calls = [(call, which) for call, which, _ in trace if call.subject.startswith(about)]
        assert {call.name for call, _ in calls} >= {"newfstatat", "openat"}
        for call, (name, nth) in calls:
            fill()
            yield call, stopped_run(inside, words, f"inject={name}:signal=STOP:when={nth}", change)


NAMES = ["normal/m31.png", "normal/app/m31.png", "normal/app/deep/m31.png", "fail/app/harbour.png"]
OUTSIDE = ["m31.png", "harbour.png", "deep/m31.png", "app/m31.png"]  # the same names elsewhere


def directories(cache: Path) -> list[Path]:
    """All below the size directories; the deepest first, so that they can be renamed in this order."""
    return sorted((path for path in cache.glob("*/**/") if path.parent != cache), reverse=True)


def files(cache: Path) -> list[Path]:
    return [path for path in cache.rglob("*.png") if path.is_file()]


def rename(cache: Path):
    for path in [*files(cache), *directories(cache)]:
        path.rename(path.with_name("renamed " + path.name))


def swap_kinds(cache: Path):
    for path in files(cache):
        path.unlink()
        path.mkdir()
    for path in directories(cache):
        if not any(path.iterdir()):
            path.rmdir()
            path.write_bytes(PHOTO)


def link_directories(cache: Path):
    for number, path in enumerate(directories(cache)):
        path.rename(cache / f"aside{number}")
        path.symlink_to("/home/ann/Pictures")


def pipe_directories(cache: Path):
    for number, path in enumerate(directories(cache)):
        path.rename(cache / f"aside{number}")
        os.mkfifo(path)


CHANGES = [rename, swap_kinds, link_directories, pipe_directories]


@pytest.mark.parametrize("change", CHANGES, ids=lambda change: change.__name__)
@pytest.mark.parametrize("words, expected", [([], report(3, 1)), (["--all"], report_all(4))], ids=["default", "all"])
def test_only_files_of_the_cache_are_deleted_and_counted(cache, change, words, expected):
    outside = cache.machine.ann / "Pictures"
    gone, there = 0, {}

    def fill():
        shutil.rmtree(cache.path, ignore_errors=True)
        for name in NAMES:
            cache.put(PHOTO if "harbour" in name else FITS, name)

    def contents() -> dict[Path, bytes | None]:
        entries = [path for path in cache.path.rglob("*") if path.is_symlink() or not path.is_dir()]
        return {path: path.read_bytes() if path.is_file() else None for path in entries}

    def change_and_look():
        nonlocal gone, there
        gone = len(NAMES) - len(contents())
        change(cache.path)
        there = contents()

    cache.put(FITS, *(f"../../Pictures/{name}" for name in OUTSIDE))
    untouched = {path: path.read_bytes() for path in outside.rglob("*.png")}
    for call, run in stopped_runs(cache, [*CLEAR, *words], CACHE, fill, change_and_look, expected):
        deleted = [there[path] for path in there.keys() - contents().keys()]
        removed, *left = (int(number) for number in re.findall(rb"(?:Removed|Left) (\d+)", run.out))
        assert (run.status, run.err) == (0, b""), call
        assert removed == gone + len(deleted), call
        # A file that moves while its directory is read may be left and counted under both names.
        assert removed + sum(left) <= len({cache.at(name) for name in NAMES} | there.keys()), call
        # A file that replaces a judged file may be deleted instead.
        assert words or change is swap_kinds or PHOTO not in deleted, call
        assert {path: path.read_bytes() for path in outside.rglob("*.png")} == untouched, call


@pytest.fixture
def moving(cache):
    """A directory outside the cache; a function that fills the cache; and one that moves normal/sub to that directory,
    and makes another with FITS thumbnails of the same names."""
    moved = cache.machine.ann / "moved"

    def fill(content: bytes):
        for place in (moved, cache.path):
            shutil.rmtree(place, ignore_errors=True)
        cache.put(content, "normal/sub/x.png", "normal/sub/y.png")

    def move():
        cache.at("normal/sub").rename(moved)
        cache.put(FITS, "normal/sub/x.png", "normal/sub/y.png")

    return moved, fill, move


X = f"{CACHE}/normal/sub/x.png"


def test_thumbnail_is_not_judged_by_one_in_a_new_directory(cache, moving):
    moved, fill, move = moving
    runs = list(stopped_runs(cache, CLEAR, X, lambda: fill(PHOTO), move, report(0, 2)))
    assert {run for _, run in runs} == {report(0, 2)}
    assert {call.name for call, _ in runs} >= {"newfstatat", "openat", "pread64", "close"}
    assert {path.name: path.read_bytes() for path in moved.iterdir()} == {"x.png": PHOTO, "y.png": PHOTO}


def test_directory_that_moves_out_of_the_cache_is_still_cleared(cache, moving):
    # The tool has it open, and uses no path.
    moved, fill, move = moving
    for call, run in stopped_runs(cache, CLEAR, X, lambda: fill(FITS), move, report(2)):
        assert run == report(2), call
        assert list(moved.iterdir()) == []
        assert len(files(cache.path)) == 2


@pytest.mark.parametrize("kind", ["pipe", "link"])
def test_file_that_becomes_something_else_before_it_is_opened_counts_as_left(cache, kind):
    path = cache.at("normal/x.png")

    def fill():
        path.unlink(missing_ok=True)
        cache.put(PHOTO, "normal/x.png")
        cache.put(FITS, "../../m31.png")

    def change():
        path.unlink()
        os.mkfifo(path) if kind == "pipe" else path.symlink_to("/home/ann/m31.png")

    has_status = False
    for call, run in stopped_runs(cache, CLEAR, f"{CACHE}/normal/x.png", fill, change, report(0, 1)):
        has_status |= call.name == "newfstatat"
        assert run == report(0, 1 if has_status else 0), call
        assert stat.S_ISFIFO(path.lstat().st_mode) if kind == "pipe" else path.is_symlink()


def test_file_under_a_write_lease_counts_as_left_and_is_not_waited_for(cache):
    cache.put(FITS, "normal/leased.png", "normal/m31.png")
    with open(cache.at("normal/leased.png"), "r+b") as file:
        fcntl.fcntl(file, fcntl.F_SETSIG, signal.SIGURG)  # by default the request to end the lease would kill the tests
        fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_WRLCK)
        assert cache.clear() == (report(1, 1), {"normal/m31.png"})
        assert fcntl.fcntl(file, fcntl.F_GETLEASE) == fcntl.F_RDLCK  # its holder is asked to let others read
