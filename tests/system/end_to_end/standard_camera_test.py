# SPDX-License-Identifier: MIT
"""Recordings of a camera that behaves as the standards say where a more convenient one differs: chunk payloads, a timestamp that must
be latched, a LUT of 12 bits, limits that depend on each other, triggers, images and several cameras."""

import contextlib
import json
import pathlib
import re
import socket
import struct
import sys
import tempfile
import time
import unittest
import zlib

from camera_process import Cameras, StandardCamera, StandardFaultyCamera, arv_control, feature
from pairwise import pairwise
from recorder import Recording
from waiting import wait_for

# The region is that of the camera: the plug-in sets none in a camera whose limits depend on each other.
CONFIGURATION = """
[image]
format = "{format}"
[transport]
packet_size_bytes = 1400
[timing]
frame_rate_hz = 20.0
clock_correction_ppb = {correction}
[memory]
export_buffers = 100
[exposure]
auto = "Off"
time_us = {exposure}
[gain]
auto = "Off"
db = 0
[log]
level = "info"
"""

SMALL_SENSOR = ("--sensor", "640x480")
PERIOD_US = 50_000
INIT_TIMINGS = re.compile(r"Init timings: latencyUs=(-?\d+), .*\(btsFGotUs=(\d+), btsFStartUs=(\d+)\)")


def configuration(format="Mono8", correction=0, exposure=1000, more=""):
    return CONFIGURATION.format(format=format, correction=correction, exposure=exposure) + more


class StandardCameraTest(unittest.TestCase):
    @contextlib.contextmanager
    def recording(self, *camera_options, text=None, frames=10, camera=None):
        """Records frames and verifies them. Yields the recording and its camera.

        \\param camera a running camera; none: one with these options
        """
        with contextlib.ExitStack() as stack:
            camera = camera or stack.enter_context(StandardCamera(*SMALL_SENSOR, *camera_options))
            recording = stack.enter_context(Recording(text or configuration(), "--frames", frames))
            self.assertEqual(recording.finish(), 0, recording.log)
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)
            self.assertIn(f"{frames} frames identical, 0 different, 0 missing", report)
            yield recording, camera


class ChunkPayloads(StandardCameraTest):
    def test_of_each_kind_are_recorded_with_the_image_size_and_the_chunks(self):
        for case in pairwise(payload=("standard", "deprecated", "extended"), format=("Mono8", "Mono12Packed", "Mono12", "BayerRG8"),
                             timestamp=("latched", "running")):
            options = ("--chunk-payload", case["payload"], "--timestamp", case["timestamp"])
            with self.subTest(**case), self.recording(*options, text=configuration(case["format"])) as (recording, camera):
                self.assertEqual(recording.wrong_counters(camera), [])
                self.assertEqual({(frame["width"], frame["height"], frame["exposure_us"]) for frame in recording.frame_index()},
                                 {(640, 480, 1000)})

    def test_can_be_switched_by_the_stream_channel(self):
        with StandardCamera(*SMALL_SENSOR) as camera:
            arv_control("GevSCCFGExtendedChunkData=true")
            with self.recording(camera=camera) as (recording, _):
                self.assertEqual(recording.wrong_counters(camera), [])

    def test_follow_the_region_of_each_run(self):
        with StandardCamera(*SMALL_SENSOR) as camera:
            for width, height in ((320, 200), (640, 480)):
                arv_control(f"Width={width}", f"Height={height}")
                with self.recording(camera=camera) as (recording, _):
                    self.assertEqual({(frame["width"], frame["height"]) for frame in recording.frame_index()}, {(width, height)})


