"""PNG files, chunk by chunk."""

import struct
import zlib

SIGNATURE = b"\x89PNG\r\n\x1a\n"


def chunk(kind: bytes, data: bytes = b"") -> bytes:
    return struct.pack(">I4s", len(data), kind) + data + struct.pack(">I", zlib.crc32(kind + data))


def thumbnail(uri: str) -> bytes:
    """One transparent pixel, laid out as GNOME and Xfce lay out thumbnails and failure markers."""
    header = chunk(b"IHDR", struct.pack(">IIBBBBB", 1, 1, 8, 6, 0, 0, 0)) + chunk(b"sBIT", b"\x08\x08\x08\x08")
    tags = chunk(b"tEXt", b"Thumb::URI\0" + uri.encode("latin-1")) + chunk(b"tEXt", b"Thumb::MTime\x001710201600")
    return SIGNATURE + header + tags + chunk(b"IDAT", zlib.compress(bytes(5))) + chunk(b"IEND")
