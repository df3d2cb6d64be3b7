# SPDX-License-Identifier: MIT
"""A BigTIFF reader written from the format's description, without a library."""

import struct

SIZES = {1: 1, 2: 1, 3: 2, 4: 4, 16: 8}
LETTERS = {1: "B", 3: "H", 4: "I", 16: "Q"}
DESCRIPTION, STRIP_OFFSETS, STRIP_BYTES, WIDTH, HEIGHT, BITS = 270, 273, 279, 256, 257, 258


def pages(data):
    """The pages of a file in order, each as its tags and the bytes of its only strip."""
    assert data[:8] == b"II\x2b\0\x08\0\0\0", data[:8]
    link, = struct.unpack_from("<Q", data, 8)
    while link:
        count, = struct.unpack_from("<Q", data, link)
        tags = {}
        for i in range(count):
            entry = link + 8 + 20 * i
            tag, kind, values = struct.unpack_from("<HHQ", data, entry)
            assert not tags or tag > max(tags), "the tags are not in ascending order"
            size = SIZES[kind] * values
            begin = entry + 12 if size <= 8 else struct.unpack_from("<Q", data, entry + 12)[0]
            raw = data[begin:begin + size]
            assert len(raw) == size, "a value exceeds the file"
            tags[tag] = raw.rstrip(b"\0").decode() if kind == 2 else struct.unpack(f"<{values}{LETTERS[kind]}", raw)
        strip = data[tags[STRIP_OFFSETS][0]:tags[STRIP_OFFSETS][0] + tags[STRIP_BYTES][0]]
        assert len(strip) == tags[STRIP_BYTES][0], "a strip exceeds the file"
        yield tags, strip
        link, = struct.unpack_from("<Q", data, link + 8 + 20 * count)
