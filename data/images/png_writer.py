"""Writes 8-bit RGBA PNG files (zlib from the standard library)."""

import struct
import zlib


def _chunk(kind, payload):
    return (struct.pack(">I", len(payload)) + kind + payload +
            struct.pack(">I", zlib.crc32(kind + payload) & 0xFFFFFFFF))


def encode_rgba(width, height, rgba):
    """PNG bytes of a width x height image; rgba holds 4 bytes per pixel,
    rows top first."""
    stride = 4 * width
    if width <= 0 or height <= 0 or len(rgba) != stride * height:
        raise ValueError("RGBA data does not match %dx%d" % (width, height))
    # Filter type 0 on every row: the logos are small and mostly flat, and
    # zlib does well enough on them.
    raw = b"".join(b"\x00" + bytes(rgba[y * stride:(y + 1) * stride]) for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" +
            _chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)) +
            _chunk(b"IDAT", zlib.compress(raw, 9)) +
            _chunk(b"IEND", b""))
