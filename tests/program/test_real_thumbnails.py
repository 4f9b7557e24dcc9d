"""Thumbnails as other programs write them: the sample cache, and what the real programs draw now."""

import hashlib
import os
import shutil
import subprocess
from pathlib import Path

import pytest
from cache import report, report_all
from machine import ANN, PROJECT, SUPPORT

# Names the program with which Tumbler draws FITS pictures.
THUMBNAILER = """\
[Thumbnailer Entry]
Exec=/usr/bin/convert fits:%i -thumbnail %sx%s png:%o
MimeType=application/fits;
"""
CONVERT = "/usr/bin/convert"


class Painters:
    """Ann's pictures, and the programs that draw thumbnails of them into her cache."""

    def __init__(self, cache):
        self.cache, self.home = cache, cache.machine.ann
        self.pictures = self.home / "Pictures"
        self.pictures.mkdir()
        (self.home / ".local/share/thumbnailers").mkdir(parents=True)
        (self.home / ".local/share/thumbnailers/fits.thumbnailer").write_text(THUMBNAILER)
        places = {"XDG_CACHE_HOME": ".cache", "XDG_CONFIG_HOME": ".config", "XDG_DATA_HOME": ".local/share", "HOME": ""}
        self.env = {name: str(self.home / place) for name, place in places.items()}
        self.env |= {"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "GSETTINGS_BACKEND": "memory"}

    def call(self, *command):
        done = subprocess.run(command, cwd=self.pictures, env=self.env, capture_output=True, text=True, timeout=60)
        assert done.returncode == 0, done.stderr

    def draw(self, *names):
        """Makes pictures, each in the format of its name. ImageMagick does not know all names of FITS files."""
        for name in names:
            kind = "fits:" if Path(name).suffix.lower().startswith(".f") else ""
            self.call(CONVERT, "-size", "30x20", "gradient:navy-gold", "-colorspace", "gray", kind + name)

    def thumbnail(self, *words):
        self.call("dbus-run-session", "--", SUPPORT / "thumbnail.py", *words)

    def cached(self, names, size="normal") -> set[str]:
        """Where the thumbnails of pictures belong."""
        uris = [(self.pictures / name).as_uri() for name in names]
        return {f"{size}/{hashlib.md5(uri.encode()).hexdigest()}.png" for uri in uris}

    def check_cleared(self, gone: set[str], kept: set[str]):
        for path in self.home.rglob("*"):
            os.chown(path, ANN, ANN)
        files = {str(path.relative_to(self.cache.path)) for path in self.cache.path.rglob("*") if path.is_file()}
        assert files == gone | kept
        assert self.cache.clear() == (report(len(gone), len(kept)), gone)
        assert self.cache.clear("--all") == (report_all(len(kept)), kept)


@pytest.fixture
def painters(cache):
    return Painters(cache)


def test_tumblers_thumbnails_of_fits_pictures_are_deleted(painters):
    fits, photos = ["m31.fits", "Orion Nebula.FIT", "horsehead.fts"], ["harbour.jpg", "light house.png", "m31.fits.png"]
    painters.draw(*fits, *photos)
    for size in ("normal", "large"):
        painters.thumbnail("tumbler", size, *fits, *photos)
    gone, kept = (painters.cached(names) | painters.cached(names, "large") for names in (fits, photos))
    painters.check_cleared(gone, kept)


def test_gnomes_thumbnails_and_failure_markers_of_nebulark_files_are_deleted(painters):
    ours, others = ["m31.fits", "m42.xisf", "Stack.KXPROJ"], ["harbour.jpg", "light house.png"]
    failed, others_failed = ["cut-short.fit", "old.xisf"], ["holiday.mp4"]
    painters.draw("drawn.png")
    for name in (*ours, *others, *failed, *others_failed):
        (painters.pictures / name).touch()
    for name in (*ours, *others):
        painters.thumbnail("gnome", "normal", name, "drawn.png")
    painters.thumbnail("gnome-failed", *failed, *others_failed)
    fail = "fail/gnome-thumbnail-factory"
    gone = painters.cached(ours) | painters.cached(failed, fail)
    painters.check_cleared(gone, painters.cached(others) | painters.cached(others_failed, fail))


def test_nebularks_thumbnails_of_the_sample_cache_are_deleted(painters):
    shutil.copytree(PROJECT / "tests/samples/thumbnails", painters.cache.path)
    names = [str(path.relative_to(painters.cache.path)) for path in painters.cache.path.rglob("*.png")]
    beginnings = (
        *("normal/bb2774bd", "normal/126cec4c", "normal/912b08b6", "normal/a0966370", "large/bb2774bd"),
        *("fail/gnome-thumbnail-factory/a53c3eb9", "fail/gnome-thumbnail-factory/30545238"),
    )
    gone = {name for name in names if name.startswith(beginnings)}
    assert (len(gone), len(names)) == (7, 12)
    painters.check_cleared(gone, {*names} - gone)
