"""Others at work on the same files at the same moment, and a tool that is killed on the way."""

import fcntl
import os
import re
import shutil
import signal
import stat
import subprocess
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import NamedTuple

import pytest
import texts
from cache import CACHE, FITS, PHOTO, report
from machine import RUN_TOOL, Outcome
from texts import COULD_NOT_WRITE, HINT, listing, stored
from tracing import PATHS, Call, Strace, counts_lines, is_sanitized, is_the_tools, strace

SET_MONO = ["--set", "cfa=mono"]
RUN = " ".join(RUN_TOOL)
HOME = {"HOME": "/home/ann"}
HANGS = 600  # seconds: so long nothing takes that ends
AUTO, MONO, COLOR = (stored(cfa=cfa) for cfa in ("auto", "mono", "color"))


# Saving


def test_killed_at_any_call_a_save_leaves_the_old_file_or_the_new_one(machine, installed_tool):
    if counts_lines(installed_tool):
        pytest.skip("a killed run leaves no counts of its lines, and one that ends does so with calls of their own")
    text = listing(cfa="mono") + HINT
    with strace(machine) as inside:
        machine.prefs.write_bytes(AUTO)
        outcome, undisturbed = inside.run(SET_MONO)
        assert outcome == (0, text, b"")
        left, said = AUTO, b""
        for traced in undisturbed[1:]:  # the first one starts the tool
            if is_sanitized(installed_tool) and not is_the_tools(traced.call):
                continue
            name, nth = traced.raw
            machine.prefs.write_bytes(AUTO)
            outcome, trace = inside.run(SET_MONO, options=["-e", f"inject={name}:signal=KILL:when={nth}"])
            assert outcome == (-signal.SIGKILL, said, b""), traced.call
            assert trace[-1].call == traced.call
            assert machine.prefs.read_bytes() == left, traced.call
            # Nothing that it left is in the way of the next one.
            assert machine.run("--set", "cfa=color") == (0, listing(cfa="color") + HINT, b""), traced.call
            assert (machine.prefs.read_bytes(), os.listdir(machine.prefs.parent)) == (COLOR, [machine.prefs.name])
            if traced.call.name == "rename":
                left = MONO
            if traced.call[:2] == ("write", "stdout"):
                said = text[: len(said) + int(traced.words.rpartition("= ")[2])]
        assert (left, said) == (MONO, text)


