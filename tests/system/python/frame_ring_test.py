# SPDX-License-Identifier: MIT
"""mediagrabber.FrameRing with a ring that the test publishes. ring.* tests it with recordings."""

import os
import pathlib
import socket
import struct
import sys
import tempfile
import threading
import unittest
import unittest.mock

import numpy
from mediagrabber import FrameRing, RingError

DEADLINE_SECONDS = 60
HERE, FRAME, OVERTAKEN = 1, 2, 3
MAGIC = 0x31676E6972676D00
WIDTH, HEIGHT, STRIDE = 3, 2, 4


class Publisher:
    """A ring of a few entries, and a socket for one reader, as mg_frame_ring.h describes them."""

    def __init__(self, path, entries=4):
        self.entries = entries
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.listener.bind(str(path))
        self.listener.listen()
        self.make_ring()

    def make_ring(self, version=1, magic=MAGIC, newest=0, entries=None):
        self.newest = newest
        self.ring, self.memory = (os.memfd_create(name) for name in ("ring", "memory"))
        os.truncate(self.ring, 128 + 128 * self.entries)
        os.truncate(self.memory, HEIGHT * STRIDE * self.entries)
        os.pwrite(self.ring, struct.pack("<QIIIIQQ", magic, version, 128,
                                         self.entries if entries is None else entries, 0, HEIGHT * STRIDE * self.entries, newest), 0)

    def accept(self):
        self.reader, _ = self.listener.accept()
        self.reader.settimeout(DEADLINE_SECONDS)
        self.send_ring()

    def send_ring(self):
        socket.send_fds(self.reader, [struct.pack("<IIQ", HERE, 0, self.newest)], [self.ring, self.memory])

    def entry(self, sequence):
        return 128 + 128 * (sequence % self.entries)

    def publish(self, value, message=True, pixel_format=b"Mono8", bits=8, width=WIDTH, known=31, offset=None):
        """Writes a frame whose pixels count from a value."""
        sequence = self.newest + 1
        self.overwrite(sequence)
        place = HEIGHT * STRIDE * (sequence % self.entries) if offset is None else offset
        if offset is None:
            os.pwrite(self.memory, bytes((value + i) % 256 for i in range(HEIGHT * STRIDE)), place)
        os.pwrite(self.ring, struct.pack("<7Q4I3fI3B5x16s", 0, place, HEIGHT * STRIDE, 10 * sequence, 1000 * sequence, 1000 * sequence + 1,
                                         7, width, HEIGHT, STRIDE, known, 1.5, 250.0, 40.0, 9, bits, min(bits, 12), 0, pixel_format),
                  self.entry(sequence))
        os.pwrite(self.ring, struct.pack("<Q", sequence), self.entry(sequence))
        os.pwrite(self.ring, struct.pack("<Q", sequence), 32)
        self.newest = sequence
        if message:
            self.reader.send(struct.pack("<IIQ", FRAME, 0, sequence))

    def overwrite(self, sequence):
        os.pwrite(self.ring, bytes(8), self.entry(sequence))

    def reported(self):
        """\\return the number of missed frames that the reader has reported"""
        kind, _, value = struct.unpack("<IIQ", self.reader.recv(16))
        assert kind == OVERTAKEN, kind
        return value

    def close(self):
        for one in (self.listener, getattr(self, "reader", None)):
            if one is not None:
                one.close()


class FrameRingTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.path = pathlib.Path(temporary.name) / "ring"
        self.publisher = Publisher(self.path)
        self.addCleanup(self.publisher.close)

    def connect(self, **options):
        ring = FrameRing(self.path, **options)
        self.addCleanup(ring.close)
        self.publisher.accept()
        return ring

    def test_gives_frames_with_their_values(self):
        ring = self.connect()
        self.publisher.publish(5)
        frame = ring.next(DEADLINE_SECONDS)
        self.assertEqual(frame.pixels.tolist(), [[5, 6, 7], [9, 10, 11]])  # without the padding
        self.assertEqual((frame.number, frame.timestamp_us, frame.handed_over_us, frame.ticks), (10, 1000, 1001, 7))
        self.assertEqual((frame.gain_db, frame.exposure_us, frame.counter, frame.temperature_c), (1.5, 250.0, 9, 40.0))
        self.assertEqual((frame.pixel_format, frame.significant_bits, frame.width, frame.height), ("Mono8", 8, 3, 2))

    def test_gives_none_for_values_that_are_not_known(self):
        ring = self.connect()
        self.publisher.publish(5, known=0)
        frame = ring.next(DEADLINE_SECONDS)
        self.assertEqual((frame.ticks, frame.gain_db, frame.exposure_us, frame.counter, frame.temperature_c), (None,) * 5)

    def test_images_are_the_shared_memory_and_read_only(self):
        ring = self.connect()
        self.publisher.publish(5)
        frame = ring.next(DEADLINE_SECONDS)
        os.pwrite(self.publisher.memory, b"\x63", HEIGHT * STRIDE)
        self.assertEqual(frame.pixels[0, 0], 0x63)
        with self.assertRaises(ValueError):
            frame.pixels[0, 0] = 1

    def test_unpacks_12_bits(self):
        ring = self.connect()
        self.publisher.publish(0, pixel_format=b"Mono12Packed", bits=12, width=2)
        frame = ring.next(DEADLINE_SECONDS)
        self.assertEqual((frame.pixels.shape, frame.unpacked().tolist()), ((2, 3), [[0x001, 0x020], [0x045, 0x060]]))
        self.publisher.publish(0x10, pixel_format=b"Mono12", bits=16, width=2)
        frame = ring.next(DEADLINE_SECONDS)
        self.assertEqual((frame.pixels.dtype, frame.unpacked().tolist()), (numpy.uint16, [[0x1110, 0x1312], [0x1514, 0x1716]]))

    def test_a_copy_outlives_the_ring(self):
        ring = self.connect()
        self.publisher.publish(5)
        frame = ring.next(DEADLINE_SECONDS)
        copy = frame.unpacked()
        self.assertTrue(ring.is_there(frame))
        ring.close()
        os.pwrite(self.publisher.memory, b"\0" * HEIGHT * STRIDE * 4, 0)
        self.assertEqual((copy[0, 0], frame.pixels[0, 0]), (5, 0))

    def test_detects_a_frame_that_is_overwritten_while_it_is_used(self):
        ring = self.connect()
        self.publisher.publish(5)
        frame = ring.next(DEADLINE_SECONDS)
        self.assertTrue(ring.is_there(frame))
        self.publisher.overwrite(1)
        self.assertFalse(ring.is_there(frame))
        self.assertEqual((ring.overtaken, self.publisher.reported()), (1, 1))

    def test_skips_and_counts_frames_that_were_overwritten_before(self):
        ring = self.connect()
        self.publisher.publish(0)
        ring.next(DEADLINE_SECONDS)
        for value in range(1, 9):  # twice as many as entries
            self.publisher.publish(value)
        self.publisher.overwrite(6)
        numbers = [ring.next(DEADLINE_SECONDS).number for _ in range(3)]
        self.assertEqual((numbers, ring.overtaken, self.publisher.reported()), ([70, 80, 90], 5, 5))

    def test_skips_a_frame_that_is_overwritten_while_its_entry_is_read(self):
        ring = self.connect()
        self.publisher.publish(0)
        self.publisher.publish(1)
        with unittest.mock.patch("mediagrabber.ring._order_loads") as order:
            order.side_effect = lambda: order.call_count == 2 and self.publisher.overwrite(1)
            self.assertEqual((ring.next(DEADLINE_SECONDS).number, ring.overtaken), (20, 1))

    def test_needs_no_message_for_each_frame(self):
        ring = self.connect()
        self.publisher.publish(0, message=False)
        self.publisher.publish(1, message=False)
        self.publisher.publish(2)
        self.assertEqual([ring.next(DEADLINE_SECONDS).number for _ in range(3)], [10, 20, 30])

    def test_begins_with_the_newest_frame(self):
        for value in range(3):
            self.publisher.publish(value, message=False)
        ring = self.connect()
        self.assertEqual(ring.next(DEADLINE_SECONDS).number, 30)

    def test_follows_to_another_ring(self):
        ring = self.connect()
        self.publisher.publish(5)
        old = ring.next(DEADLINE_SECONDS)
        newest = self.publisher.newest + 2  # two frames were published in the old ring and not read
        self.publisher.make_ring(newest=newest)
        self.publisher.send_ring()
        self.publisher.publish(50)
        self.assertEqual((ring.next(DEADLINE_SECONDS).pixels[0, 0], ring.overtaken), (50, 2))
        self.assertEqual(old.pixels[0, 0], 5)  # stays mapped
        self.assertFalse(ring.is_there(old))

    def test_ends_with_the_recording(self):
        ring = self.connect()
        self.publisher.publish(5)
        self.publisher.reader.close()
        self.assertEqual([frame.number for frame in ring], [10])
        self.assertIsNone(ring.next())

    def test_times_out(self):
        ring = self.connect(timeout=0.02)
        for wait in (lambda: ring.next(0.01), ring.next, lambda: list(ring)):
            with self.assertRaisesRegex(TimeoutError, f"{self.path}: no frame for 0.0[12] s"):
                wait()
        self.publisher.publish(5)
        self.assertEqual(ring.next(DEADLINE_SECONDS).number, 10)

    def test_does_not_wait_longer_because_of_other_messages(self):
        """Messages of frames that were overwritten do not restart the wait."""
        ring = self.connect()
        ended = threading.Event()

        def send():
            while not ended.wait(0.02):
                self.publisher.reader.send(struct.pack("<IIQ", FRAME, 0, 0))

        sender = threading.Thread(target=send)
        sender.start()
        try:
            with self.assertRaises(TimeoutError):
                ring.next(0.3)
        finally:
            ended.set()
            sender.join()

    def test_waits_for_a_recording(self):
        path = self.path.with_name("later")
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as listener:
            def start(_):  # while the reader waits
                if not path.exists():
                    listener.bind(str(path))
                    listener.listen()

            with unittest.mock.patch("time.sleep", start), FrameRing(path, connect_timeout=DEADLINE_SECONDS) as ring:
                self.assertEqual(ring.path, path)

    def test_finds_a_name_in_the_runtime_directory(self):
        with unittest.mock.patch.dict(os.environ, XDG_RUNTIME_DIR=str(self.path.parent)), FrameRing("ring") as ring:
            self.assertEqual(ring.path, self.path)

    def test_refuses_a_socket_without_frames(self):
        closed = self.path.with_name("closed")
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as bound:
            bound.bind(str(closed))
        for path, what in ((closed, "Connection refused"), (self.path.with_name("none"), "No such file"), ("/" + 200 * "x", "too long")):
            with self.assertRaisesRegex(RingError, f"{path}: no frames can be read there \\(.*{what}.*; start a recording"):
                FrameRing(path)

    def check_refused(self, what, descriptors=2, **values):
        self.publisher.make_ring(**values)
        ring = FrameRing(self.path)
        self.addCleanup(ring.close)
        self.publisher.reader, _ = self.publisher.listener.accept()
        before = len(os.listdir("/proc/self/fd"))
        socket.send_fds(self.publisher.reader, [struct.pack("<IIQ", HERE, 0, 0)], [self.publisher.ring] * descriptors)
        with self.assertRaisesRegex(RingError, f"{self.path}: {what}: the other end is not a mediagrabber, or one of another release"):
            ring.next(DEADLINE_SECONDS)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)
        self.publisher.reader.close()

    def test_refuses_what_is_no_ring(self):
        self.check_refused("a ring of version 2, this package reads version 1", version=2)
        self.check_refused("the memory does not begin as a ring", magic=1)
        self.check_refused("0 entries of 128 bytes in a ring of 640 bytes", entries=0)
        self.check_refused("1 descriptors instead of 2", descriptors=1)

    def test_never_gives_pixels_outside_of_the_memory(self):
        ring = self.connect()
        self.publisher.publish(0, offset=HEIGHT * STRIDE * 4 - 1)
        self.publisher.publish(1, width=100)
        self.publisher.publish(2)
        self.assertEqual((ring.next(DEADLINE_SECONDS).number, ring.overtaken), (30, 2))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
