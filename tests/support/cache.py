"""A thumbnail cache on a machine, and what clearing it prints."""

import os
import stat
from pathlib import Path

import png
import pytest
from machine import ANN, Machine, Outcome

FITS = png.thumbnail("file:///home/ann/Pictures/m31.fits")
PHOTO = png.thumbnail("file:///home/ann/Pictures/harbour.jpg")

CACHE = "/home/ann/.cache/thumbnails"  # as the tool sees it
HOME = {"HOME": "/home/ann"}
# Moves all to a file system that takes every size, time and depth, and ends with the run.
ON_TMPFS = f"mount -t tmpfs tmpfs /mnt; cp -a /home/ann /mnt; mount --move /mnt /home; cd {CACHE}/normal"
CLEAR = ["--clear-thumb-cache"]


def clearing(by_default, with_all):
    """Runs a test without and with --all, each with its result."""
    return pytest.mark.parametrize("words, result", [([], by_default), (["--all"], with_all)], ids=["default", "all"])


def report(removed: int, left: int = 0, place: str = CACHE) -> Outcome:
    counts = f"Removed {removed} Nebulark thumbnail{'s' * (removed != 1)}. "
    counts += f"Left {left} belonging to other applications.\n"
    return Outcome(0, counts.encode() + advice(removed, place), b"")


def report_all(removed: int, place: str = CACHE) -> Outcome:
    counts = f"Removed {removed} cached thumbnail{'s' * (removed != 1)}, for every application.\n"
    return Outcome(0, counts.encode() + advice(removed, place), b"")


def advice(removed: int, place: str) -> bytes:
    if removed:
        return b"Close and reopen your file manager to see them redrawn.\n"
    return b"Nothing to remove: there were no cached Nebulark thumbnails in " + os.fsencode(place) + b".\n"


class Cache:
    """The cache of ann, an ordinary user: CACHE for the tool, `path` for the test."""

    def __init__(self, machine: Machine):
        self.machine = machine
        self.path = machine.ann / ".cache/thumbnails"

    def at(self, name: str | Path) -> Path:
        return Path(os.path.normpath(self.path / name))

    def directory(self, name: str | Path, mode: int = 0o700) -> Path:
        """Makes a directory of this mode, and its parents, for ann."""
        path = self.at(name)
        for missing in [each for each in (path, *path.parents) if not each.exists()][::-1]:
            missing.mkdir()
            os.chown(missing, ANN, ANN)
        path.chmod(mode)
        return path

    def put(self, content: bytes, *names: str | Path):
        """Makes files, and the directories that they need, for ann."""
        for path in map(self.at, names):
            if not path.parent.exists():
                self.directory(path.parent)
            path.write_bytes(content)
            os.chown(path, ANN, ANN)

    def clear(self, *words: str, user="ann", env=HOME, **how) -> tuple[Outcome, set[str]]:
        """Clears the cache. Returns the outcome and the names of the deleted files, below the cache or else below
        /home. Fails if anything else in /home changed."""
        before = snapshot(self.machine.home)
        outcome = self.machine.run(*CLEAR, *words, user=user, env=env, **how)
        after = snapshot(self.machine.home)
        gone = before.keys() - after.keys()
        assert after == {name: state for name, state in before.items() if name not in gone}
        return outcome, {name.removeprefix("ann/.cache/thumbnails/") for name in gone}


def snapshot(top: Path) -> dict[str, tuple[int, ...]]:
    """The state of all entries below a directory, however deep."""
    found = {}
    for directory, subdirectories, others, fd in os.fwalk(top):
        for name in (*subdirectories, *others):
            status = os.lstat(name, dir_fd=fd)
            of_a_file = (status.st_size, status.st_mtime_ns) * (not stat.S_ISDIR(status.st_mode))
            found[f"{directory}/{name}"[len(f"{top}/") :]] = (status.st_mode, status.st_uid, status.st_ino, *of_a_file)
    return found