def in_a_loop(inside: Strace, script: str, rounds: str) -> subprocess.Popen:
    """A process that runs a shell script over and over, while what `rounds` says of the round n is true."""
    loop = f"n=0; while n=$((n + 1)); {rounds}; do {script}; done"
    pipes = dict(stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return subprocess.Popen([*inside.inside, "sh", "-c", loop], env=PATHS, cwd="/", **pipes)


def test_readers_beside_a_saver_see_one_whole_file(machine):
    machine.prefs.write_bytes(AUTO)
    save = f"{RUN} --set cfa=mono >/dev/null; {RUN} --set cfa=auto >/dev/null"
    read = set()
    with strace(machine) as inside:
        saver = in_a_loop(inside, save, rounds="[ ! -e /home/enough ]")
        # What 200 runs say is 35 KiB, which waits in a pipe until they have ended.
        readers = [in_a_loop(inside, f"{RUN} --prefs", rounds="[ $n -le 200 ]") for _ in range(4)]
        try:
            while len(read) < 2 or any(reader.poll() is None for reader in readers):
                assert saver.poll() is None
                read |= {machine.prefs.read_bytes() for _ in range(200)}
        finally:
            (machine.home / "enough").touch()
        assert (*saver.communicate(timeout=HANGS), saver.returncode) == (b"", b"", 0)
        assert read == {AUTO, MONO}
        for reader in readers:
            shown, errors = reader.communicate()
            auto, mono = (texts.shown(cfa=cfa) for cfa in ("auto", "mono"))
            assert shown.count(auto) + shown.count(mono) == 200
            assert (shown.replace(auto, b"").replace(mono, b""), errors, reader.returncode) == (b"", b"", 0)


def test_savers_at_the_same_moment_come_to_an_end_and_the_next_one_is_right(machine):
    # They share the temporary file, so that one may take it from another, and what they leave is not promised. That
    # there is a file spares them asking for rights: the first one may appear between the two looks for it.
    machine.prefs.write_bytes(AUTO)
    with strace(machine) as inside:
        words = ["cfa=mono", "cfa=color", "labelcorner=topleft", "brightness=darker"]
        save = f"{RUN} --set {{}} >/dev/null; echo $?"
        for saver in [in_a_loop(inside, save.format(word), rounds="[ $n -le 150 ]") for word in words]:
            statuses, messages = saver.communicate(timeout=HANGS)
            assert saver.returncode == 0
            assert set(statuses.split()) <= {b"0", b"1"}
            assert messages == COULD_NOT_WRITE * statuses.count(b"1")
    everything = dict(autostretch="off", brightness="brighter", cfa="color", labelformat="on", labelcorner="topright")
    last = machine.run("--set", *(f"{name}={word}" for name, word in everything.items()))
    assert last == (0, listing(**everything) + HINT, b"")
    assert machine.prefs.read_bytes() == stored(**everything)
    assert os.listdir(machine.prefs.parent) == [machine.prefs.name]


# Clearing. The tool is stopped after each of its calls in turn, somebody else changes the cache, and it goes on.

NAMES = ["normal/m31.png", "normal/app/m31.png", "normal/app/deep/m31.png", "fail/app/harbour.png"]
OUTSIDE = ["m31.png", "harbour.png", "deep/m31.png", "app/m31.png"]  # what the same names would be elsewhere


def directories(cache: Path) -> list[Path]:
    """Those below the size directories; the deepest first, so that they can be renamed in this order."""
    return sorted((path for path in cache.glob("*/**/") if path.parent != cache), reverse=True)


def files(cache: Path) -> list[Path]:
    return [path for path in cache.rglob("*.png") if path.is_file()]


def empty(cache: Path):
    for path in list(cache.iterdir()):
        shutil.rmtree(path)


def fill(cache: Path):
    for directory in cache.glob("**/"):
        for name in ("new.png", "another.png"):
            (directory / name).write_bytes(FITS)


def rename(cache: Path):
    for path in [*files(cache), *directories(cache)]:
        path.rename(path.with_name("renamed " + path.name))


def link_files(cache: Path):
    for path in files(cache):
        path.unlink()
        path.symlink_to("/home/ann/Pictures/m31.png")


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


def pipe_files(cache: Path):
    for path in files(cache):
        path.unlink()
        os.mkfifo(path)


CHANGES = [empty, fill, rename, link_files, pipe_files, swap_kinds, link_directories, pipe_directories]


@contextmanager
def stopped_after(inside: Strace, words: list[str], raw: tuple[str, int]) -> Iterator[tuple[subprocess.Popen, int]]:
    """A run that stands still after a call, and the process id of the tool in it."""
    name, nth = raw
    stop = ["-e", f"inject={name}:signal=STOP:when={nth}"]
    inside.trace.unlink(missing_ok=True)
    pipes = dict(stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    command = inside.command(words, "ann", stop, HOME)
    with subprocess.Popen(command, env=PATHS, cwd="/", **pipes) as run:
        while not inside.trace.exists() or b"--- stopped by SIGSTOP ---" not in inside.trace.read_bytes():
            assert run.poll() is None
            os.sched_yield()
        tool = int(Path(f"/proc/{run.pid}/task/{run.pid}/children").read_text())
        try:
            yield run, tool
        finally:
            if run.poll() is None:
                os.kill(tool, signal.SIGKILL)


@pytest.mark.parametrize("change", CHANGES, ids=lambda change: change.__name__)
@pytest.mark.parametrize("words", [[], ["--all"]], ids=["default", "all"])
def test_whatever_others_do_to_the_cache_only_files_in_it_are_deleted_and_counted(machine, cache, change, words):
    outside = machine.ann / "Pictures"

    def furnish():
        shutil.rmtree(cache.path, ignore_errors=True)
        for name in NAMES:
            cache.put(PHOTO if "harbour" in name else FITS, name)

    def contents() -> dict[Path, bytes | None]:
        entries = [path for path in cache.path.rglob("*") if path.is_symlink() or not path.is_dir()]
        return {path: path.read_bytes() if path.is_file() else None for path in entries}

    command = ["--clear-thumb-cache", *words]
    cache.put(FITS, *(f"../../Pictures/{name}" for name in OUTSIDE))
    untouched = {path: path.read_bytes() for path in outside.rglob("*.png")}
    with strace(machine) as inside:
        furnish()
        _, undisturbed = inside.run(command, "ann", env=HOME)
        for traced in undisturbed:
            if not traced.call.subject.startswith(CACHE):
                continue
            furnish()
            with stopped_after(inside, command, traced.raw) as (run, tool):
                gone = len(NAMES) - len(contents())
                change(cache.path)
                there = contents()
                os.kill(tool, signal.SIGCONT)
                out, err = run.communicate(timeout=HANGS)
            deleted = [there[path] for path in there.keys() - contents().keys()]
            removed, *left = (int(number) for number in re.findall(rb"(?:Removed|Left) (\d+)", out))
            assert (run.returncode, err) == (0, b""), traced.call
            assert removed == gone + len(deleted), traced.call
            # What moves while its directory is read may be met, and left, under both names.
            assert removed + sum(left) <= len({cache.at(name) for name in NAMES} | there.keys()), traced.call
            # What takes a file's place in its directory, after that was judged, may go for it.
            assert words or change is swap_kinds or PHOTO not in deleted, traced.call
            assert {path: path.read_bytes() for path in outside.rglob("*.png")} == untouched, traced.call


class Meddled(NamedTuple):
    """A run during which somebody changed the cache, and the call of the tool after which that was."""

    after: Call
    outcome: Outcome


def meddled_runs(machine, cache, furnish: Callable, name: str, change: Callable) -> Iterator[Meddled]:
    """A run for each of the tool's calls about a file of the cache, in their order."""
    command = ["--clear-thumb-cache"]
    with strace(machine) as inside:
        furnish()
        _, undisturbed = inside.run(command, "ann", env=HOME)
        for traced in undisturbed:
            if traced.call.subject != f"{CACHE}/{name}" or traced.call.name == "unlink":
                continue
            furnish()
            with stopped_after(inside, command, traced.raw) as (run, tool):
                change()
                os.kill(tool, signal.SIGCONT)
                out, err = run.communicate(timeout=HANGS)
            yield Meddled(traced.call, Outcome(run.returncode, out, err))


@pytest.fixture
def moving(machine, cache):
    """A directory in the cache, a place outside for it, and two functions: one that makes it, one that moves it out and
    puts another in its place, with a FITS thumbnail of the same name."""
    moved = machine.ann / "moved"

    def furnish(content: bytes):
        for place in (moved, cache.path):
            shutil.rmtree(place, ignore_errors=True)
        cache.put(content, "normal/sub/x.png", "normal/sub/y.png")

    def move():
        cache.at("normal/sub").rename(moved)
        cache.put(FITS, "normal/sub/x.png", "normal/sub/y.png")

    return moved, furnish, move


def test_a_thumbnail_is_not_judged_by_one_that_takes_its_place_with_its_directory(machine, cache, moving):
    moved, furnish, move = moving
    runs = list(meddled_runs(machine, cache, lambda: furnish(PHOTO), "normal/sub/x.png", move))
    assert {run.outcome for run in runs} == {report(0, 2)}
    assert {run.after.name for run in runs} >= {"newfstatat", "openat", "pread64", "close"}
    assert {path.name: path.read_bytes() for path in moved.iterdir()} == {"x.png": PHOTO, "y.png": PHOTO}


def test_a_directory_that_is_moved_out_of_the_cache_is_cleared_to_its_end(machine, cache, moving):
    # Whoever moves it has it open under its new name; the tool has no name for it at all.
    moved, furnish, move = moving
    for run in meddled_runs(machine, cache, lambda: furnish(FITS), "normal/sub/x.png", move):
        assert run.outcome == report(2), run
        assert list(moved.iterdir()) == []
        assert len(files(cache.path)) == 2


@pytest.mark.parametrize("kind", ["pipe", "link"])
def test_a_file_that_becomes_something_else_before_it_is_opened_counts_as_left(machine, cache, kind):
    path = cache.at("normal/x.png")
    outside = machine.ann / "m31.png"

    def furnish():
        path.unlink(missing_ok=True)
        cache.put(PHOTO, "normal/x.png")
        outside.write_bytes(FITS)

    def change():
        path.unlink()
        os.mkfifo(path) if kind == "pipe" else path.symlink_to("/home/ann/m31.png")

    has_status = False
    for run in meddled_runs(machine, cache, furnish, "normal/x.png", change):
        has_status |= run.after.name == "newfstatat"
        assert run.outcome == report(0, 1 if has_status else 0), run
        assert stat.S_ISFIFO(path.lstat().st_mode) if kind == "pipe" else path.is_symlink()
    assert has_status


def test_a_file_under_a_write_lease_counts_as_left_and_is_not_waited_for(cache):
    cache.put(FITS, "normal/leased.png", "normal/m31.png")
    with open(cache.at("normal/leased.png"), "r+b") as file:
        fcntl.fcntl(file, fcntl.F_SETSIG, signal.SIGURG)  # by default the request to end the lease would kill the tests
        fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_WRLCK)
        assert cache.clear() == (report(1, 1), {"normal/m31.png"})
        assert fcntl.fcntl(file, fcntl.F_GETLEASE) == fcntl.F_RDLCK  # its holder is asked to let others read
