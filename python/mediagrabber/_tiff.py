# SPDX-License-Identifier: MIT
"""Reads the TIFF and BigTIFF files that mediagrabber writes: little-endian, one sample per pixel, one strip per page."""

import dataclasses
import os
import pathlib
import struct
import threading
import zlib
from typing import Protocol

import numpy

from .errors import RecordingError
from .pixels import Pixels

_WIDTH, _HEIGHT, _BITS, _COMPRESSION = 256, 257, 258, 259
_STRIP_OFFSET, _SAMPLES, _STRIP_BYTES, _PREDICTOR = 273, 277, 279, 317
_UNCOMPRESSED, _LZW, _DEFLATE = 1, 5, 8
_HORIZONTAL = 2
_NUMBERS = {3: struct.Struct("<H"), 4: struct.Struct("<I"), 16: struct.Struct("<Q")}  # SHORT, LONG, LONG8
_MAX_ENTRIES = 4096  # our pages have about 20

RESTORE = "restore the file from a copy, or read the other frames"


@dataclasses.dataclass(frozen=True)
class _Layout:
    """How directories are laid out: number of entries, entry (tag, type, number of values, value or its place), pointer."""

    count: struct.Struct
    entry: struct.Struct
    pointer: struct.Struct
    first_pointer_at: int


_CLASSIC = _Layout(struct.Struct("<H"), struct.Struct("<HHI4s"), struct.Struct("<I"), 4)
_BIG = _Layout(struct.Struct("<Q"), struct.Struct("<HHQ8s"), struct.Struct("<Q"), 8)
_LAYOUTS = {b"II\x2a\0": _CLASSIC, b"II\x2b\0": _BIG}


class File(Protocol):
    """What is read from; `path` is for messages."""

    path: pathlib.Path

    def read(self, offset: int, size: int) -> bytes:
        """\\return exactly `size` bytes"""


class OpenFile:
    """A file that is open for the duration of a context."""

    def __init__(self, path: pathlib.Path) -> None:
        self.path = path

    def __enter__(self) -> "OpenFile":
        try:
            self._descriptor = os.open(self.path, os.O_RDONLY | os.O_CLOEXEC)
        except OSError as error:
            advice = "it may have been deleted since it was recorded: read the other frames" if isinstance(error, FileNotFoundError) \
                else "make it readable for this user"
            raise RecordingError(self.path, f"cannot be opened: {error.strerror}", advice) from error
        self.size = os.fstat(self._descriptor).st_size
        return self

    def __exit__(self, *_: object) -> None:
        os.close(self._descriptor)

    def read(self, offset: int, size: int) -> bytes:
        # Compared first: a damaged file may name a size that does not fit into memory.
        if offset + size > self.size:
            raise RecordingError(self.path, f"ends at byte {self.size}, but bytes {offset} to {offset + size} are needed", RESTORE)
        parts = []
        while size > 0:
            part = os.pread(self._descriptor, size, offset)
            if not part:
                raise RecordingError(self.path, f"became shorter than {offset + size} bytes while it was read", RESTORE)
            parts.append(part)
            offset, size = offset + len(part), size - len(part)
        return b"".join(parts) if len(parts) != 1 else parts[0]


class PageList:
    """Where the pages of a TIFF file are. The list is extended as far as pages are asked for: pages are linked, and a file may grow."""

    def __init__(self) -> None:
        self._lock = threading.Lock()  # of all members
        self._layout: _Layout | None = None
        self._places: list[int] = []  # of directories
        self._next_at = 0  # place of the pointer to the directory that follows the last one in the list

    def place(self, file: File, page: int) -> tuple[int, _Layout]:
        """\\return where the page's directory is"""
        with self._lock:
            return self._place(file, page)

    def _place(self, file: File, page: int) -> tuple[int, _Layout]:
        if self._layout is None:
            layout = _LAYOUTS.get(file.read(0, 4))
            if layout is None:
                raise RecordingError(file.path, "is not a TIFF file of mediagrabber", RESTORE)
            self._layout, self._next_at = layout, layout.first_pointer_at
        layout = self._layout
        while len(self._places) <= page:
            place, = layout.pointer.unpack(file.read(self._next_at, layout.pointer.size))
            if place == 0:
                raise RecordingError(file.path, f"has {len(self._places)} pages, so page {page} is missing", RESTORE)
            if place <= self._next_at:  # pages follow each other; a loop would never end
                raise RecordingError(file.path, f"is damaged: page {len(self._places)} is before the one that precedes it", RESTORE)
            self._places.append(place)
            self._next_at = place + layout.count.size + _entries(file, place, layout) * layout.entry.size
        return self._places[page], layout