class LatchedTimestamp(StandardCameraTest):
    """What a user gets: the plug-in reads GevTimestampValue with each frame and never latches it."""

    def timings(self, log):
        """\\return latency, camera time at the first fetch, and timestamp of the first block, in us"""
        return tuple(int(number) for number in INIT_TIMINGS.search(log).groups())

    def errors(self, recording, camera):
        """\\return how much later than the start of its exposure the timestamp of each frame is, in us"""
        offset = time.time_ns() - time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        power_up = json.loads(camera.truth_path.read_text().split("\n")[0])["power_up_ns"]
        return [frame["timestamp_us"] - (frame["ticks"] + power_up + offset) / 1000 for frame in recording.frame_index()]

    def test_that_was_never_latched_shifts_all_timestamps_by_the_same_time(self):
        with self.recording(text=configuration(correction=1)) as (recording, camera):
            _, counter, block = self.timings(recording.log)
            self.assertEqual(counter, block)
            errors = self.errors(recording, camera)
            self.assertLess(max(errors) - min(errors), 100)

    def test_that_was_never_latched_leaves_host_time_without_the_delay_of_the_first_frame(self):
        with self.recording(text=configuration(correction=0)) as (recording, _):
            _, counter, block = self.timings(recording.log)
            self.assertEqual(counter, block)

    def test_that_another_program_has_latched_moves_timestamps_into_the_future_by_its_age(self):
        for correction in (0, 1):
            with self.subTest(correction=correction), StandardCamera(*SMALL_SENSOR) as camera:
                arv_control("GevTimestampControlLatch")
                latched = int(feature("GevTimestampValue")) // 1000
                with self.recording(camera=camera, text=configuration(correction=correction)) as (recording, _):
                    latency, counter, block = self.timings(recording.log)
                    self.assertEqual(counter, latched)
                    self.assertEqual(latency, counter - block)
                    frames = recording.frame_index()
                    self.assertTrue(all(frame["timestamp_us"] > frame["handed_over_us"] for frame in frames))
                    if correction:
                        self.assertGreaterEqual(recording.log.count("init TS trigger"), len(frames), "set again by each frame")

    def test_cannot_be_latched_by_another_program_during_the_run(self):
        with StandardCamera(*SMALL_SENSOR) as camera, Recording(configuration(correction=1), "--frames", 40) as recording:
            recording.wait_for_frames(5)
            self.assertIn("rror", "".join(arv_control("GevTimestampControlLatch")))
            self.assertEqual(feature("GevTimestampValue"), "0")
            self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual(recording.verify(camera.truth_path)[0], 0)
            errors = self.errors(recording, camera)
            self.assertLess(max(errors) - min(errors), 100)

    def test_that_runs_is_the_time_of_the_first_fetch(self):
        for correction in (0, 1):
            with self.subTest(correction=correction), \
                    self.recording("--timestamp", "running", text=configuration(correction=correction)) as (recording, _):
                latency, counter, block = self.timings(recording.log)
                self.assertGreater(counter, block)
                self.assertEqual(latency, counter - block)


class Ptp(StandardCameraTest):
    def test_gives_frames_the_time_of_the_network(self):
        with StandardCamera(*SMALL_SENSOR, "--ptp", "--clock-drift-ppm", "1000") as camera:
            self.assertEqual(feature("PtpStatus"), "Disabled")
            arv_control("PtpEnable=true")
            self.assertEqual(feature("PtpStatus"), "Slave")
            with self.recording(camera=camera, text=configuration(correction=1)):
                pass
        sent = [frame for frame in camera.truth_frames if frame["outcome"] == "sent"]  # a busy camera leaves out exposures
        self.assertTrue(sent)
        for frame in sent:
            age_ns = frame["send_end_ns"] + frame["utc_offset_ns"] - frame["ticks"]
            self.assertTrue(0 < age_ns < 10_000_000_000, frame)


class LutMaximum(StandardCameraTest):
    def record_with_lut(self, *camera_options):
        """Records with a table that rises to the largest value of 12 bits. \\return the lines of the truth file and the log"""
        more = '[tone]\nenable = true\nlut = "table.csv"\nlut_bits = 12\n'
        recording = Recording(configuration(more=more), "--frames", 10)
        recording.configuration_path.with_name("table.csv").write_text("".join(f"{4095 * i // 255}\n" for i in range(256)))
        with StandardCamera(*SMALL_SENSOR, *camera_options) as camera, recording:
            self.assertEqual(recording.finish(), 0, recording.log)
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)
            return camera.truth_path.read_text(), recording.log

    def test_of_12_bits_takes_a_table_of_full_scale(self):
        truth, log = self.record_with_lut()
        self.assertIn("LUT handler exit (nValuesDev = 256, nCfgVals = 256", log)
        self.assertNotIn("can't set LUT value", log)
        self.assertIn("4095", truth)

    def test_that_refuses_a_value_leaves_the_table_incomplete_and_the_recording_goes_on(self):
        _, log = self.record_with_lut("--lut-max", "4094")
        self.assertIn("can't set LUT value", log)
        self.assertNotIn("LUT handler exit", log)


