"""PNG files put together chunk by chunk, and taken apart again, without a look at the picture itself."""

import struct
import zlib

SIGNATURE = b"\x89PNG\r\n\x1a\n"


def chunk(kind: bytes, data: bytes = b"") -> bytes:
    return struct.pack(">I4s", len(data), kind) + data + struct.pack(">I", zlib.crc32(kind + data))


def thumbnail(uri: str) -> bytes:
    """A thumbnail of one transparent pixel, laid out as those and the failure markers of GNOME and Xfce are."""
    tags = {"Thumb::URI": uri, "Thumb::MTime": "1710201600"}
    return b"".join(
        [
            SIGNATURE,
            chunk(b"IHDR", struct.pack(">IIBBBBB", 1, 1, 8, 6, 0, 0, 0)),
            chunk(b"sBIT", b"\x08\x08\x08\x08"),
            *(chunk(b"tEXt", f"{keyword}\0{text}".encode("latin-1")) for keyword, text in tags.items()),
            chunk(b"IDAT", zlib.compress(bytes(5))),
            chunk(b"IEND"),
        ]
    )


def chunks(png: bytes) -> list[tuple[bytes, bytes]]:
    """The kinds and data of a PNG file's chunks, in their order."""
    found, at = [], len(SIGNATURE)
    while at < len(png):
        length, kind = struct.unpack_from(">I4s", png, at)
        found.append((kind, png[at + 8 : at + 8 + length]))
        at += 12 + length
    return found
