# SPDX-License-Identifier: MIT
"""Frames of a running recording in shared memory, without a copy. mg_frame_ring.h describes the layout and the memory ordering."""

import array
import dataclasses
import errno
import mmap
import os
import pathlib
import socket
import struct
import threading
import time
from collections.abc import Iterator

import numpy

from .errors import RingError
from .pixels import PIXEL_FORMATS, Pixels, unpack_mono12packed

_MAGIC = 0x31676E6972676D00
_VERSION = 1
_RING = struct.Struct("<QIIIIQQ")  # magic, version, bytes per entry, entries, reserved, memory bytes, newest
_RING_BYTES = 128
_NEWEST_AT = 32
_FRAME = struct.Struct("<7Q4I3fI3B5x16s")
_SEQUENCE = struct.Struct("<Q")
_MESSAGE = struct.Struct("<IIQ")
_HERE, _FRAME_PUBLISHED, _OVERTAKEN = 1, 2, 3
_TICKS, _GAIN, _EXPOSURE, _COUNTER, _TEMPERATURE = 1, 2, 4, 8, 16
_CONNECT_POLL_SECONDS = 0.02


@dataclasses.dataclass(frozen=True, eq=False)
class RingFrame:
    """A frame in shared memory. Units are in the names; None: the camera does not send the value."""

    sequence: int
    number: int  # from 1, as `frame` in the frame index; dropped frames have numbers, too
    timestamp_us: int  # start of the exposure on the host's clock, since 1970-01-01 UTC
    handed_over_us: int  # when the plug-in handed the frame over, same clock
    ticks: int | None
    gain_db: float | None
    exposure_us: float | None
    counter: int | None
    temperature_c: float | None
    pixel_format: str  # as in PIXEL_FORMATS
    significant_bits: int
    width: int
    height: int
    pixels: Pixels  # height x width, read-only, not a copy; Mono12Packed: height x bytes per line

    def unpacked(self) -> Pixels:
        """A copy of the image, height x width, 12-bit values in 16 bits. Call FrameRing.is_there() after it."""
        if self.pixel_format == "Mono12Packed":
            return unpack_mono12packed(self.pixels.view(numpy.uint8), self.width)
        return self.pixels.copy()


