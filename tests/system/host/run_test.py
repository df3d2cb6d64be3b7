# SPDX-License-Identifier: MIT
"""`mediagrabber run`: exit status, saved frames, output directory and report."""

import json
import pathlib
import signal
import sys
import tempfile
import unittest

from file_system import file_system
from host_process import Recording, command
from tiff_strip import read_strip
from waiting import wait_for

SUCCESS, FRAMES_LOST, USAGE, NO_CAMERA, RUN_FAILED, CUT_SHORT = range(6)
UNAVAILABLE = 11


class ExitStatus(unittest.TestCase):
    def expect(self, status, script, *arguments, configuration="", log=""):
        with Recording(script, *arguments, configuration=configuration) as recording:
            self.assertEqual(recording.finish(), status, recording.log)
            self.assertIn(log, recording.log)
            return recording.frame_index()

    def test_is_success_after_the_requested_frames(self):
        self.assertEqual(len(self.expect(SUCCESS, "grab", "--frames", 10)), 10)

    def test_is_success_after_the_configured_frames(self):
        self.assertEqual(len(self.expect(SUCCESS, "grab", configuration="run.frames = 7")), 7)

    def test_uses_the_command_line_rather_than_the_configuration(self):
        self.assertEqual(len(self.expect(SUCCESS, "grab", "--frames", 3, configuration="run.frames = 7")), 3)

    def test_is_success_if_the_plugin_does_not_count_frames(self):
        self.assertEqual(len(self.expect(SUCCESS, "frames 100 0", "--frames", 10)), 10)

    def test_is_cut_short_if_the_plugin_does_not_end_after_its_last_frame(self):
        frames = self.expect(CUT_SHORT, "frames 20 0; idle", "--frames", 10, configuration="run.grace_time_s = 0.1")
        self.assertEqual(len(frames), 10)

    def test_without_a_camera_is_distinct(self):
        self.expect(NO_CAMERA, "exit 2", log="no camera was found (exit code 2)")
        self.expect(NO_CAMERA, "exit 3", log="the configured camera was not found (exit code 3)")

    def test_is_failure_if_the_plugin_fails(self):
        for code in (-1, -2, -5, -10, 1, 42):
            with self.subTest(code):
                self.expect(RUN_FAILED, f"exit {code}", log=f"(exit code {code})")

    def test_is_failure_if_the_plugin_ends_unexpectedly(self):
        self.expect(RUN_FAILED, "frames 5", log="the plug-in ended its run without a stop request (exit code 0)")

    def test_is_failure_after_the_allowed_attempts(self):
        configuration = "run.give_up_after = 3\nrun.retry_interval_s = 0"
        with Recording("exit -10", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            self.assertEqual(recording.log.count("run "), 4, recording.log)

    def test_is_failure_without_retry_if_retries_cannot_help(self):
        configuration = "run.give_up_after = \"never\"\nrun.retry_interval_s = 0"
        with Recording("exit -2", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            self.assertEqual(recording.log.count("run "), 1, recording.log)

    def test_counts_attempts_from_the_last_run_with_frames(self):
        configuration = "run.give_up_after = 2\nrun.retry_interval_s = 0"
        script = "frames 4; exit -10\nexit -10\nframes 4; exit -10\nexit 2\ngrab"
        self.assertEqual(len(self.expect(SUCCESS, script, "--frames", 20, configuration=configuration)), 20)

    def test_is_failure_if_no_frame_is_usable(self):
        self.expect(RUN_FAILED, "image 64 48 NOSUCHFORMAT; grab", "--frames", 5,
                    log="the plug-in published an unknown pixel format: NOSUCHFORMAT")

    def test_is_failure_after_invalid_calls_of_the_plugin(self):
        with Recording("wrong; exit -5") as recording:
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            for answer in ("no reload -1", "buffer 1", "instance -1", "null -1", "stray -1", "pin 0"):
                self.assertIn(answer + "\n", recording.log)

    def test_is_preceded_by_a_summary(self):
        self.expect(SUCCESS, "grab", "--frames", 10, log="10 frames saved, ")
        self.expect(SUCCESS, "grab", "--frames", 10, log="dropped: 0 (queue full), 0 (write errors); 0 fetches without a frame")


class SavedFrames(unittest.TestCase):
    def test_have_the_content_at_the_time_of_the_handover(self):
        with Recording("overwrite; grab 0", "--frames", 100) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            frames = recording.frame_index()
            self.assertEqual([frame["frame"] for frame in frames], list(range(1, 101)))
            for frame in frames:
                good_frame = frame["frame"] + 1  # the first good frame is never exported
                expected = bytes((i * 7 + good_frame * 13) & 0xFF for i in range(64 * 48))
                self.assertEqual(read_strip(recording.output / frame["file"]), expected, frame)

    def test_have_the_values_that_the_plugin_published(self):
        with Recording("image 32 16 MONO12T 8; grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            for number, frame in enumerate(recording.frame_index(), 1):
                start = 1_700_000_000_000_000
                handed_over = frame.pop("handed_over_us")
                self.assertGreater(handed_over, start)
                # The model of the clock begins with the arrival and the greatest uncertainty.
                self.assertLess(frame.pop("time_us"), handed_over)
                self.assertGreaterEqual(frame.pop("time_uncertainty_us"), 1)
                self.assertEqual((frame.pop("time_source"), frame.pop("clock_drift_ppm")), ("arrivals", None))
                self.assertEqual(frame, {
                    "file": f"frame-{number:08}-{start + number * 10_000:016}.tif", "frame": number,
                    "timestamp_us": start + number * 10_000, "announced_us": start + number * 10_000,
                    "ticks": (number + 1) * 1000, "gain_db": 1.5, "exposure_us": 250.0, "counter": None, "width": 32,
                    "height": 16, "stride": 72, "pixel_format": "Mono12", "significant_bits": 12, "temperature_c": 36.5})

    def test_are_the_converted_ones_if_the_plugin_converts(self):
        with Recording("image 32 16 BayerRG8T; convert MONO12PT; grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual({frame["pixel_format"] for frame in recording.frame_index()}, {"Mono12Packed"})

    def test_are_numbered_across_runs_of_the_plugin(self):
        script = "frames 4; exit -10\nimage 32 16 MONO8T; grab"
        configuration = "run.give_up_after = 1\nrun.retry_interval_s = 0"
        with Recording(script, "--frames", 10, configuration=configuration) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            frames = recording.frame_index()
            self.assertEqual([frame["frame"] for frame in frames], list(range(1, 11)))
            self.assertEqual([frame["width"] for frame in frames], [64] * 3 + [32] * 7)


class OutputDirectory(unittest.TestCase):
    def run_into(self, output):
        with Recording("grab", "--frames", 5, output=output) as recording:
            return recording.finish(), recording.log

    def test_that_is_not_writable_is_refused_before_the_camera_is_used(self):
        with file_system("ro") as directory:
            for output in (directory, directory / "frames"):
                status, log = self.run_into(output)
                self.assertEqual(status, UNAVAILABLE, log)
                self.assertIn("Read-only file system", log)
                self.assertNotIn("run 0", log)

    def test_that_is_not_a_directory_is_refused(self):
        with tempfile.NamedTemporaryFile() as file:
            for output in (pathlib.Path(file.name), pathlib.Path(file.name) / "frames"):
                status, log = self.run_into(output)
                self.assertEqual(status, UNAVAILABLE, log)
                self.assertIn(file.name, log)

    def test_without_a_frame_is_not_left_behind(self):
        with tempfile.TemporaryDirectory() as directory:
            output = pathlib.Path(directory) / "frames"
            for _ in range(2):  # the second start finds nothing in its way
                with Recording("exit 2", output=output) as recording:
                    self.assertEqual(recording.finish(), NO_CAMERA, recording.log)
                self.assertFalse(output.exists())

    def test_with_a_recording_is_refused_and_unchanged(self):
        with tempfile.TemporaryDirectory() as directory:
            output = pathlib.Path(directory)
            self.assertEqual(self.run_into(output)[0], SUCCESS)
            before = {path: path.read_bytes() for path in output.iterdir()}
            status, log = self.run_into(output)
            self.assertEqual(status, UNAVAILABLE, log)
            self.assertIn("already contains a recording", log)
            self.assertEqual({path: path.read_bytes() for path in output.iterdir()}, before)

    def test_on_a_full_disk_has_only_complete_frames(self):
        with file_system("size=40k") as directory, Recording("grab", "--frames", 50, output=directory / "frames") as recording:
            self.assertEqual(recording.finish(), FRAMES_LOST, recording.log)
            self.assertIn("was not saved: ", recording.log)
            self.assertIn("No space left on device", recording.log)
            frames = recording.frame_index()
            self.assertTrue(0 < len(frames) < 50, len(frames))
            self.assertEqual(recording.files(), {frame["file"] for frame in frames} | {"frames.jsonl"})
            for frame in frames:
                self.assertEqual(len(read_strip(recording.output / frame["file"])), 64 * 48)
            self.assertIn(f"dropped: 0 (queue full), {50 - len(frames)} (write errors)", recording.log)


class Report(unittest.TestCase):
    def test_is_written_to_the_recording(self):
        with Recording("grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            written = command("report", recording.output)
            self.assertEqual((written.returncode, written.stdout), (SUCCESS, f"{recording.output}/report.html\n"), written.stderr)
            page = (recording.output / "report.html").read_text()
            self.assertIn("<td>frames</td><td>5</td>", page)
            self.assertEqual(page.count("<img "), 5)

    def test_has_its_figures_for_programs(self):
        with Recording("grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            found = json.loads(command("report", recording.output, "--json").stdout)
            self.assertEqual((found["frames"], found["lost_in_host"], found["losses"]), (5, 0, []))
            self.assertEqual(found["page"], f"{recording.output}/report.html")
            self.assertGreater(found["frames_per_s"], 0)
            self.assertGreaterEqual(found["interval_us"]["max"], found["interval_us"]["median"])

    def test_of_a_directory_without_a_recording_is_refused(self):
        with tempfile.TemporaryDirectory() as directory:
            refused = command("report", directory)
            self.assertEqual(refused.returncode, USAGE)
            self.assertIn("is not a recording", refused.stderr)


class OneOffValues(unittest.TestCase):
    def test_replace_those_of_the_file(self):
        with Recording("grab", "--set", "run.frames=4", "--set", "output.format=raw", "--set", "camera.name=left",
                       configuration="run.frames = 7") as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual(len(recording.frame_index()), 4)
            self.assertIn("frames.raw", recording.files())
            self.assertIn("recording left to ", recording.log)

    def test_stay_when_the_file_is_reloaded(self):
        configuration = "gain.auto = \"Off\"\ngain.db = {}\n[exposure]\nauto = \"Off\"\n"
        with Recording("grab", "--set", "exposure.time_us=2000", configuration=configuration.format(1)) as recording:
            recording.wait_for_frames(2)
            recording.configure(configuration.format(6))
            recording.signal(signal.SIGHUP)
            recording.wait_for_log("reload: changed gain.db\n")
            wait_for(lambda: recording.frame_index()[-1]["gain_db"] == 6, "the gain of the file")
            self.assertEqual(recording.frame_index()[-1]["exposure_us"], 2000)

    def test_that_are_invalid_are_refused_like_those_of_the_file(self):
        for value, error in (("gain.db=99", "--set gain.db: gain.db: 99 is not valid, expected a number from -60 to 60 (dB)\n"),
                             ("gain.bd=1", "--set gain.bd: gain.bd: unknown key; did you mean gain.db? "),
                             ("gain.db", "--set \"gain.db\": expected KEY=VALUE\n")):
            with self.subTest(value), Recording("grab", "--set", value) as recording:
                self.assertEqual(recording.finish(), USAGE)
                self.assertIn(error, recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