class DependentLimits(StandardCameraTest):
    def test_of_the_region_let_the_plug_in_set_none_and_keep_that_of_the_camera(self):
        text = configuration().replace("[image]", "[image]\nwidth = 320\nheight = 200")
        with StandardCamera(*SMALL_SENSOR) as camera:
            arv_control("Width=480", "Height=400", "OffsetX=160", "OffsetY=80")
            with self.recording(camera=camera, text=text) as (recording, _):
                self.assertIn("fail: params_error (name:OffsetX, value:464, hard-max:160)", recording.log)
                self.assertEqual({(frame["width"], frame["height"]) for frame in recording.frame_index()}, {(480, 400)})

    def test_of_the_exposure_time_refuse_one_that_is_longer_than_the_frame_period(self):
        with self.recording(text=configuration(exposure=PERIOD_US + 10_000)) as (recording, _):
            self.assertRegex(recording.log, rf"fail: name:ExposureTime, value:{PERIOD_US + 10_000}\.0+, .*soft-max:{PERIOD_US - 20}\.0+")
            self.assertEqual({frame["exposure_us"] for frame in recording.frame_index()}, {1000})


class Triggers(StandardCameraTest):
    FRAMES = 5

    def record_triggered(self, camera, source, trigger):
        """Records frames of which each has its trigger. The first frame of a run is not recorded."""
        arv_control(f"TriggerSource={source}", "TriggerMode=On")
        with Recording(configuration(), "--frames", self.FRAMES) as recording:
            recording.wait_for_log("START GRABBING")
            wait_for(lambda: feature("TLParamsLocked") == "1", "the start of the acquisition")
            for number in range(self.FRAMES + 1):
                def triggered():
                    trigger()  # again if the acquisition had not started, or the last frame was still read out
                    return len(camera.frames_so_far()) > number
                wait_for(triggered, "the triggered frame")
            self.assertEqual(recording.finish(), 0, recording.log)
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)
            self.assertIn(f"{self.FRAMES} frames identical", report)

    def test_of_the_line_are_recorded(self):
        with StandardFaultyCamera(*SMALL_SENSOR) as camera:
            def pulse():
                camera.request("line1 = true")
                camera.request("line1 = false")
            self.record_triggered(camera, "Line1", pulse)

    def test_of_action_commands_of_another_program_are_recorded(self):
        with StandardCamera(*SMALL_SENSOR) as camera, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            arv_control("ActionDeviceKey=1", "ActionGroupKey=2", "ActionGroupMask=4")
            command = struct.pack(">BBHHHIII", 0x42, 0, 0x0100, 12, 1, 1, 2, 4)
            self.record_triggered(camera, "Action1", lambda: sender.sendto(command, ("127.0.0.1", 3956)))


def write_png(path, width, height, pixels):
    """Writes an 8-bit greyscale image."""
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    lines = b"".join(b"\0" + pixels[y * width:(y + 1) * width] for y in range(height))
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 0, 0, 0, 0)) +
                     chunk(b"IDAT", zlib.compress(lines)) + chunk(b"IEND", b""))


class OwnImages(StandardCameraTest):
    WIDTH, HEIGHT = 320, 200

    def test_are_recorded_in_a_loop(self):
        with tempfile.TemporaryDirectory() as directory:
            images = [bytes((x * factor + y) % 256 for y in range(self.HEIGHT) for x in range(self.WIDTH)) for factor in (1, 3, 5)]
            for number, image in enumerate(images):
                write_png(pathlib.Path(directory) / f"{number}.png", self.WIDTH, self.HEIGHT, image)
            with StandardCamera("--images", directory) as camera, self.recording(camera=camera) as (recording, _):
                for line in recording.frame_index():
                    self.assertEqual(recording.pixels(line), images[line["counter"] % len(images)])


class Addresses(StandardCameraTest):
    def test_that_forceip_has_set_are_recorded_from(self):
        with StandardCamera(*SMALL_SENSOR, "--mac", "00:0c:df:01:02:03") as camera, \
                socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
            payload = struct.pack(">HHI12xI12xI12xI", 0, 0x000C, 0xDF010203, 0x7F000009, 0xFF000000, 0)
            sender.sendto(struct.pack(">BBHHH", 0x42, 1, 0x0004, len(payload), 1) + payload, ("127.255.255.255", 3956))
            self.assertEqual(sender.recvfrom(2048)[1], ("127.0.0.9", 3956))
            with self.recording(camera=camera) as (recording, _):
                self.assertIn("127.0.0.9", recording.log)

    def test_of_two_cameras_in_one_process_are_recorded_at_the_same_time(self):
        select = '[camera]\nmodel = "GO-5100M-PGE"\nserial = "{}"\n'
        with Cameras(2, *SMALL_SENSOR, "--serial", "TWIN1") as cameras:
            with Recording(configuration(more=select.format("TWIN1")), "--frames", 20) as one, \
                    Recording(configuration(more=select.format("TWIN2")), "--frames", 20) as two:
                for recording, truth_path in zip((one, two), cameras.truth_paths):
                    self.assertEqual(recording.finish(), 0, recording.log)
                    status, report = recording.verify(truth_path)
                    self.assertEqual(status, 0, report)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