class FrameRing:
    """Reads frames of a running recording, in order. Belongs to one thread at a time.

        with FrameRing("/run/user/1000/frames.sock") as ring:
            for frame in ring:                  # ends with the recording
                mean = frame.pixels.mean()
                if not ring.is_there(frame):    # overwritten meanwhile: discard the result
                    continue

    The recording never waits for a reader: memory is reused for later frames. Frames that were overwritten before they were read are
    skipped and counted in `overtaken`. To keep a frame, copy its pixels, and call is_there() after that.
    """

    def __init__(self, path: str | os.PathLike[str], timeout: float | None = None, connect_timeout: float = 0.0) -> None:
        """
        \\param path  of the socket (`ring.socket`), or its name in the user's runtime directory
        \\param timeout  seconds without a frame after which next() and the iteration raise TimeoutError
        \\param connect_timeout  seconds to wait for a recording that publishes frames there
        \\throws RingError if none does
        """
        self.path = _socket_path(path)
        self.timeout = timeout
        self.overtaken = 0
        self._ring: mmap.mmap | None = None
        self._memory: mmap.mmap | None = None
        self._entry_bytes = self._entries = 0
        self._next = 0
        self._socket = _connected(self.path, connect_timeout)

    def __enter__(self) -> "FrameRing":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Disconnects. Images that are still in use keep their memory, which is overwritten as before."""
        self._socket.close()
        self._ring = self._memory = None

    def __iter__(self) -> Iterator[RingFrame]:
        while (frame := self.next()) is not None:
            yield frame

    def next(self, timeout: float | None = None) -> RingFrame | None:
        """Waits for the next frame.

        \\param timeout  seconds, instead of that of the constructor
        \\return None if the recording has ended
        \\throws TimeoutError
        """
        limit = self.timeout if timeout is None else timeout
        deadline = None if limit is None else time.monotonic() + limit
        while True:
            if self._ring is not None and self._newest(self._ring) >= self._next:
                frame = self._take(self._ring)
                if frame is not None:
                    return frame
            try:
                if not self._receive(None if deadline is None else max(deadline - time.monotonic(), 1e-6)):
                    return None
            except TimeoutError:
                raise TimeoutError(f"{self.path}: no frame for {limit} s") from None

    def is_there(self, frame: RingFrame) -> bool:
        """Whether the frame has not been overwritten up to now. Call it after using the pixels, once per frame: it counts an overwritten
        frame in `overtaken`."""
        _order_loads()
        if self._ring is not None and self._sequence_at(self._ring, frame.sequence) == frame.sequence:
            return True
        self._count_overtaken(1)
        return False

    @staticmethod
    def _newest(ring: mmap.mmap) -> int:
        newest: int
        newest, = _SEQUENCE.unpack_from(ring, _NEWEST_AT)
        return newest

    def _place(self, sequence: int) -> int:
        return _RING_BYTES + sequence % self._entries * self._entry_bytes

    def _sequence_at(self, ring: mmap.mmap, sequence: int) -> int:
        found: int
        found, = _SEQUENCE.unpack_from(ring, self._place(sequence))
        return found

    def _receive(self, timeout: float | None) -> bool:
        """Receives one message. \\return False if the recording has ended"""
        self._socket.settimeout(timeout)
        try:
            data, rights, _, _ = self._socket.recvmsg(_MESSAGE.size, socket.CMSG_SPACE(8), socket.MSG_CMSG_CLOEXEC)
        except ConnectionResetError:
            return False
        descriptors = array.array("i")
        for level, kind, values in rights:
            if (level, kind) == (socket.SOL_SOCKET, socket.SCM_RIGHTS):
                descriptors.frombytes(values[:len(values) - len(values) % descriptors.itemsize])
        try:
            if not data:
                return False
            if len(data) != _MESSAGE.size:
                raise self._not_a_ring("an incomplete message")
            message, _, newest = _MESSAGE.unpack(data)
            if message == _HERE:
                self._adopt(descriptors)
                self._next = self._next or max(newest, 1)
        finally:
            for descriptor in descriptors:
                os.close(descriptor)
        return True

    def _not_a_ring(self, what: str) -> RingError:
        return RingError(f"{self.path}: {what}: the other end is not a mediagrabber, or one of another release; name the socket of"
                         " ring.socket, and install packages of one release")

    def _adopt(self, descriptors: "array.array[int]") -> None:
        """Uses this ring and memory instead of the current ones."""
        if len(descriptors) != 2:
            raise self._not_a_ring(f"{len(descriptors)} descriptors instead of 2")
        ring, memory = (mmap.mmap(descriptor, 0, access=mmap.ACCESS_READ) for descriptor in descriptors)
        if len(ring) < _RING_BYTES:
            raise self._not_a_ring(f"a ring of {len(ring)} bytes")
        magic, version, entry_bytes, entries, _, _, _ = _RING.unpack_from(ring)
        if magic != _MAGIC:
            raise self._not_a_ring("the memory does not begin as a ring")
        if version != _VERSION:
            raise self._not_a_ring(f"a ring of version {version}, this package reads version {_VERSION}")
        if entry_bytes < _FRAME.size or entries == 0 or (len(ring) - _RING_BYTES) // entry_bytes < entries:
            raise self._not_a_ring(f"{entries} entries of {entry_bytes} bytes in a ring of {len(ring)} bytes")
        self._ring, self._memory, self._entry_bytes, self._entries = ring, memory, entry_bytes, entries

    def _take(self, ring: mmap.mmap) -> RingFrame | None:
        """\\return the oldest unread frame that has not been overwritten, None if there is none"""
        newest = self._newest(ring)
        first = self._next
        frame = None
        candidate = max(first, newest - self._entries + 1)
        while candidate <= newest and (frame := self._frame_of(ring, candidate)) is None:
            candidate += 1
        if candidate > first:
            self._count_overtaken(candidate - first)
        self._next = candidate if frame is None else candidate + 1
        return frame

    def _frame_of(self, ring: mmap.mmap, sequence: int) -> RingFrame | None:
        if self._sequence_at(ring, sequence) != sequence:
            return None
        _order_loads()
        entry = _FRAME.unpack_from(ring, self._place(sequence))
        _order_loads()
        if entry[0] != sequence or self._sequence_at(ring, sequence) != sequence:
            return None
        (_, offset, size, number, timestamp, handed_over, ticks, width, height, stride, known, gain, exposure,
         temperature, counter, container_bits, significant_bits, _, name) = entry
        pixel_format = name.rstrip(b"\0").decode(errors="replace")
        if pixel_format not in PIXEL_FORMATS:
            raise self._not_a_ring(f"unknown pixel format {pixel_format}")
        kind = numpy.dtype("<u2" if container_bits == 16 else "u1")
        columns = (width * container_bits + 7) // 8 // kind.itemsize
        memory = self._memory
        if memory is None or offset + size > len(memory) or (height - 1) * stride + columns * kind.itemsize > size:
            return None
        pixels: Pixels = numpy.ndarray((height, columns), kind, memory, offset, (stride, kind.itemsize))
        return RingFrame(
            sequence=sequence, number=number, timestamp_us=timestamp, handed_over_us=handed_over,
            ticks=ticks if known & _TICKS else None, gain_db=gain if known & _GAIN else None,
            exposure_us=exposure if known & _EXPOSURE else None, counter=counter if known & _COUNTER else None,
            temperature_c=temperature if known & _TEMPERATURE else None, pixel_format=pixel_format,
            significant_bits=significant_bits, width=width, height=height, pixels=pixels)

    def _count_overtaken(self, frames: int) -> None:
        """Counts missed frames and reports the total to the recording, which publishes it as a metric."""
        self.overtaken += frames
        try:
            self._socket.send(_MESSAGE.pack(_OVERTAKEN, 0, self.overtaken), socket.MSG_DONTWAIT)
        except OSError:
            pass  # the next report contains the total


def runtime_directory() -> pathlib.Path:
    """Where the sockets of this user's programs are, as mediagrabber has it."""
    named = os.environ.get("XDG_RUNTIME_DIR")
    if named:
        return pathlib.Path(named)
    return pathlib.Path("/run") if os.getuid() == 0 else pathlib.Path("/run/user") / str(os.getuid())


def _socket_path(path: str | os.PathLike[str]) -> pathlib.Path:
    given = os.fspath(path)
    return pathlib.Path(given) if "/" in given else runtime_directory() / given


def _connected(path: pathlib.Path, timeout: float) -> socket.socket:
    deadline = time.monotonic() + timeout
    while True:
        made = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        try:
            made.connect(str(path))
            return made
        except OSError as error:
            made.close()
            if error.errno in (errno.ENOENT, errno.ECONNREFUSED) and time.monotonic() < deadline:
                time.sleep(_CONNECT_POLL_SECONDS)
                continue
            advice = "be its user, or a member of ring.group" if error.errno == errno.EACCES else \
                "start a recording whose configuration has this path in ring.socket"
            raise RingError(f"{path}: no frames can be read there ({error.strerror or error}); {advice}") from error


_lock = threading.Lock()


def _order_loads() -> None:
    """Orders all loads before it ahead of all loads after it: a release followed by an acquire. Python has no fences."""
    with _lock:
        pass
    with _lock:
        pass
