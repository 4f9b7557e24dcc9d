"""Thumbnails as the libraries and programs that write PNG files put their tags into them: where, and in which kind of
chunk, decides whether the tool sees them. A tag counts in a tEXt chunk of up to 1 MiB before the image data."""

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
    """A FITS picture's URI of so many characters."""
    return "file:///" + letter * (size - 13) + ".fits"


# By name, a URI of so many bytes; each is a FITS picture's, but for the first.
ASCII = {
    "a-byte": "m",
    "an-ending": ".fits",
    "127-bytes": uri(127),
    "128-bytes": uri(128),
    "two-blocks": uri(8192),
    "the-longest": uri(LONGEST),
    "a-byte-too-long": uri(LONGEST + 1),
    "a-mebibyte": uri(1024 * 1024),
}
LATIN_1 = {"latin-1": uri(40, "é"), "the-longest-latin-1": uri(LONGEST, "é")}
OTHER = {"stars": uri(40, "☆"), "many-stars": uri(100000, "☆")}

TOO_LONG = {"a-byte-too-long", "a-mebibyte"}
SEEN = {*ASCII, *LATIN_1} - {"a-byte", *TOO_LONG}


@pytest.fixture(scope="session")
def png_writer(tmp_path_factory) -> Path:
    program = tmp_path_factory.mktemp("png_writer") / "png_writer"
    source = SUPPORT / "png_writer.c"
    subprocess.run(["/usr/bin/gcc", "-Wall", "-Wextra", "-Werror", "-o", program, source, "-lpng"], check=True)
    return program


def piped(*command, through: bytes) -> bytes:
    return subprocess.run(command, input=through, stdout=subprocess.PIPE, check=True).stdout


def places(file: bytes) -> list[tuple[str, str]]:
    """The kinds of the chunks that hold the URI, and on which side of the image data they stand."""
    chunks = png.chunks(file)
    image = [kind for kind, _ in chunks].index(b"IDAT")
    return [
        (kind.decode(), "before" if at < image else "behind")
        for at, (kind, data) in enumerate(chunks)
        if data.startswith(KEYWORD + b"\0")
    ]


def expect(cache, files: dict[str, bytes], place: dict[str, tuple[str, str]], seen: set[str]):
    """These thumbnails have the URI in this place, and those that are seen are deleted."""
    assert {name: places(file) for name, file in files.items()} == {name: [place[name]] for name in files}
    for name, file in files.items():
        cache.put(file, f"normal/{name}.png")
    gone = {f"normal/{name}.png" for name in seen}
    assert cache.clear() == (report(len(seen), len(files) - len(seen)), gone)


def test_gdk_pixbuf_writes_what_is_seen_unless_it_takes_more_than_latin_1(cache):
    texts = ASCII | LATIN_1 | OTHER
    pixel = GdkPixbuf.Pixbuf.new(GdkPixbuf.Colorspace.RGB, True, 8, 1, 1)
    files = {}
    for name, text in texts.items():
        written, file = pixel.save_to_bufferv("png", ["tEXt::" + KEYWORD.decode()], [text])
        assert written
        files[name] = file
    place = {name: ("iTXt" if name in OTHER else "tEXt", "before") for name in texts}
    expect(cache, files, place, SEEN)


def test_imagemagick_writes_what_is_never_seen(cache):
    empty = png.chunk(b"tEXt", KEYWORD + b"\0")
    files, place = {}, {}
    for name, text in (ASCII | LATIN_1 | OTHER).items():
        value = text.encode("utf-8" if name in OTHER else "latin-1")
        tagged = png.thumbnail("").replace(empty, png.chunk(b"tEXt", KEYWORD + b"\0" + value))
        files[name] = piped("/usr/bin/convert", "png:-", "png:-", through=tagged)
        kind, _ = places(files[name])[0]  # which one depends on the text and on ImageMagick's version
        place[name] = (kind, "behind")
    expect(cache, files, place, set())


@pytest.mark.parametrize("encoding", ["latin-1", "utf-8"])
@pytest.mark.parametrize("side", ["before", "behind"])
@pytest.mark.parametrize("kind", ["tEXt", "zTXt", "iTXt"])
def test_libpng_writes_what_is_seen_uncompressed_before_the_image_data(cache, png_writer, kind, side, encoding):
    texts = ASCII | (LATIN_1 if encoding == "latin-1" else OTHER)
    files = {
        name: piped(png_writer, KEYWORD, kind, side, through=text.encode(encoding)) for name, text in texts.items()
    }
    seen = texts.keys() - {"a-byte", *TOO_LONG} if (kind, side) == ("tEXt", "before") else set()
    expect(cache, files, dict.fromkeys(files, (kind, side)), seen)
