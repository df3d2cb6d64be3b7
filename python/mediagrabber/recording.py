# SPDX-License-Identifier: MIT
"""Recordings as sequences of images."""

import fcntl
import operator
import os
import pathlib
import re
import time
from collections.abc import Iterator
from typing import Any, overload

import numpy
from numpy.typing import NDArray

from ._index import INDEX_NAME, FramePlace, GrowingIndex, IndexFile
from ._readers import SegmentReader
from .errors import RecordingError
from .pixels import PIXEL_FORMATS, Pixels

_POLL_SECONDS = 0.02  # a frame's time at 50 frames/s; a reader of files need not be faster


class _Segment:
    """A directory with a frame index, and the files that it names."""

    def __init__(self, directory: pathlib.Path, number: int) -> None:
        self.directory = directory
        self.index = IndexFile(directory, number)
        self.reader = SegmentReader(directory)
        self.is_finished = False  # true once nothing is appended any more

    def is_written_to(self) -> bool:
        """Whether a recording holds the lock of the frame index."""
        try:
            descriptor = os.open(self.index.path, os.O_RDONLY | os.O_CLOEXEC)
        except OSError:
            return False  # an empty segment is deleted at its end
        try:
            fcntl.flock(descriptor, fcntl.LOCK_SH | fcntl.LOCK_NB)
        except BlockingIOError:
            return True
        finally:
            os.close(descriptor)
        return False


class _Store:
    """All segments of a recording, shared by the sequences that select from it."""

    def __init__(self, path: pathlib.Path) -> None:
        self.path = path
        self.segments: list[_Segment] = []
        self.index = GrowingIndex()
        self.places: list[FramePlace] = []

    def refresh(self) -> int:
        """Reads what has been added. \\return the number of new frames"""
        before = len(self.places)
        known = {segment.directory for segment in self.segments}
        found = _directories(self.path)
        if not found and not known:
            raise RecordingError(self.path, f"is not a recording: there is no {INDEX_NAME} in it or below it",
                                 "name the directory that output.directory of the configuration names")
        self.segments += [_Segment(directory, len(self.segments) + i)
                          for i, directory in enumerate(one for one in found if one not in known)]
        for segment in self.segments:
            if segment.is_finished:
                continue
            is_open = segment.is_written_to()  # before reading, so that a segment that ends meanwhile is read once more
            if not is_open and not segment.index.path.exists():
                segment.is_finished = True
                continue
            rows, places = segment.index.read_new()
            self.index.append(rows)
            self.places += places
            # A recording locks its index just after creating it, so an empty one may only seem to be finished.
            segment.is_finished = not is_open and segment.index.lines > 0
        return len(self.places) - before

    def read(self, position: int) -> Pixels:
        row = self.index.view()[position]
        segment = self.segments[int(row["segment"])]
        pixel_format = PIXEL_FORMATS[str(row["pixel_format"])]
        return segment.reader.read(self.places[position], pixel_format, int(row["width"]), int(row["height"]))


def _directories(path: pathlib.Path) -> list[pathlib.Path]:
    """The segments of a recording in the order of their times. Names that are equal but for a number follow the number."""
    if (path / INDEX_NAME).exists():
        return [path]

    def order(directory: pathlib.Path) -> list[list[tuple[int, int, str]]]:
        return [[(0, int(part), "") if part.isdigit() else (1, 0, part) for part in re.split(r"(\d+)", name) if part]
                for name in directory.relative_to(path).parts]

    return sorted((index.parent for index in path.rglob(INDEX_NAME)), key=order)


