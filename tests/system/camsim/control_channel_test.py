# SPDX-License-Identifier: MIT
"""The control channel and stream, observed by an application on the network."""

import signal
import struct
import subprocess
import time
import unittest

import gvcp
from camera_application import ADDRESSES, small_images, start
from camera_process import CAMSIM, DEADLINE_SECONDS, Camera, run, wait_for
from gvcp import Application, Stream


class Privilege(unittest.TestCase):
    def test_gives_control_to_one_application_and_reading_to_all(self):
        with Camera(), Application() as first, Application() as second:
            self.assertEqual(first.take_control(), gvcp.SUCCESS)
            self.assertEqual(second.take_control(), gvcp.ACCESS_DENIED)
            self.assertEqual(second.write(gvcp.HEARTBEAT_TIMEOUT, 1000), gvcp.ACCESS_DENIED)
            self.assertEqual(second.read(gvcp.CCP), (gvcp.SUCCESS, (gvcp.CONTROL,)))
            port = first.socket.getsockname()[1]
            self.assertEqual(second.read(gvcp.PRIMARY_PORT, gvcp.PRIMARY_ADDRESS), (gvcp.SUCCESS, (port, 0x7F000001)))

    def test_denies_reads_of_others_under_exclusive_access(self):
        with Camera(), Application() as first, Application() as second:
            self.assertEqual(first.take_control(gvcp.EXCLUSIVE), gvcp.SUCCESS)
            self.assertEqual(second.read(gvcp.CCP)[0], gvcp.ACCESS_DENIED)
            self.assertEqual(first.write(gvcp.CCP, 0), gvcp.SUCCESS)
            self.assertEqual(second.read(gvcp.CCP), (gvcp.SUCCESS, (0,)))

    def test_ends_control_and_stream_of_a_silent_application(self):
        with Camera(), Application() as silent, Application() as other, Stream() as stream:
            silent.take_control()
            small_images(silent)
            silent.write(gvcp.HEARTBEAT_TIMEOUT, 500)
            stream.open(silent)
            start(silent)
            stream.block()
            wait_for(lambda: other.read(gvcp.CCP) == (gvcp.SUCCESS, (0,)), "the loss of control")
            stream.drain()
            wait_for(stream.is_silent, "the end of the stream")
            self.assertEqual(other.read(gvcp.HOST_PORT, gvcp.PRIMARY_ADDRESS), (gvcp.SUCCESS, (0, 0)))
            self.assertEqual(other.take_control(), gvcp.SUCCESS)

    def test_keeps_control_of_an_application_that_sends_commands(self):
        with Camera(), Application() as busy, Application() as other:
            busy.take_control()
            busy.write(gvcp.HEARTBEAT_TIMEOUT, 2000)  # a busy machine delays no command that long
            end = time.monotonic() + 3 * 2
            while time.monotonic() < end:
                self.assertEqual(busy.read(gvcp.CCP), (gvcp.SUCCESS, (gvcp.CONTROL,)))
                time.sleep(0.01)
            self.assertEqual(other.take_control(), gvcp.ACCESS_DENIED)

    def test_continues_an_unconditional_stream_without_control(self):
        with Camera(), Application() as first, Stream() as stream:
            first.take_control()
            small_images(first)
            stream.open(first)
            first.write(gvcp.STREAM_CONFIGURATION, 2)
            start(first)
            stream.block()
            first.write(gvcp.CCP, 0)
            before, _ = stream.block()
            after, _ = stream.block()
            self.assertEqual(after, before + 1)