def _entries(file: File, place: int, layout: _Layout) -> int:
    entries: int
    entries, = layout.count.unpack(file.read(place, layout.count.size))
    if not 0 < entries <= _MAX_ENTRIES:
        raise RecordingError(file.path, f"is damaged: a page with {entries} tags at byte {place}", RESTORE)
    return entries


def _tags(file: File, place: int, layout: _Layout) -> dict[int, int]:
    """The tags of a page that have one number each."""
    data = file.read(place + layout.count.size, _entries(file, place, layout) * layout.entry.size)
    tags = {}
    for tag, kind, count, value in layout.entry.iter_unpack(data):
        number = _NUMBERS.get(kind)
        if number is not None and count == 1 and number.size <= len(value):
            tags[tag], = number.unpack_from(value)
    return tags


def read_page(file: File, pages: PageList, page: int, width: int, height: int, bits: int) -> Pixels:
    """The image of a page, which must have these dimensions.

    \\param bits  per pixel, 8 or 16
    """
    tags = _tags(file, *pages.place(file, page))
    found = tuple(tags.get(tag) for tag in (_WIDTH, _HEIGHT, _BITS))
    if found != (width, height, bits) or tags.get(_SAMPLES, 1) != 1:
        raise RecordingError(file.path, f"page {page} has (width, height, bits) {found}, the frame index {(width, height, bits)}",
                             "it belongs to another recording, or is damaged: " + RESTORE)
    if _STRIP_OFFSET not in tags or _STRIP_BYTES not in tags:
        raise RecordingError(file.path, f"page {page} does not consist of one strip, as mediagrabber writes it",
                             "open it with a program for TIFF files")
    size = width * height * bits // 8
    strip = file.read(tags[_STRIP_OFFSET], tags[_STRIP_BYTES])
    compression = tags.get(_COMPRESSION, _UNCOMPRESSED)
    try:
        data = _decompressed(strip, compression, size)
    except ValueError as error:
        raise RecordingError(file.path, f"page {page} is damaged: {error}", RESTORE) from error
    if len(data) != size:
        raise RecordingError(file.path, f"page {page} is damaged: it has {len(data)} bytes of pixels instead of {size}", RESTORE)
    pixels = numpy.frombuffer(data, f"<u{bits // 8}").reshape(height, width)
    dtype = numpy.uint8 if bits == 8 else numpy.uint16
    if tags.get(_PREDICTOR) == _HORIZONTAL and compression != _UNCOMPRESSED:
        return numpy.add.accumulate(pixels, axis=1, dtype=dtype)  # differences of neighbours, modulo the type's range
    return pixels.astype(dtype)


def _decompressed(strip: bytes, compression: int, size: int) -> bytes:
    """\\param size  of the result, which is limited to it"""
    if compression == _UNCOMPRESSED:
        return strip
    if compression == _LZW:
        return _lzw(strip, size)
    if compression == _DEFLATE:
        try:
            return zlib.decompressobj().decompress(strip, size)
        except zlib.error as error:
            raise ValueError(f"its compressed data is invalid ({error})") from error
    raise ValueError(f"unknown compression {compression}")


def _lzw(strip: bytes, size: int) -> bytes:
    """LZW as TIFF has it: the highest bit first, and a code becomes longer one entry early."""
    clear, end = 256, 257
    start = [bytes([value]) for value in range(256)] + [b"", b""]
    table, previous = list(start), b""
    parts: list[bytes] = []
    length = 0
    bits, held, width = 0, 0, 9
    for byte in strip:
        bits = (bits << 8 | byte) & 0xFFFFFF
        held += 8
        if held < width:
            continue
        held -= width
        code = bits >> held & (1 << width) - 1
        if code == end:
            break
        if code == clear:
            table, previous, width = list(start), b"", 9
            continue
        if code < len(table):
            entry = table[code]
        elif code == len(table) and previous:
            entry = previous + previous[:1]
        else:
            raise ValueError(f"its compressed data is invalid (LZW code {code} of {len(table)})")
        parts.append(entry)
        length += len(entry)
        if length >= size:
            break
        if previous:
            table.append(previous + entry[:1])
        previous = entry
        if len(table) >= (1 << width) - 1 and width < 12:
            width += 1
    return b"".join(parts)[:size]