class Frames:
    """Frames of a recording, as a sequence of images. An image is read when it is asked for, each time anew: `frames[3]` is an array of
    height x width, of uint8 or, with 12 significant bits, uint16. Slices, and arrays of positions or booleans, select frames without
    reading them:

        frames[100:200:10]
        frames[frames.index["exposure_us"] > 1000]

    Several threads may read at the same time.
    """

    def __init__(self, store: _Store, positions: NDArray[numpy.intp]) -> None:
        self._store = store
        self._positions = positions

    @property
    def index(self) -> NDArray[numpy.void]:
        """One row for each frame, as a structured array with the fields of the frame index. Units are in the names of the fields. An
        integer that the index does not have (null) is -1, a floating-point number is NaN. `segment` is the position in
        `Recording.segments`."""
        rows = self._store.index.view()[self._positions]
        rows.flags.writeable = False
        return rows

    def __len__(self) -> int:
        return len(self._positions)

    @overload
    def __getitem__(self, key: int) -> Pixels: ...
    @overload
    def __getitem__(self, key: slice) -> "Frames": ...
    @overload
    def __getitem__(self, key: NDArray[Any]) -> "Frames": ...
    def __getitem__(self, key: int | slice | NDArray[Any]) -> "Pixels | Frames":
        if isinstance(key, (slice, numpy.ndarray)) and (isinstance(key, slice) or key.ndim != 0):
            return Frames(self._store, self._positions[key])
        try:
            position = operator.index(key)
        except TypeError:
            raise TypeError(f"frames are selected by a number, a slice or an array, not by {type(key).__name__}") from None
        if not -len(self) <= position < len(self):
            raise IndexError(f"frame {position} of {len(self)}")
        return self._store.read(int(self._positions[position]))

    def __iter__(self) -> Iterator[Pixels]:
        for position in self._positions:
            yield self._store.read(int(position))

    def load(self) -> Pixels:
        """All images in one array of frames x height x width. \\throws RecordingError if they differ in size or type"""
        if len(self) == 0:
            raise RecordingError(self._store.path, "has no frames here", "select frames that there are")
        index = self.index
        for field in ("width", "height", "significant_bits"):
            if (index[field] != index[field][0]).any():
                raise RecordingError(self._store.path, f"has frames of different {field} here",
                                     f"select equal ones, for example frames[frames.index[\"{field}\"] == {index[field][0]}]")
        first = self[0]
        images = numpy.empty((len(self), *first.shape), first.dtype)
        images[0] = first
        for i in range(1, len(self)):
            images[i] = self[i]
        return images

    def __repr__(self) -> str:
        return f"<{type(self).__name__}: {len(self)} frames of {self._store.path}>"


class Recording(Frames):
    """A recording with all its segments; see open_recording(). While it is growing, it has the frames of the last refresh()."""

    def __init__(self, path: pathlib.Path) -> None:
        super().__init__(_Store(path), numpy.empty(0, numpy.intp))
        self.refresh()

    @property
    def path(self) -> pathlib.Path:
        return self._store.path

    @property
    def segments(self) -> list[pathlib.Path]:
        """The directories of the recording; one if it has no segments."""
        return [segment.directory for segment in self._store.segments]

    @property
    def index(self) -> NDArray[numpy.void]:
        return self._store.index.view()[:len(self._positions)]  # without a copy

    @property
    def is_growing(self) -> bool:
        """Whether a process is writing to the recording. False after it was killed, or after a power failure."""
        return any(not segment.is_finished and segment.is_written_to() for segment in self._store.segments)

    def refresh(self) -> int:
        """Adds the frames that have been written since, and new segments. \\return their number"""
        added = self._store.refresh()
        self._positions = numpy.arange(len(self._store.places), dtype=numpy.intp)
        return added

    def follow(self, timeout: float | None = None) -> Iterator[Frames]:
        """Yields the frames that there are, then those that are added, some at a time, until the recording ends.

        \\param timeout  seconds without a new frame after which TimeoutError is raised
        """
        seen = 0
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            is_growing = self.is_growing  # before reading, so that the last frames are not missed
            self.refresh()
            if len(self) > seen:
                new = self[seen:]
                seen = len(self)
                yield new
                deadline = None if timeout is None else time.monotonic() + timeout
            elif not is_growing and not self.is_growing:  # a new segment may have been found just now
                return
            elif deadline is not None and time.monotonic() > deadline:
                raise TimeoutError(f"{self.path}: no new frame for {timeout} s")
            else:
                time.sleep(_POLL_SECONDS)


def open_recording(path: str | os.PathLike[str]) -> Recording:
    """Opens a recording of any `output.format`: its directory, or a directory above the segments of one recording.

    Only the frame index is read. The recording may still be growing. If it was interrupted, the part of a line that may be at the end
    of the frame index is left out.

    \\throws RecordingError if it is not a recording, or its index cannot be read
    """
    directory = pathlib.Path(path)
    if directory.name == INDEX_NAME and directory.is_file():
        directory = directory.parent
    if not directory.exists():
        raise RecordingError(directory, "does not exist", "name the directory of a recording")
    if not directory.is_dir():
        raise RecordingError(directory, "is not a directory", "name the directory that contains it")
    return Recording(directory)