class Commands(unittest.TestCase):
    def test_return_a_status_for_each_error(self):
        with Camera(), Application() as one:
            one.take_control()
            self.assertEqual(one.read(0x0A00, 0x5000)[0], gvcp.INVALID_ADDRESS)
            self.assertEqual(one.read(0x0A01)[0], gvcp.BAD_ALIGNMENT)
            self.assertEqual(one.write(0x0000, 1), gvcp.WRITE_PROTECT)
            self.assertEqual(one.execute(0x00C0, b"\0" * 8)[0], gvcp.NOT_IMPLEMENTED)
            self.assertEqual(one.execute(gvcp.READREG, b"\0" * 6)[0], gvcp.INVALID_HEADER)

    def test_survive_other_datagrams(self):
        with Camera(), Application() as one:
            for junk in (b"", b"\x42", b"\x42\1\0\x80", b"\0" * 8, b"\xff" * 1400, b"\x42\1\0\x84\0\x08\0\1" + b"\xff" * 7,
                         b"\x42" * 2000):
                one.socket.send(junk)
            one.send(gvcp.READREG, struct.pack(">I", gvcp.CCP))
            acks = [one.receive()]
            while acks[-1][2] != one.next_id or acks[-1][1] != gvcp.READREG + 1 or acks[-1][0] != gvcp.SUCCESS:
                acks.append(one.receive())
            self.assertLessEqual(len(acks), 3)

    def test_get_no_ack_unless_it_is_required(self):
        with Camera(), Application() as one:
            one.take_control()
            one.send(gvcp.WRITEREG, struct.pack(">II", gvcp.HEARTBEAT_TIMEOUT, 1234), flags=0)
            self.assertEqual(one.read(gvcp.HEARTBEAT_TIMEOUT), (gvcp.SUCCESS, (1234,)))

    def test_get_a_pending_ack_for_a_slow_write_if_enabled(self):
        with Camera("--write-time", "300"), Application() as one:
            one.take_control()
            one.write(gvcp.GVCP_CONFIGURATION, 2)
            one.send(gvcp.WRITEREG, struct.pack(">II", gvcp.HEARTBEAT_TIMEOUT, 1000))
            status, number, identifier, payload = one.receive()
            self.assertEqual((status, number, identifier), (gvcp.SUCCESS, gvcp.PENDING_ACK, one.next_id))
            self.assertEqual(payload, struct.pack(">HH", 0, 300))
            self.assertEqual(one.receive()[:3], (gvcp.SUCCESS, gvcp.WRITEREG + 1, one.next_id))


class Streaming(unittest.TestCase):
    def test_resends_packets_with_the_same_bytes(self):
        for extended in (False, True):
            with self.subTest(extended=extended), Camera(), Application() as one, Stream() as stream:
                one.take_control()
                small_images(one, rate=20.0)
                one.write(gvcp.GVSP_CONFIGURATION, 0x40000000 if extended else 0)
                one.write(ADDRESSES["AcquisitionMode"], 1)
                stream.open(one)
                start(one)
                number, packets = stream.block()
                one.request_resend(number, 0, 0xFFFFFFFF if extended else 0xFFFFFF, extended)
                again, repeated = stream.block()
                self.assertEqual(again, number)
                self.assertEqual({key: value[1] for key, value in repeated.items()},
                                 {key: value[1] for key, value in packets.items()})
                for header, _ in repeated.values():
                    self.assertEqual((header["status"], header["flags"]),
                                     (gvcp.SUCCESS, 1) if extended else (gvcp.PACKET_RESEND, 0))
                one.request_resend(number, 7, 9, extended)
                self.assertEqual([stream.packet()[0]["packet"] for _ in range(3)], [7, 8, 9])

    def test_reports_that_a_packet_is_not_available(self):
        with Camera(), Application() as one, Stream() as stream:
            one.take_control()
            stream.open(one)
            one.request_resend(77, 5, 6)
            header, payload = stream.packet()
            self.assertEqual((header["status"], header["block"], header["packet"], payload),
                             (gvcp.PACKET_UNAVAILABLE, 77, 5, b""))

    def test_restarts_block_ids_on_a_reopened_channel(self):
        with Camera(), Application() as one, Stream() as first, Stream() as second:
            one.take_control()
            small_images(one)
            first.open(one)
            start(one)
            self.assertEqual(first.block()[0], 1)
            self.assertEqual(first.block()[0], 2)
            one.write(gvcp.HOST_PORT, 0)
            second.open(one)
            self.assertEqual(second.block()[0], 1)

    def test_sends_as_many_frames_as_the_acquisition_mode_requires(self):
        for mode, frames in ((1, 1), (2, 3)):
            with self.subTest(mode=mode), Camera() as camera, Application() as one, Stream() as stream:
                one.take_control()
                small_images(one)
                one.write(ADDRESSES["AcquisitionMode"], mode)
                one.write(ADDRESSES["AcquisitionFrameCount"], 3)
                stream.open(one)
                start(one)
                self.assertEqual([stream.block()[0] for _ in range(frames)], list(range(1, frames + 1)))
                self.assertTrue(stream.is_silent())
            self.assertEqual([frame["outcome"] for frame in camera.truth_frames].count("sent"), frames)

    def test_is_ready_for_the_next_acquisition_when_the_last_frame_has_arrived(self):
        with Camera("--pacing", "burst"), Application() as one, Stream() as stream:
            one.take_control()
            small_images(one, rate=1000.0)
            one.write(ADDRESSES["AcquisitionMode"], 1)
            stream.open(one)
            for number in range(1, 201):
                start(one)
                self.assertEqual(stream.block()[0], number)
                self.assertEqual(one.write(ADDRESSES["Width"], 320), gvcp.SUCCESS)

    def test_fires_a_test_packet_of_the_packet_size(self):
        with Camera(), Application() as one, Stream() as stream:
            one.take_control()
            stream.open(one)
            one.write(gvcp.PACKET_SIZE, 0x80000000 | 0x40000000 | 4000)
            header, payload = stream.packet()
            self.assertEqual((header["block"], header["packet"]), (0, 0))
            self.assertEqual(len(payload) + 8 + 28, 4000)
            self.assertEqual(one.read(gvcp.PACKET_SIZE), (gvcp.SUCCESS, (0x40000000 | 4000,)))

    def test_keeps_the_delay_between_packets(self):
        with Camera("--pacing", "burst"), Application() as one, Stream() as stream:
            one.take_control()
            small_images(one, rate=5.0)
            one.write(gvcp.PACKET_DELAY, 2_000_000)  # nanoseconds: the clock ticks at 1 GHz
            stream.open(one)
            start(one)
            while stream.packet()[0]["format"] != gvcp.LEADER:
                pass
            begin, packets = time.monotonic(), 1
            while stream.packet()[0]["format"] != gvcp.TRAILER:
                packets += 1
            self.assertGreaterEqual(time.monotonic() - begin, 0.002 * packets * 0.7)  # the reader may be late for the leader

    def test_sends_fragments_when_it_may(self):
        subprocess.run(["ip", "link", "set", "lo", "mtu", "3000"], check=True)
        try:
            with Camera() as camera, Application() as one, Stream() as stream:
                one.take_control()
                small_images(one)
                one.write(gvcp.PACKET_SIZE, 8000)
                stream.open(one)
                start(one)
                self.assertEqual(len(stream.block()[1][1][1]) + 8 + 28, 8000)
                one.write(ADDRESSES["AcquisitionStop"], 1)
                one.write(gvcp.HOST_PORT, 0)
                one.write(gvcp.PACKET_SIZE, 0x40000000 | 8000)
                stream.open(one)
                start(one)
                refused = wait_for(lambda: [frame for frame in camera.frames_so_far() if frame["unsent_packets"]],
                                   "a frame whose packets are too long")
                self.assertEqual(refused[0]["unsent_packets"], 4)  # 32000 bytes; leader and trailer are short
        finally:
            subprocess.run(["ip", "link", "set", "lo", "mtu", "65536"], check=True)

    def test_does_not_send_what_exceeds_the_link_when_it_must_not_fragment(self):
        subprocess.run(["ip", "link", "set", "lo", "mtu", "3000"], check=True)
        try:
            with Camera(), Application() as one, Stream() as stream:
                one.take_control()
                stream.open(one)
                one.write(gvcp.PACKET_SIZE, 0x80000000 | 0x40000000 | 4000)
                self.assertTrue(stream.is_silent())
                one.write(gvcp.PACKET_SIZE, 0x80000000 | 4000)
                self.assertEqual(len(stream.packet()[1]) + 8 + 28, 4000)
        finally:
            subprocess.run(["ip", "link", "set", "lo", "mtu", "65536"], check=True)


