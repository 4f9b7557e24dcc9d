"""Thumbnails as other programs write them: the sample cache, and ones that the real programs draw here and now."""

import hashlib
import os
import shutil
import subprocess
from pathlib import Path

import png
import pytest
from cache import report, report_all
from machine import ANN, PROJECT, SUPPORT

# Tumbler draws FITS pictures with whatever an entry like this, here for ImageMagick, tells it to call.
THUMBNAILER = """\
[Thumbnailer Entry]
Exec=/usr/bin/convert fits:%i -thumbnail %sx%s png:%o
MimeType=application/fits;
"""

FITS = ["m31.fits", "Orion Nebula.FIT", "horsehead.fts"]
PHOTOS = ["harbour.jpg", "light house.png", "m31.fits.png"]


class Painters:
    """Ann's pictures, and the programs that draw thumbnails of them into her cache."""

    def __init__(self, cache):
        self.cache, home = cache, cache.machine.ann
        self.pictures = home / "Pictures"
        self.pictures.mkdir()
        (home / ".local/share/thumbnailers").mkdir(parents=True)
        (home / ".local/share/thumbnailers/fits.thumbnailer").write_text(THUMBNAILER)
        self.env = {
            "PATH": "/usr/bin:/bin",
            "LANG": "C.UTF-8",
            "HOME": str(home),
            "XDG_CACHE_HOME": str(home / ".cache"),
            "XDG_CONFIG_HOME": str(home / ".config"),
            "XDG_DATA_HOME": str(home / ".local/share"),
            "GSETTINGS_BACKEND": "memory",
        }

    def call(self, *command):
        done = subprocess.run(command, cwd=self.pictures, env=self.env, capture_output=True, text=True, timeout=60)
        assert done.returncode == 0, done.stderr

    def draw(self, *names):
        """Makes pictures, each of the kind that its name says; ImageMagick does not know all names of FITS files."""
        for name in names:
            kind = "fits:" if Path(name).suffix.lower().startswith(".f") else ""
            self.call("/usr/bin/convert", "-size", "30x20", "gradient:navy-gold", "-colorspace", "gray", kind + name)

    def thumbnail(self, *words):
        self.call("dbus-run-session", "--", SUPPORT / "thumbnail.py", *words)

    def cached(self, name, size="normal") -> str:
        """Where the thumbnail of a picture belongs."""
        uri = (self.pictures / name).as_uri()
        return f"{size}/{hashlib.md5(uri.encode()).hexdigest()}.png"

    def files(self) -> set[str]:
        """All the thumbnails there are. They become ann's, with all else that the programs made here."""
        home = self.cache.machine.ann
        for path in home.rglob("*"):
            os.chown(path, ANN, ANN)
        return {str(path.relative_to(self.cache.path)) for path in self.cache.path.rglob("*") if path.is_file()}


@pytest.fixture
def painters(cache):
    return Painters(cache)


def test_of_thumbnails_by_tumbler_those_of_fits_pictures_go(painters):
    painters.draw(*FITS, *PHOTOS)
    sizes = ["normal", "large"]
    for size in sizes:
        painters.thumbnail("tumbler", size, *FITS, *PHOTOS)
    fits, photos = ({painters.cached(name, size) for name in names for size in sizes} for names in (FITS, PHOTOS))
    assert painters.files() == fits | photos
    assert painters.cache.clear() == (report(6, 6), fits)
    assert painters.cache.clear("--all") == (report_all(6), photos)


def test_of_thumbnails_and_failure_markers_by_gnome_those_of_nebulark_files_go(painters):
    ours, others = ["m31.fits", "m42.xisf", "Stack.KXPROJ"], ["harbour.jpg", "light house.png"]
    failed, others_failed = ["cut-short.fit", "old.xisf"], ["holiday.mp4"]
    painters.draw("drawn.png")
    for name in (*ours, *others, *failed, *others_failed):
        (painters.pictures / name).touch()
    for name in (*ours, *others):
        painters.thumbnail("gnome", "normal", name, "drawn.png")
    painters.thumbnail("gnome-failed", *failed, *others_failed)
    fail = "fail/gnome-thumbnail-factory"
    gone = {painters.cached(name) for name in ours} | {painters.cached(name, fail) for name in failed}
    kept = {painters.cached(name) for name in others} | {painters.cached(name, fail) for name in others_failed}
    assert painters.files() == gone | kept
    assert painters.cache.clear() == (report(5, 3), gone)
    assert painters.cache.clear("--all") == (report_all(3), kept)


def test_tags_that_imagemagick_writes_by_itself_stand_behind_the_picture_and_are_not_seen(painters):
    painters.draw("m31.fits", "harbour.jpg")
    painters.cache.directory("normal")
    cached = {name: painters.cached(name) for name in ("m31.fits", "harbour.jpg")}
    for name, place in cached.items():
        painters.call(
            "/usr/bin/convert", painters.pictures / name, "-thumbnail", "128x128", painters.cache.path / place
        )
    chunks = png.chunks((painters.cache.path / cached["m31.fits"]).read_bytes())
    uri = (b"tEXt", b"Thumb::URI\0file://" + os.fsencode(painters.pictures / "m31.fits"))
    assert chunks.index(uri) > [kind for kind, _ in chunks].index(b"IDAT")
    assert painters.files() == set(cached.values())
    assert painters.cache.clear() == (report(0, 2), set())
    assert painters.cache.clear("--all") == (report_all(2), set(cached.values()))


def test_of_the_sample_cache_what_is_nebularks_goes(painters):
    shutil.copytree(PROJECT / "tests/samples/thumbnails", painters.cache.path)
    gone = {
        "normal/bb2774bdd1a0e15a4e664cbee7f60a2d.png",
        "normal/126cec4c93971f4546da61e67c1ececf.png",
        "normal/912b08b60f46525d375e2887db6625fa.png",
        "normal/a09663708622aadc2299dbccb65911bf.png",
        "large/bb2774bdd1a0e15a4e664cbee7f60a2d.png",
        "fail/gnome-thumbnail-factory/a53c3eb9b5aff1a282f747b0e6f0fab6.png",
        "fail/gnome-thumbnail-factory/305452388edde3d00048348cb27cdbad.png",
    }
    kept = {
        "normal/6fd9e4bcd224c897043d57906a0c5a8d.png",
        "normal/45d5b58f810873617aca67eeea4b2750.png",
        "large/6fd9e4bcd224c897043d57906a0c5a8d.png",
        "large/e31996a91b020ffd0a9d213ea22f760b.png",
        "fail/gnome-thumbnail-factory/907fe0bb9081cadc784ff69d571f6559.png",
    }
    assert painters.files() == gone | kept
    assert painters.cache.clear() == (report(7, 5), gone)
    assert painters.cache.clear("--all") == (report_all(5), kept)
