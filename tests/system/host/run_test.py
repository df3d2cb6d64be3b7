"""How a run ends, what is on disk then, and what is not."""

import pathlib
import struct
import sys
import tempfile
import unittest

from file_system import file_system
from host_process import Recording, command

SUCCESS, FRAMES_LOST, USAGE, NO_CAMERA, RUN_FAILED, CUT_SHORT = range(6)


class EndOfARun(unittest.TestCase):
    def expect(self, status, script, *arguments, configuration="", log=""):
        with Recording(script, *arguments, configuration=configuration) as recording:
            self.assertEqual(recording.finish(), status, recording.log)
            self.assertIn(log, recording.log)
            return recording.journal()

    def test_is_a_success_when_the_frames_are_there(self):
        self.assertEqual(len(self.expect(SUCCESS, "grab", "--frames", 10)), 10)

    def test_is_a_success_with_the_frames_that_the_configuration_asks_for(self):
        self.assertEqual(len(self.expect(SUCCESS, "grab", configuration="run.frames = 7")), 7)

    def test_has_the_frames_of_the_command_line_instead_of_the_configurations(self):
        self.assertEqual(len(self.expect(SUCCESS, "grab", "--frames", 3, configuration="run.frames = 7")), 3)

    def test_is_reached_when_the_plugin_does_not_count_its_frames(self):
        self.assertEqual(len(self.expect(SUCCESS, "frames 100 0", "--frames", 10)), 10)

    def test_comes_after_the_grace_time_when_the_plugin_does_not_end_with_its_last_frame(self):
        frames = self.expect(CUT_SHORT, "frames 20 0; idle", "--frames", 10, configuration="run.grace_time_s = 0.1")
        self.assertEqual(len(frames), 10)

    def test_without_a_camera_has_a_status_of_its_own(self):
        self.expect(NO_CAMERA, "exit 2", log="no camera was found (exit code 2)")
        self.expect(NO_CAMERA, "exit 3", log="the configured camera was not found (exit code 3)")

    def test_of_a_plugin_that_failed_is_a_failure(self):
        for code in (-1, -2, -5, -10, 1, 42):
            with self.subTest(code):
                self.expect(RUN_FAILED, f"exit {code}", log=f"(exit code {code})")

    def test_that_nobody_asked_for_is_a_failure(self):
        self.expect(RUN_FAILED, "frames 5", log="the plug-in ended its run and nobody asked for it (exit code 0)")

    def test_comes_after_the_attempts_that_are_allowed(self):
        configuration = "run.give_up_after = 3\nrun.retry_interval_s = 0"
        with Recording("exit -10", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            self.assertEqual(recording.log.count("run "), 4, recording.log)

    def test_comes_at_once_where_another_attempt_cant_help(self):
        configuration = "run.give_up_after = \"never\"\nrun.retry_interval_s = 0"
        with Recording("exit -2", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            self.assertEqual(recording.log.count("run "), 1, recording.log)

    def test_does_not_come_while_the_next_run_brings_frames(self):
        configuration = "run.give_up_after = 2\nrun.retry_interval_s = 0"
        script = "frames 4; exit -10\nexit -10\nframes 4; exit -10\nexit 2\ngrab"
        self.assertEqual(len(self.expect(SUCCESS, script, "--frames", 20, configuration=configuration)), 20)

    def test_is_a_failure_where_no_frame_can_be_used(self):
        self.expect(RUN_FAILED, "image 64 48 NOSUCHFORMAT; grab", "--frames", 5,
                    log="the plug-in publishes the unknown pixel format NOSUCHFORMAT")

    def test_survives_calls_that_no_plugin_should_make(self):
        with Recording("wrong; exit -5") as recording:
            self.assertEqual(recording.finish(), RUN_FAILED, recording.log)
            for answer in ("no reload -1", "buffer 1", "instance -1", "null -1", "stray -1", "pin 0"):
                self.assertIn(answer + "\n", recording.log)

    def test_tells_what_was_recorded(self):
        self.expect(SUCCESS, "grab", "--frames", 10, log="10 frames on disk, ")
        self.expect(SUCCESS, "grab", "--frames", 10, log="lost: 0 overrun, 0 not written; 0 fetches without a frame")


def pixels_of(path):
    """The strip of an uncompressed TIFF file of one strip."""
    data = path.read_bytes()
    assert data[:4] == b"II*\0", data[:4]
    (directory,) = struct.unpack_from("<I", data, 4)
    (count,) = struct.unpack_from("<H", data, directory)
    fields = {}
    for i in range(count):
        tag, kind, _, value = struct.unpack_from("<HHII", data, directory + 2 + 12 * i)
        fields[tag] = value & 0xFFFF if kind == 3 else value
    return data[fields[273]:fields[273] + fields[279]]


class Frames(unittest.TestCase):
    def test_are_what_they_were_when_they_were_handed_over(self):
        with Recording("overwrite; grab 0", "--frames", 100) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            frames = recording.journal()
            self.assertEqual([frame["frame"] for frame in frames], list(range(1, 101)))
            for frame in frames:
                good_frame = frame["frame"] + 1  # the first one is never exported
                expected = bytes((i * 7 + good_frame * 13) & 0xFF for i in range(64 * 48))
                self.assertEqual(pixels_of(recording.output / frame["file"]), expected, frame)

    def test_have_the_values_that_the_plugin_published(self):
        with Recording("image 32 16 MONO12T 8; grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            for number, frame in enumerate(recording.journal(), 1):
                start = 1_700_000_000_000_000
                self.assertGreater(frame.pop("handed_over_us"), start)
                self.assertEqual(frame, {
                    "file": f"frame-{number:08}-{start + number * 10_000:016}.tif", "frame": number,
                    "timestamp_us": start + number * 10_000, "announced_us": start + number * 10_000,
                    "ticks": (number + 1) * 1000, "gain_db": 1.5, "exposure_us": 250.0, "counter": None, "width": 32,
                    "height": 16, "stride": 72, "format": "MONO12T", "significant_bits": 12, "temperature_c": 36.5})

    def test_are_the_converted_ones_where_there_are_such(self):
        with Recording("image 32 16 BayerRG8T; convert MONO12PT; grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual({frame["format"] for frame in recording.journal()}, {"MONO12PT"})

    def test_go_on_counting_over_the_plugins_runs(self):
        script = "frames 4; exit -10\nimage 32 16 MONO8T; grab"
        configuration = "run.give_up_after = 1\nrun.retry_interval_s = 0"
        with Recording(script, "--frames", 10, configuration=configuration) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            frames = recording.journal()
            self.assertEqual([frame["frame"] for frame in frames], list(range(1, 11)))
            self.assertEqual([frame["width"] for frame in frames], [64] * 3 + [32] * 7)


class OutputDirectory(unittest.TestCase):
    def run_into(self, output):
        with Recording("grab", "--frames", 5, output=output) as recording:
            return recording.finish(), recording.log

    def test_that_cant_be_written_is_refused_before_the_camera_is_touched(self):
        with file_system("ro") as place:
            for output in (place, place / "frames"):
                status, log = self.run_into(output)
                self.assertEqual(status, USAGE, log)
                self.assertIn("Read-only file system", log)
                self.assertNotIn("run 0", log)

    def test_that_is_no_directory_is_refused(self):
        with tempfile.NamedTemporaryFile() as file:
            for output in (pathlib.Path(file.name), pathlib.Path(file.name) / "frames"):
                status, log = self.run_into(output)
                self.assertEqual(status, USAGE, log)
                self.assertIn(file.name, log)

    def test_that_holds_a_recording_is_left_alone(self):
        with tempfile.TemporaryDirectory() as place:
            output = pathlib.Path(place)
            self.assertEqual(self.run_into(output)[0], SUCCESS)
            before = {path: path.read_bytes() for path in output.iterdir()}
            status, log = self.run_into(output)
            self.assertEqual(status, USAGE, log)
            self.assertIn("holds a recording already", log)
            self.assertEqual({path: path.read_bytes() for path in output.iterdir()}, before)

    def test_that_is_full_costs_frames_and_leaves_no_half_of_one(self):
        with file_system("size=40k") as place, Recording("grab", "--frames", 50, output=place / "frames") as recording:
            self.assertEqual(recording.finish(), FRAMES_LOST, recording.log)
            self.assertIn("is not on disk: ", recording.log)
            self.assertIn("No space left on device", recording.log)
            frames = recording.journal()
            self.assertTrue(0 < len(frames) < 50, len(frames))
            self.assertEqual(recording.files(), {frame["file"] for frame in frames} | {"frames.jsonl"})
            for frame in frames:
                self.assertEqual(len(pixels_of(recording.output / frame["file"])), 64 * 48)
            self.assertIn(f"lost: 0 overrun, {50 - len(frames)} not written", recording.log)



class Report(unittest.TestCase):
    def test_is_written_into_the_recording(self):
        with Recording("grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            written = command("report", recording.output)
            self.assertEqual((written.returncode, written.stdout), (SUCCESS, f"{recording.output}/report.html\n"), written.stderr)
            page = (recording.output / "report.html").read_text()
            self.assertIn("<td>frames</td><td>5</td>", page)
            self.assertEqual(page.count("<img "), 5)

    def test_of_what_is_no_recording_is_refused(self):
        with tempfile.TemporaryDirectory() as place:
            refused = command("report", place)
            self.assertEqual(refused.returncode, USAGE)
            self.assertIn("holds no recording", refused.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
