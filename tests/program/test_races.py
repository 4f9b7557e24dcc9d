"""Other programs change the cache during a clearing: the tool is stopped after one of its calls, and then goes on."""

import os
import re
import shutil
import signal
from collections.abc import Callable
from pathlib import Path

import pytest
from cache import CACHE, CLEAR, FITS, HOME, PHOTO, Cache, clearing, report, report_all
from machine import HANGS, Outcome, entries
from tracing import Strace, strace


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


NAMES = ["normal/m31.png", "normal/app/m31.png", "normal/app/deep/m31.png", "fail/app/harbour.png"]


def fill(cache: Cache):
    shutil.rmtree(cache.path, ignore_errors=True)
    for name in NAMES:
        cache.put(PHOTO if "harbour" in name else FITS, name)


def put_others(cache: Cache, place: Path):
    """Files of the same names, with the other content."""
    cache.put(PHOTO, *(place / name for name in ("m31.png", "deep/m31.png", "app/m31.png")))
    cache.put(FITS, place / "harbour.png")


def directories(cache: Cache) -> list[Path]:
    """All below the size directories; the deepest first, so that they can be renamed in this order."""
    return sorted((path for path in cache.path.glob("*/**/") if path.parent != cache.path), reverse=True)


def files(cache: Cache) -> list[Path]:
    return [path for path in cache.path.rglob("*.png") if path.is_file()]


def rename(cache: Cache):
    for path in [*files(cache), *directories(cache)]:
        path.rename(path.with_name("renamed " + path.name))


def replace(paths: Callable[[Cache], list[Path]], make: Callable[[Cache, Path], object]) -> Callable[[Cache], None]:
    """A change that moves these out of the size directories, and makes something else in their place."""

    def change(cache: Cache):
        for number, path in enumerate(paths(cache)):
            path.rename(cache.path / f"aside{number}")
            make(cache, path)

    return change


CHANGES = {
    "all are renamed": rename,
    "files become directories": replace(files, lambda cache, path: path.mkdir()),
    "files become others": replace(files, lambda cache, path: path.write_bytes(b"no photo")),
    "directories become files": replace(directories, lambda cache, path: path.write_bytes(PHOTO)),
    "directories become links": replace(directories, lambda cache, path: path.symlink_to("/home/ann/Pictures")),
    "directories become others": replace(directories, put_others),
}


def contents(cache: Cache) -> dict[Path, bytes | None]:
    entries = [path for path in cache.path.rglob("*") if path.is_symlink() or not path.is_dir()]
    return {path: path.read_bytes() if path.is_file() else None for path in entries}


@pytest.mark.parametrize("change", CHANGES.values(), ids=CHANGES)
@clearing(report(3, 1), report_all(4))
def test_only_files_of_the_cache_are_deleted_and_counted(cache, change, words, result):
    outside = cache.machine.ann / "Pictures"
    put_others(cache, outside)
    untouched = entries(outside)
    gone, there = 0, {}

    def change_and_look():
        nonlocal gone, there
        gone = len(NAMES) - len(contents(cache))
        change(cache)
        there = contents(cache)

    with strace(cache.machine) as inside:
        fill(cache)
        normal, trace = inside.run([*CLEAR, *words], "ann", env=HOME)
        assert normal == result
        calls = [(call, which) for call, which, _ in trace if call.subject.startswith(CACHE)]
        assert {call.name for call, _ in calls} >= {"newfstatat", "openat", "unlink"}
        for call, (name, nth) in calls:
            fill(cache)
            run = stopped_run(inside, [*CLEAR, *words], f"inject={name}:signal=STOP:when={nth}", change_and_look)
            deleted = [there[path] for path in there.keys() - contents(cache).keys()]
            removed, *left = (int(number) for number in re.findall(rb"(?:Removed|Left) (\d+)", run.out))
            assert (run.status, run.err) == (0, b""), call
            assert removed == gone + len(deleted), call
            # A file that moves while its directory is read may be left and counted under both names.
            assert removed + sum(left) <= len({cache.at(name) for name in NAMES} | there.keys()), call
            # A file that replaces a judged one in its directory may be deleted instead. Here that is never a photo.
            assert words or PHOTO not in deleted, call
            assert entries(outside) == untouched, call


def test_directory_that_moves_out_of_the_cache_is_cleared_to_its_end(cache):
    # The tool has it open, and uses no path.
    cache.put(FITS, "normal/app/m31.png", "normal/app/m33.png")
    moved = cache.machine.ann / "moved"
    with strace(cache.machine) as inside:
        stop = "inject=?unlink,unlinkat:signal=STOP:when=1"
        run = stopped_run(inside, CLEAR, stop, lambda: cache.at("normal/app").rename(moved))
    assert (run, list(moved.iterdir())) == (report(2), [])
