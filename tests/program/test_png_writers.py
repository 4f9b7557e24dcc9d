"""Thumbnails as libraries write them: a tag counts in a tEXt chunk of up to 1 MiB before the image data."""

import subprocess
from pathlib import Path

import gi
import png
import pytest
from cache import report
from machine import SUPPORT

gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf  # noqa: E402

KEYWORD = b"Thumb::URI"
LONGEST = 1024 * 1024 - len(KEYWORD) - 1  # the text that makes a chunk of 1 MiB


def uri(size: int, letter: str = "m") -> str:
    """A FITS picture's URI of this size."""
    return "file:///" + letter * (size - 13) + ".fits"


SEEN = {size: uri(size) for size in (127, 128, 8192, LONGEST)} | {5: ".fits"}
UNSEEN = {1: "m", LONGEST + 1: uri(LONGEST + 1), LONGEST + 12: uri(LONGEST + 12)}
LATIN_1 = {"é": uri(40, "é"), "ééé": uri(LONGEST, "é")}
OTHER = {"☆": uri(40, "☆"), "☆☆☆": uri(100000, "☆")}


@pytest.fixture(scope="session")
def png_writer(tmp_path_factory) -> Path:
    program = tmp_path_factory.mktemp("png_writer") / "png_writer"
    source = SUPPORT / "png_writer.c"
    subprocess.run(["/usr/bin/gcc", "-Wall", "-Wextra", "-Werror", "-o", program, source, "-lpng"], check=True)
    return program


def piped(*command, through: bytes) -> bytes:
    return subprocess.run(command, input=through, stdout=subprocess.PIPE, check=True).stdout


def place(file: bytes) -> tuple[str, str]:
    """The kind of the chunk with the URI, and its side of the image data."""
    chunks = png.chunks(file)
    ((at, kind),) = [(at, kind) for at, (kind, data) in enumerate(chunks) if data.startswith(KEYWORD + b"\0")]
    return kind.decode(), "before" if at < [kind for kind, _ in chunks].index(b"IDAT") else "after"


def clear(cache, files: dict) -> set:
    """The names of the files that clearing deletes."""
    for name, file in files.items():
        cache.put(file, f"normal/{name}")
    outcome, gone = cache.clear()
    assert outcome == report(len(gone), len(files) - len(gone))
    return {name for name in files if f"normal/{name}" in gone}


def test_tags_of_gdk_pixbuf_are_seen_up_to_latin_1(cache):
    pixel = GdkPixbuf.Pixbuf.new(GdkPixbuf.Colorspace.RGB, True, 8, 1, 1)
    texts = SEEN | UNSEEN | LATIN_1 | OTHER
    files = {name: pixel.save_to_bufferv("png", ["tEXt::Thumb::URI"], [text])[1] for name, text in texts.items()}
    for name, file in files.items():
        assert place(file) == ("iTXt" if name in OTHER else "tEXt", "before")
    assert clear(cache, files) == {*SEEN, *LATIN_1}


def test_tags_of_imagemagick_are_never_seen(cache):
    start, rest = png.thumbnail("").split(png.chunk(b"tEXt", KEYWORD + b"\0"))
    files = {}
    for name, text in (SEEN | UNSEEN | LATIN_1 | OTHER).items():
        tag = png.chunk(b"tEXt", KEYWORD + b"\0" + text.encode("utf-8" if name in OTHER else "latin-1"))
        files[name] = piped("/usr/bin/convert", "png:-", "png:-", through=start + tag + rest)
    assert {place(file)[1] for file in files.values()} == {"after"}
    assert clear(cache, files) == set()


@pytest.mark.parametrize("encoding", ["latin-1", "utf-8"])
@pytest.mark.parametrize("side", ["before", "after"])
@pytest.mark.parametrize("kind", ["tEXt", "zTXt", "iTXt"])
def test_tags_of_libpng_are_seen_if_uncompressed_before_the_image_data(cache, png_writer, kind, side, encoding):
    odd = LATIN_1 if encoding == "latin-1" else OTHER
    texts = SEEN | UNSEEN | odd
    files = {
        name: piped(png_writer, KEYWORD, kind, side, through=text.encode(encoding)) for name, text in texts.items()
    }
    assert {place(file) for file in files.values()} == {(kind, side)}
    assert clear(cache, files) == ({*SEEN, *odd} if (kind, side) == ("tEXt", "before") else set())
