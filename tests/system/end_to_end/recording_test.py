# SPDX-License-Identifier: MIT
"""Recordings of the simulated camera: lossless frames, orderly stops and reloads, and the selection of the camera."""

import signal
import subprocess
import sys
import unittest

from camera_process import Camera, arv_control, feature
from pairwise import pairwise
from recorder import MGJAI, Recording, verified_recording
from recording_process import MEDIAGRABBER
from waiting import wait_for

REGION = """
[image]
width = 640
height = 480
format = "{format}"
[transport]
packet_size_bytes = {packet_size}
[timing]
frame_rate_hz = {rate}
clock_correction_ppb = {correction}
[memory]
export_buffers = 100  # so that a slow disk drops no frame
"""

SLOW = 20.0  # frames/s, of which a busy machine receives all

WAITS_FOR_CAMERA = """
[run]
retry_interval_s = 0.2
give_up_after = "never"
"""


def configuration(format="Mono8", packet_size=1400, rate=100.0, correction=0, more=""):
    return REGION.format(format=format, packet_size=packet_size, rate=rate, correction=correction) + more


class LosslessRecording(unittest.TestCase):
    def record(self, text, frames=50):
        with verified_recording(self, text, frames) as (recording, report):
            self.assertIn(f"{frames} frames identical, 0 different, 0 missing", report)
            saved = recording.frame_index()
            # The first exposure calibrates the clocks. With it, none is missing at the beginning either.
            self.assertEqual(saved[0]["counter"], 1)
            return saved

    def test_of_a_region_of_the_sensor(self):
        text = configuration(more="").replace("[image]", "[image]\noffset_x = 200\noffset_y = 102")
        frames = self.record(text)
        self.assertEqual({(frame["width"], frame["height"]) for frame in frames}, {(640, 480)})

    def test_every_frame_has_the_announced_timestamp(self):
        for correction in (0, 1):
            with self.subTest(correction=correction):
                frames = self.record(configuration(correction=correction))
                # In camera time the second frame of a run, which is the first one saved, initialises the clock.
                for frame in frames[correction:]:
                    self.assertEqual(frame["timestamp_us"], frame["announced_us"])

    def test_camera_time_preserves_the_intervals_between_exposures(self):
        frames = self.record(configuration(correction=1))
        steps = [b["timestamp_us"] - a["timestamp_us"] for a, b in zip(frames[1:], frames[2:])]
        self.assertLessEqual(max(steps) - min(steps), 2, steps)

    def test_a_reload_with_another_frame_rate_loses_no_frame(self):
        with Camera() as camera, Recording(configuration(rate=50.0)) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(configuration(rate=100.0))
            recording.signal(signal.SIGHUP)
            wait_for(lambda: float(feature("AcquisitionFrameRate")) == 100, "the new rate")
            recording.wait_for_frames(len(recording.frame_index()) + 10)
            self.assertEqual(recording.stop(), 0, recording.log)
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)


class FrameFormats(unittest.TestCase):
    def test_each_pixel_format_is_converted_rotated_and_sent_in_small_and_large_packets(self):
        targets = ("Mono8", "Mono12Packed", "Mono12")
        for case in pairwise(format=(*targets, "BayerRG8"), convert_to=("none", *targets), packet_size=(1400, 8900, '"auto"'),
                             rotation=(0, 180)):
            with self.subTest(**case):
                text = configuration(case["format"], case["packet_size"], SLOW).replace(
                    "[image]", f'[image]\nconvert_to = "{case["convert_to"]}"\nrotation_deg = {case["rotation"]}')
                options = ["--rotated-180"] if case["rotation"] else []
                with verified_recording(self, text, 20, verify_options=options) as (recording, report):
                    self.assertIn("20 frames identical, 0 different, 0 missing", report)
                    saved = case["format"] if case["convert_to"] == "none" else case["convert_to"]
                    self.assertEqual({line["pixel_format"] for line in recording.frame_index()}, {saved})


