# SPDX-License-Identifier: MIT
"""The frame index, `frames.jsonl`, as a structured array."""

import json
import math
import pathlib
from typing import Any, NamedTuple

import numpy
from numpy.typing import NDArray

from .errors import RecordingError
from .pixels import PIXEL_FORMATS

INDEX_NAME = "frames.jsonl"
NO_NUMBER = -1  # of an integer that is null in the index; a floating-point number is NaN

INDEX_DTYPE = numpy.dtype([
    ("frame", numpy.int64),
    ("timestamp_us", numpy.int64),
    ("handed_over_us", numpy.int64),
    ("announced_us", numpy.int64),
    ("ticks", numpy.int64),
    ("time_us", numpy.int64),
    ("time_uncertainty_us", numpy.float64),
    ("clock_drift_ppm", numpy.float64),
    ("gain_db", numpy.float64),
    ("exposure_us", numpy.float64),
    ("counter", numpy.int64),
    ("width", numpy.int32),
    ("height", numpy.int32),
    ("significant_bits", numpy.int32),
    ("temperature_c", numpy.float64),
    ("pixel_format", "U16"),
    ("segment", numpy.int32),
])
_REQUIRED = {"frame", "timestamp_us", "width", "height", "significant_bits"}
_NUMBERS = [(name, INDEX_DTYPE[name].kind == "f") for name in INDEX_DTYPE.names or () if name not in ("pixel_format", "segment")]
_MAX_SIDE = 65535  # of GigE Vision's image sizes in this project's configuration; bounds the memory of an image
_BLOCK_BYTES = 4 << 20


class FramePlace(NamedTuple):
    """Where the pixels of a frame are."""

    file: str | None
    page: int | None
    offset: int | None
    bytes: int | None


Row = tuple[Any, ...]


def _wrong_number(name: str, value: Any) -> ValueError:
    if value is None:
        return ValueError(f"\"{name}\" is missing")
    is_integer = isinstance(value, int) and not isinstance(value, bool)
    return ValueError(f"\"{name}\" is {'too large' if is_integer else 'not a number'}: {value!r}")


def _place(line: dict[str, Any]) -> FramePlace:
    file = line.get("file")
    if file is not None and (not isinstance(file, str) or "/" in file or file in ("", ".", "..")):
        # A recording may come from elsewhere: its index must not name files outside of it.
        raise ValueError(f"\"file\" is outside of the recording: {file!r}")
    page, offset, size = line.get("page"), line.get("offset"), line.get("bytes")
    for value in (page, offset, size):
        if value is not None and not (type(value) is int and 0 <= value < 2**63):
            raise ValueError(f"\"page\", \"offset\" or \"bytes\" is not a position: {value!r}")
    return FramePlace(file, page, offset, size)


def _parse(text: bytes, segment: int) -> tuple[Row, FramePlace]:
    """\\throws ValueError"""
    line = json.loads(text)
    if not isinstance(line, dict):
        raise ValueError("is not an object")
    values: list[Any] = []
    for name, is_float in _NUMBERS:
        value = line.get(name)
        if value is None and name not in _REQUIRED:
            value = math.nan if is_float else NO_NUMBER
        elif not (type(value) is int and -2**63 <= value < 2**63 or is_float and type(value) is float):
            raise _wrong_number(name, value)
        values.append(value)
    for name in ("width", "height"):
        if not 0 < line[name] <= _MAX_SIDE:
            raise ValueError(f"\"{name}\" is {line[name]}")
    pixel_format = line.get("pixel_format")
    if pixel_format not in PIXEL_FORMATS:
        raise ValueError(f"unknown pixel format {pixel_format!r}")
    return (*values, pixel_format, segment), _place(line)


class IndexFile:
    """The frame index of one segment, read as far as it is complete."""

    def __init__(self, directory: pathlib.Path, segment: int) -> None:
        self.path = directory / INDEX_NAME
        self._segment = segment
        self.lines = 0  # that have been read
        self._offset = 0  # of the next one

    def read_new(self) -> tuple[list[Row], list[FramePlace]]:
        """The lines that have been completed since the last call. What follows the last line end is left: the recording is writing it,
        or was interrupted."""
        rows: list[Row] = []
        places: list[FramePlace] = []
        read = 0
        try:
            with open(self.path, "rb") as file:
                size = file.seek(0, 2)
                if size < self._offset:
                    raise RecordingError(self.path, "became shorter while it was open", "open the recording again")
                file.seek(self._offset)
                rest = b""
                while block := file.read(_BLOCK_BYTES):
                    *lines, rest = (rest + block).split(b"\n")
                    for text in lines:
                        row, place = self._parsed(text, self.lines + len(rows) + 1)
                        rows.append(row)
                        places.append(place)
                        read += len(text) + 1
        except OSError as error:
            raise RecordingError(self.path, f"cannot be read: {error.strerror}", "make it readable for this user, or choose another"
                                 " recording") from error
        self.lines += len(rows)
        self._offset += read
        return rows, places

    def _parsed(self, text: bytes, line_number: int) -> tuple[Row, FramePlace]:
        try:
            return _parse(text, self._segment)
        except ValueError as error:
            # UnicodeDecodeError and JSONDecodeError, too. Blocks of zeros are what a file system leaves after a power failure.
            what = "zeros instead of text" if text.strip(b"\0") == b"" and text else str(error)
            raise RecordingError(f"{self.path}:{line_number}", what,
                                 "remove this line from a copy of the file to read the other frames") from error


class GrowingIndex:
    """Rows of all segments in one array, which doubles its capacity so that appending to a long recording stays cheap."""

    def __init__(self) -> None:
        self._buffer: NDArray[numpy.void] = numpy.empty(0, INDEX_DTYPE)
        self._size = 0

    def append(self, rows: list[Row]) -> None:
        if not rows:
            return
        needed = self._size + len(rows)
        if needed > len(self._buffer):
            larger = numpy.empty(max(needed, 2 * len(self._buffer)), INDEX_DTYPE)
            larger[:self._size] = self.view()
            self._buffer = larger
        self._buffer[self._size:needed] = rows
        self._size = needed

    def view(self) -> NDArray[numpy.void]:
        """The rows so far, read-only. Stays valid when rows are appended."""
        rows = self._buffer[:self._size]
        rows.flags.writeable = False
        return rows
