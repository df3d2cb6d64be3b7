"""From the camera to the disk: what lands there is what the camera sent, and the recorder ends as it is told."""

import signal
import subprocess
import sys
import unittest

from camera_process import Camera, arv_control, feature, wait_for
from recorder import MGJAI, Recording
from recording_process import MEDIAGRABBER

REGION = """
[image]
width = 640
height = 480
format = "{format}"
[transport]
packet_size = {packet_size}
[timing]
frame_rate = {rate}
clock_correction = {correction}
[memory]
export_buffers = 100  # however slow the disk
"""


WAITS_FOR_CAMERA = """
[run]
retry_interval_s = 0.2
give_up_after = "never"
"""


def configuration(format="mono8", packet_size=1400, rate=100.0, correction=0, more=""):
    return REGION.format(format=format, packet_size=packet_size, rate=rate, correction=correction) + more


class EveryBitArrives(unittest.TestCase):
    def record(self, text, frames=50):
        # The truth is complete once the camera has ended, so the recording outlives it.
        with Recording(text, "--frames", str(frames)) as recording:
            with Camera() as camera:
                self.assertEqual(recording.finish(), 0, recording.log)
                wait_for(lambda: len(camera.frames_so_far()) >= frames, "the truth of all frames")
                status, words = recording.compare(camera.truth_path)
            self.assertEqual(status, 0, words)
            self.assertIn(f"{frames} frames identical, 0 different, 0 missing", words)
            return recording.journal()

    def test_in_every_format_with_small_and_large_packets(self):
        for pixel_format in ("mono8", "mono12p", "mono12", "bayer_rg8"):
            for packet_size in (1400, 8900, '"auto"'):
                with self.subTest(format=pixel_format, packet_size=packet_size):
                    self.record(configuration(pixel_format, packet_size))

    def test_from_a_region_inside_the_sensor(self):
        text = configuration(more="").replace("[image]", "[image]\noffset_x = 200\noffset_y = 102")
        frames = self.record(text)
        self.assertEqual({(frame["width"], frame["height"]) for frame in frames}, {(640, 480)})

    def test_every_frame_has_the_time_that_was_announced_for_it(self):
        for correction in (0, 1):
            with self.subTest(correction=correction):
                frames = self.record(configuration(correction=correction))
                # In camera time the second frame of a run initialises; it is the first one on disk.
                for frame in frames[correction:]:
                    self.assertEqual(frame["timestamp_us"], frame["announced_us"])

    def test_in_camera_time_frames_are_as_far_apart_as_the_camera_took_them(self):
        frames = self.record(configuration(correction=1))
        steps = [b["timestamp_us"] - a["timestamp_us"] for a, b in zip(frames[1:], frames[2:])]
        self.assertLessEqual(max(steps) - min(steps), 2, steps)


class TheEndOfARun(unittest.TestCase):
    def test_a_stop_signal_ends_it_in_good_order(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=number), Camera() as camera, Recording(configuration()) as recording:
                recording.wait_for_frames(20)
                recording.signal(number)
                self.assertEqual(recording.finish(), 0, recording.log)
                status, words = recording.compare(camera.truth_path)
                self.assertEqual(status, 0, words)

    def test_the_camera_is_free_afterwards(self):
        with Camera(), Recording(configuration(), "--frames", "10") as recording:
            self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual(feature("TLParamsLocked"), "0")
            arv_control("Width=320")
            self.assertEqual(feature("Width"), "320")

    def test_a_stop_that_no_frame_carries_to_the_plugin_is_given_up_after_the_grace_time(self):
        # Frames take ten seconds to get here: none comes within the grace time.
        impatient = configuration(more="[run]\ngrace_time_s = 1\n")
        with Camera("--network-delay", "10000"), Recording(impatient) as recording:
            recording.wait_for_log("recording to")
            wait_for(lambda: feature("TLParamsLocked") == "1", "capture to begin")
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), 5, recording.log)

    def test_a_reload_that_changes_the_region_begins_another_run_with_it(self):
        with Camera() as camera, Recording(configuration()) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(configuration().replace("width = 640", "width = 320"))
            recording.signal(signal.SIGHUP)
            wait_for(lambda: any(frame["width"] == 320 for frame in recording.journal()), "a frame of the new size")
            self.assertEqual(recording.stop(), 0, recording.log)
            status, words = recording.compare(camera.truth_path)
            self.assertIn(" 0 different", words)

    def test_a_reload_that_changes_the_rate_goes_on_without_losing_a_frame(self):
        with Camera() as camera, Recording(configuration(rate=50.0)) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(configuration(rate=100.0))
            recording.signal(signal.SIGHUP)
            wait_for(lambda: float(feature("AcquisitionFrameRate")) == 100, "the new rate")
            recording.wait_for_frames(len(recording.journal()) + 10)
            self.assertEqual(recording.stop(), 0, recording.log)
            status, words = recording.compare(camera.truth_path)
            self.assertEqual(status, 0, words)

    def test_a_bad_reload_is_reported_with_its_place_and_changes_nothing(self):
        with Camera() as camera, Recording(configuration()) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(configuration().replace("width = 640", "widht = 320"))
            recording.signal(signal.SIGHUP)
            recording.wait_for_log("run.toml:3:")
            recording.wait_for_frames(len(recording.journal()) + 10)
            self.assertEqual(recording.stop(), 0, recording.log)
            status, words = recording.compare(camera.truth_path)
            self.assertEqual(status, 0, words)


class TheCamera(unittest.TestCase):
    def test_that_is_not_there_is_a_failure_of_its_own(self):
        text = configuration(more="[run]\nretry_interval_s = 0.1\ngive_up_after = 2\n")
        with Recording(text) as recording:
            self.assertEqual(recording.finish(), 3, recording.log)

    def test_that_appears_later_is_found(self):
        text = configuration(more=WAITS_FOR_CAMERA)
        with Recording(text, "--frames", "10") as recording:
            recording.wait_for_log("no camera")
            with Camera():
                self.assertEqual(recording.finish(), 0, recording.log)

    def test_that_is_lost_and_comes_back_is_grabbed_from_again(self):
        text = configuration(more=WAITS_FOR_CAMERA)
        with Recording(text) as recording:
            with Camera() as first:
                recording.wait_for_frames(20)
                first.lose()
            before = len(recording.journal())
            with Camera() as second:
                recording.wait_for_frames(before + 20)
                self.assertEqual(recording.stop(), 0, recording.log)
                self.assertTrue(second.frames_so_far())

    def test_is_one_of_those_that_are_listed(self):
        with Camera("--serial", "ONE"), Camera("--address", "127.0.0.2", "--serial", "TWO"):
            listed = subprocess.run([MEDIAGRABBER, "--plugin", MGJAI, "cameras"], capture_output=True, text=True,
                                    timeout=60)
        self.assertEqual(listed.returncode, 0, listed.stdout + listed.stderr)
        self.assertIn("ONE", listed.stdout)
        self.assertIn("TWO", listed.stdout)

    def test_is_chosen_by_its_serial_number(self):
        text = configuration(more='[camera]\nmodel = "GO-5100M-PGE"\nserial = "TWO"\n')
        with Camera("--serial", "ONE") as one, Camera("--address", "127.0.0.2", "--serial", "TWO") as two:
            with Recording(text, "--frames", "10") as recording:
                self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual(one.frames_so_far(), [])
            self.assertGreaterEqual(len(two.frames_so_far()), 10)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
