# SPDX-License-Identifier: MIT
"""Reads the frames of a running mediagrabber from shared memory, as NumPy arrays without a copy.

    from frame_ring import FrameRing

    with FrameRing("/run/user/1000/frames.sock") as ring:
        for frame in ring:                  # in order; ends with the recording
            mean = frame.pixels.mean()      # frame.pixels[y, x], read-only, not a copy
            if not ring.is_there(frame):    # overwritten meanwhile: discard the result
                continue

The memory is reused for later frames. To keep a frame, copy it with `frame.pixels.copy()` and call `is_there()` after that.
`ring.overtaken` counts the missed frames. mg_frame_ring.h describes the layout and the memory ordering.

As a program it prints number, timestamp and mean value of each frame: frame_ring.py SOCKET [FRAMES]
"""

import array
import dataclasses
import mmap
import socket
import struct
import sys
import threading

import numpy

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


@dataclasses.dataclass
class Frame:
    sequence: int
    number: int  # from 1; dropped frames have numbers, too
    timestamp_us: int  # on the host's clock, since 1970
    handed_over_us: int  # when the plug-in handed the frame over, same clock
    format: str  # "Mono8", "Mono12", "Mono12Packed", "BayerRG8"
    significant_bits: int
    ticks: "int | None"
    gain_db: "float | None"
    exposure_us: "float | None"
    counter: "int | None"
    temperature_c: "float | None"
    pixels: numpy.ndarray  # height x width of uint8 or uint16; Mono12Packed: height x bytes per line, uint8


class FrameRing:
    def __init__(self, path):
        """Connects to the socket `ring.socket`. Raises OSError if no recording publishes frames there."""
        self.overtaken = 0
        self._ring = self._memory = None
        self._next = 0
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        try:
            self._socket.connect(path)
        except OSError:
            self._socket.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._socket.close()
        self._ring = self._memory = None  # arrays still in use keep the memory mapped

    def __iter__(self):
        while (frame := self.next()) is not None:
            yield frame

    def next(self, timeout=None):
        """Returns the next frame, None if the recording has ended. Raises TimeoutError after `timeout` seconds."""
        while True:
            if self._ring is not None and self._newest() >= self._next:
                frame = self._take()
                if frame is not None:
                    return frame
            if not self._receive(timeout):
                return None

    def is_there(self, frame):
        """Returns whether the frame has not been overwritten up to now; counts it if it has."""
        _order_loads()
        if self._sequence_at(self._place(frame.sequence)) == frame.sequence:
            return True
        self._count_overtaken(1)
        return False

    def _newest(self):
        return _SEQUENCE.unpack_from(self._ring, _NEWEST_AT)[0]

    def _place(self, sequence):
        return _RING_BYTES + sequence % self._entries * self._entry_bytes

    def _sequence_at(self, place):
        return _SEQUENCE.unpack_from(self._ring, place)[0]

    def _receive(self, timeout):
        """Receives one message. Returns False if the recording has ended."""
        self._socket.settimeout(timeout)
        try:
            data, rights, _, _ = self._socket.recvmsg(_MESSAGE.size, socket.CMSG_SPACE(8))
        except ConnectionResetError:
            return False
        if len(data) != _MESSAGE.size:
            return False
        kind, _, newest = _MESSAGE.unpack(data)
        if kind == _HERE:
            descriptors = array.array("i", rights[0][2])
            self._adopt(*map(_mapped, descriptors))
            self._next = self._next or max(newest, 1)
        return True

    def _adopt(self, ring, memory):
        magic, version, entry_bytes, entries, _, _, _ = _RING.unpack_from(ring)
        if magic != _MAGIC or version != _VERSION or entry_bytes < _FRAME.size:
            raise RuntimeError("unsupported version of the ring")
        self._ring, self._memory, self._entry_bytes, self._entries = ring, memory, entry_bytes, entries

    def _take(self):
        """Returns the oldest unread frame that has not been overwritten, None if there is none."""
        newest = self._newest()
        first = self._next
        frame = None
        candidate = max(first, newest - self._entries + 1)
        while candidate <= newest and (frame := self._frame_of(candidate)) is None:
            candidate += 1
        if candidate > first:
            self._count_overtaken(candidate - first)
        self._next = candidate if frame is None else candidate + 1
        return frame

    def _frame_of(self, sequence):
        place = self._place(sequence)
        if self._sequence_at(place) != sequence:
            return None
        _order_loads()
        entry = _FRAME.unpack_from(self._ring, place)
        _order_loads()
        if entry[0] != sequence or self._sequence_at(place) != sequence:
            return None
        (_, offset, size, number, timestamp, handed_over, ticks, width, height, stride, known, gain, exposure,
         temperature, counter, container_bits, significant_bits, _, pixel_format) = entry
        if offset + size > len(self._memory):
            return None
        kind = numpy.dtype("<u2" if container_bits == 16 else "u1")
        columns = (width * container_bits + 7) // 8 // kind.itemsize
        pixels = numpy.ndarray((height, columns), kind, self._memory, offset, (stride, kind.itemsize))
        return Frame(sequence, number, timestamp, handed_over, pixel_format.rstrip(b"\0").decode(), significant_bits,
                     ticks if known & _TICKS else None, gain if known & _GAIN else None,
                     exposure if known & _EXPOSURE else None, counter if known & _COUNTER else None,
                     temperature if known & _TEMPERATURE else None, pixels)

    def _count_overtaken(self, frames):
        self.overtaken += frames
        try:
            self._socket.send(_MESSAGE.pack(_OVERTAKEN, 0, self.overtaken), socket.MSG_DONTWAIT)
        except OSError:
            pass  # the next report contains the total


_lock = threading.Lock()


def _order_loads():
    """Orders all loads before it ahead of all loads after it: a release followed by an acquire. Python has no fences."""
    _lock.acquire()
    _lock.release()
    _lock.acquire()
    _lock.release()


def _mapped(descriptor):
    with open(descriptor, "rb", buffering=0) as file:
        return mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)


def main(path, frames=0):
    read = 0
    with FrameRing(path) as ring:
        for frame in ring:
            mean = float(frame.pixels.mean())
            if ring.is_there(frame):
                print(frame.number, frame.timestamp_us, f"{mean:.3f}", flush=True)
                read += 1
            if read == frames and frames != 0:
                break
        print(read, "frames,", ring.overtaken, "overtaken", file=sys.stderr)


if __name__ == "__main__":
    main(sys.argv[1], *map(int, sys.argv[2:]))