class StopAndReload(unittest.TestCase):
    def test_a_stop_signal_ends_the_recording_with_success(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=number), Camera() as camera, Recording(configuration(rate=SLOW)) as recording:
                recording.wait_for_frames(20)
                recording.signal(number)
                self.assertEqual(recording.finish(), 0, recording.log)
                status, report = recording.verify(camera.truth_path)
                self.assertEqual(status, 0, report)

    def test_a_finished_recording_releases_the_camera(self):
        with Camera(), Recording(configuration(), "--frames", "10") as recording:
            self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual(feature("TLParamsLocked"), "0")
            arv_control("Width=320")
            self.assertEqual(feature("Width"), "320")

    def test_a_stop_without_frames_ends_the_recording_after_the_grace_time(self):
        # Frames arrive ten seconds late, so none arrives within the grace time and the plug-in does not poll the signal.
        short_grace_time = configuration(more="[run]\ngrace_time_s = 1\n[log]\nlevel = \"info\"\n")
        with Camera("--network-delay", "10000"), Recording(short_grace_time) as recording:
            recording.wait_for_log("START GRABBING")
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), 5, recording.log)

    def test_a_reload_with_another_region_restarts_the_acquisition(self):
        with Camera() as camera, Recording(configuration(rate=SLOW)) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(configuration(rate=SLOW).replace("width = 640", "width = 320"))
            recording.signal(signal.SIGHUP)
            wait_for(lambda: any(frame["width"] == 320 for frame in recording.frame_index()), "a frame of the new size")
            self.assertEqual(recording.stop(), 0, recording.log)
            status, report = recording.verify(camera.truth_path)
            self.assertIn(" 0 different", report)

    def test_an_invalid_reload_is_reported_with_its_line_and_changes_nothing(self):
        with Camera() as camera, Recording(configuration(rate=SLOW)) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(configuration(rate=SLOW).replace("width = 640", "widht = 320"))
            recording.signal(signal.SIGHUP)
            recording.wait_for_log("run.toml:3:")
            recording.wait_for_frames(len(recording.frame_index()) + 10)
            self.assertEqual(recording.stop(), 0, recording.log)
            status, report = recording.verify(camera.truth_path)
            self.assertEqual(status, 0, report)


class CameraSelection(unittest.TestCase):
    def test_a_missing_camera_has_its_own_exit_status(self):
        text = configuration(more="[run]\nretry_interval_s = 0.1\ngive_up_after = 2\n")
        with Recording(text) as recording:
            self.assertEqual(recording.finish(), 3, recording.log)

    def test_a_camera_that_appears_later_is_found(self):
        text = configuration(more=WAITS_FOR_CAMERA)
        with Recording(text, "--frames", "10") as recording:
            recording.wait_for_log("no camera")
            with Camera():
                self.assertEqual(recording.finish(), 0, recording.log)

    def test_a_camera_that_is_lost_and_returns_is_used_again(self):
        text = configuration(more=WAITS_FOR_CAMERA)
        with Recording(text) as recording:
            with Camera() as first:
                recording.wait_for_frames(20)
                first.lose()
            before = len(recording.frame_index())
            with Camera() as second:
                recording.wait_for_frames(before + 20)
                self.assertEqual(recording.stop(), 0, recording.log)
                self.assertTrue(second.frames_so_far())

    def test_all_cameras_are_listed(self):
        with Camera("--serial", "ONE"), Camera("--address", "127.0.0.2", "--serial", "TWO"):
            listed = subprocess.run([MEDIAGRABBER, "--plugin", MGJAI, "cameras"], capture_output=True, text=True,
                                    timeout=60)
        self.assertEqual(listed.returncode, 0, listed.stdout + listed.stderr)
        self.assertIn("ONE", listed.stdout)
        self.assertIn("TWO", listed.stdout)

    def test_a_camera_is_selected_by_its_serial_number(self):
        text = configuration(more='[camera]\nmodel = "GO-5100M-PGE"\nserial = "TWO"\n')
        with Camera("--serial", "ONE") as one, Camera("--address", "127.0.0.2", "--serial", "TWO") as two:
            with Recording(text, "--frames", "10") as recording:
                self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual(one.frames_so_far(), [])
            self.assertGreaterEqual(len(two.frames_so_far()), 10)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