class Process(unittest.TestCase):
    def failure(self, *arguments):
        done = subprocess.run([CAMSIM, *arguments], capture_output=True, text=True, timeout=DEADLINE_SECONDS)
        self.assertNotEqual(done.returncode, 0)
        return done.stderr

    def test_ends_on_sigint_as_on_sigterm(self):
        with Camera(end_signal=signal.SIGINT):
            pass

    def test_reports_that_its_port_is_in_use(self):
        with Camera():
            self.assertIn("another camera listens on 127.0.0.1:3956", self.failure())

    def test_reports_invalid_options(self):
        self.assertIn("no network interface with address 192.0.2.1", self.failure("--address", "192.0.2.1"))
        self.assertIn("no network interface eth77", self.failure("--interface", "eth77"))
        self.assertIn("is not a valid sensor size", self.failure("--sensor", "640"))
        self.assertIn("is not a valid sensor size", self.failure("--sensor", "641x480"))
        self.assertIn("is not a valid pacing", self.failure("--pacing", "fast"))
        self.assertIn("is not a valid MAC address", self.failure("--mac", "1:2:3"))
        self.assertIn("--seed", self.failure("--seed", "x"))
        self.assertIn("cannot write the truth file", self.failure("--truth", "/nowhere/truth"))

    def test_describes_every_option_in_its_help(self):
        text = run(CAMSIM, "--help")
        for option in ("--address", "--interface", "--model", "--serial", "--vendor", "--user-name", "--mac", "--sensor",
                       "--limits", "--lut-max", "--images", "--timestamp", "--chunk-payload", "--count", "--seed",
                       "--pacing", "--clock-drift-ppm", "--tick-frequency", "--truth",
                       "--stream-channels", "--print-xml"):
            self.assertIn(option, text)


if __name__ == "__main__":
    unittest.main()
