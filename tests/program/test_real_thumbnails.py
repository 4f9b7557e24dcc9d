"""Thumbnails as other programs and libraries write them: the sample cache, and what the real programs draw now."""

import os
import shutil
import subprocess
from pathlib import Path

import gi
import pytest
from cache import report, report_all
from machine import ANN, HANGS, PROJECT

gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf  # noqa: E402

SAMPLES = PROJECT / "tests/samples"
NEBULARKS = {
    *("normal/bb2774bd", "normal/126cec4c", "normal/912b08b6", "normal/a0966370", "large/bb2774bd"),
    *("fail/gnome-thumbnail-factory/a53c3eb9", "fail/gnome-thumbnail-factory/30545238"),
}


def names(cache: Path) -> set[str]:
    """The paths of its files, each with the first digits of its name."""
    return {str(path.parent.relative_to(cache) / path.name[:8]) for path in cache.rglob("*.png")}


@pytest.mark.parametrize("drawn_now", [False, True], ids=["samples", "drawn now"])
def test_nebularks_thumbnails_of_desktop_programs_are_deleted(cache, drawn_now):
    gone, kept = NEBULARKS, names(SAMPLES / "thumbnails") - NEBULARKS
    if drawn_now:
        gone = gone - {"normal/a0966370"}  # Qt's
        draw = [SAMPLES / "draw.py", cache.machine.home, "tumbler", "gnome", "imagemagick"]
        subprocess.run(draw, check=True, timeout=HANGS)
    else:
        shutil.copytree(SAMPLES / "thumbnails", cache.path)
    for path in cache.machine.ann.rglob("*"):
        os.chown(path, ANN, ANN)

    assert names(cache.path) == gone | kept
    assert cache.clear()[0] == report(len(gone), 5)
    assert names(cache.path) == kept
    assert cache.clear("--all")[0] == report_all(5)


def uri(size: int, letter: str = "m") -> str:
    """A FITS picture's URI of this size."""
    return "file:///" + letter * (size - 13) + ".fits"


LONGEST = 1024 * 1024 - len("Thumb::URI\0")  # the text that makes a chunk of 1 MiB
SEEN = [".fits", uri(127), uri(128), uri(8192), uri(LONGEST), uri(40, "é"), uri(LONGEST, "é")]
UNSEEN = ["m", uri(LONGEST + 1), uri(LONGEST + 12)]
OTHER_ALPHABETS = [uri(40, "☆"), uri(100000, "☆")]  # in another kind of chunk, which the tool does not read


def test_tags_of_libpng_are_seen_up_to_1_mib_and_latin_1(cache):
    pixel = GdkPixbuf.Pixbuf.new(GdkPixbuf.Colorspace.RGB, True, 8, 1, 1)
    texts = [*SEEN, *UNSEEN, *OTHER_ALPHABETS]
    for number, text in enumerate(texts):
        file = pixel.save_to_bufferv("png", ["tEXt::Thumb::URI"], [text])[1]
        kind = b"iTXt" if text in OTHER_ALPHABETS else b"tEXt"
        assert kind + b"Thumb::URI\0" in file.partition(b"IDAT")[0]
        cache.put(file, f"normal/{number}")
    seen = {f"normal/{number}" for number in range(len(SEEN))}
    assert cache.clear() == (report(len(seen), len(texts) - len(seen)), seen)
