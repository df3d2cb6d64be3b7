# SPDX-License-Identifier: MIT
"""Uncompressed TIFF files with one strip, read and written without a library."""

import struct

SHORT, LONG = 3, 4  # field types
WIDTH, HEIGHT, BITS, COMPRESSION, PHOTOMETRIC = 256, 257, 258, 259, 262
STRIP_OFFSETS, SAMPLES_PER_PIXEL, ROWS_PER_STRIP, STRIP_BYTE_COUNTS = 273, 277, 278, 279


def read_strip(path):
    """\\return the bytes of the only strip"""
    data = path.read_bytes()
    assert data[:4] == b"II*\0", data[:4]
    directory, = struct.unpack_from("<I", data, 4)
    count, = struct.unpack_from("<H", data, directory)
    entries = (struct.unpack_from("<HHII", data, directory + 2 + 12 * i) for i in range(count))
    values = {tag: value & 0xFFFF if kind == SHORT else value for tag, kind, number, value in entries if number == 1}
    return data[values[STRIP_OFFSETS]:][:values[STRIP_BYTE_COUNTS]]


def write_strip(path, width, height, pixels):
    """Writes an image with 8-bit grey values."""
    tags = ((WIDTH, LONG, width), (HEIGHT, LONG, height), (BITS, SHORT, 8), (COMPRESSION, SHORT, 1), (PHOTOMETRIC, SHORT, 1),
            (STRIP_OFFSETS, LONG, 8), (SAMPLES_PER_PIXEL, SHORT, 1), (ROWS_PER_STRIP, LONG, height),
            (STRIP_BYTE_COUNTS, LONG, len(pixels)))
    directory = struct.pack("<H", len(tags)) + b"".join(struct.pack("<HHII", tag, kind, 1, value) for tag, kind, value in tags)
    path.write_bytes(struct.pack("<2sHI", b"II", 42, 8 + len(pixels)) + pixels + directory + bytes(4))
