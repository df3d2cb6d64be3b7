# SPDX-License-Identifier: MIT
"""A reader for each `output.format`. A frame's line of the frame index says which one it needs."""

import pathlib
from typing import Protocol

from . import _tiff
from ._index import FramePlace
from .errors import RecordingError
from .pixels import PixelFormat, Pixels


class FrameReader(Protocol):
    """Reads frames of one segment."""

    def read(self, place: FramePlace, pixel_format: PixelFormat, width: int, height: int) -> Pixels:
        """\\return a new array. \\throws RecordingError"""


class TiffFiles:
    """output.format = "tiff": a file for each frame."""

    def __init__(self, directory: pathlib.Path) -> None:
        self._directory = directory

    def read(self, place: FramePlace, pixel_format: PixelFormat, width: int, height: int) -> Pixels:
        assert place.file is not None
        with _tiff.OpenFile(self._directory / place.file) as file:
            return _tiff.read_page(file, _tiff.PageList(), 0, width, height, 8 * pixel_format.dtype.itemsize)


class BigTiff:
    """output.format = "bigtiff": one file, a page for each frame."""

    def __init__(self, directory: pathlib.Path) -> None:
        self._directory = directory
        self._pages: dict[str, _tiff.PageList] = {}

    def read(self, place: FramePlace, pixel_format: PixelFormat, width: int, height: int) -> Pixels:
        assert place.file is not None and place.page is not None
        pages = self._pages.setdefault(place.file, _tiff.PageList())
        with _tiff.OpenFile(self._directory / place.file) as file:
            return _tiff.read_page(file, pages, place.page, width, height, 8 * pixel_format.dtype.itemsize)


class RawFile:
    """Uncompressed frames as in memory, at places that the index names: output.format = "raw", and each other file whose frames have an
    `offset` in the index.

    Frames are read, not mapped: a mapped file that is truncated or deleted from under the reader would end the process.
    """

    def __init__(self, directory: pathlib.Path) -> None:
        self._directory = directory

    def read(self, place: FramePlace, pixel_format: PixelFormat, width: int, height: int) -> Pixels:
        assert place.file is not None and place.offset is not None
        path = self._directory / place.file
        size = pixel_format.line_bytes(width) * height
        if place.bytes is not None and place.bytes != size:
            raise RecordingError(path, f"{place.bytes} bytes in the frame index are not {width} x {height} pixels of {pixel_format.name}",
                                 "the index is damaged: " + _tiff.RESTORE)
        with _tiff.OpenFile(path) as file:
            return pixel_format.pixels_of(file.read(place.offset, size), width, height)


class SegmentReader:
    """Reads frames of one segment, each with the reader that its place needs."""

    def __init__(self, directory: pathlib.Path) -> None:
        self._directory = directory
        self._tiff_files = TiffFiles(directory)
        self._bigtiff = BigTiff(directory)
        self._raw_file = RawFile(directory)

    def _reader_for(self, place: FramePlace) -> FrameReader:
        if place.file is None:
            raise RecordingError(self._directory, "has no pixels, because it was recorded with output.format = \"none\"",
                                 "use its index, or record with another format")
        if place.offset is not None:
            return self._raw_file
        if place.page is not None:
            return self._bigtiff
        return self._tiff_files

    def read(self, place: FramePlace, pixel_format: PixelFormat, width: int, height: int) -> Pixels:
        return self._reader_for(place).read(place, pixel_format, width, height)
