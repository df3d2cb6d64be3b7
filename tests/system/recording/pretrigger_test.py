# SPDX-License-Identifier: MIT
"""The pre-trigger buffer: which frames a trigger saves, and when."""

import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera, FaultyCamera
from file_system import file_system
from recorder import Recording, verify_directory
from recording_process import MEDIAGRABBER
from waiting import wait_for

TRIGGER = signal.SIGRTMIN + 1
BUFFER_S = 0.9
RATE = 20


def configuration(kind="bigtiff", more=""):
    return f"""
[image]
width = 160
height = 120
[timing]
frame_rate_hz = {RATE}.0
[memory]
export_buffers = 50
[output]
format = "{kind}"
[pretrigger]
seconds = {BUFFER_S}
{more}"""


def triggered_recordings(recording):
    """The recordings that triggers have saved so far, in order of time, each as its directory and frame index."""
    directories = sorted(recording.output.glob("pretrigger/*"))
    return [(directory, [json.loads(line) for line in (directory / "frames.jsonl").read_text().splitlines()])
            for directory in directories]


class Pretrigger(unittest.TestCase):
    def expect_identical(self, directory, camera):
        status, report = verify_directory(directory, camera.truth_path)
        self.assertEqual(status, 0, report)

    def expect_full_buffer(self, frames, camera):
        """The frames are the last ones within the length of the buffer: they would exceed it with the one that was sent before."""
        self.assertLessEqual((frames[-1]["timestamp_us"] - frames[0]["timestamp_us"]) / 1e6, BUFFER_S)
        before = max(frame["ticks"] for frame in camera.frames_so_far()
                     if frame["outcome"] == "sent" and frame["ticks"] < frames[0]["ticks"])
        self.assertGreater((frames[-1]["ticks"] - before) / 1e9, BUFFER_S - 2 / RATE)  # timestamps have jitter, ticks have not

    def trigger(self, recording):
        done = subprocess.run([MEDIAGRABBER, "signal", str(recording.process.pid), "trigger"], capture_output=True,
                              text=True)
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_saves_the_last_frames_on_each_trigger(self):
        for kind in ("tiff", "bigtiff", "raw"):
            with self.subTest(kind), Camera() as camera, Recording(configuration(kind)) as recording:
                wait_for(lambda: len(camera.frames_so_far()) > 2 * RATE, "two seconds of frames")
                self.assertEqual(triggered_recordings(recording), [])
                self.trigger(recording)
                recording.wait_for_log(": info: saved ")
                sent = len(camera.frames_so_far())
                wait_for(lambda: len(camera.frames_so_far()) > sent + 5, "more frames")
                self.trigger(recording)
                recording.wait_for_log(": info: saved ", times=2)
                self.assertEqual(recording.stop(), 0, recording.log)
                (first_directory, first), (second_directory, second) = triggered_recordings(recording)
                self.expect_full_buffer(first, camera)
                for frames in (first, second):
                    numbers = [line["frame"] for line in frames]
                    self.assertEqual(numbers, list(range(numbers[0], numbers[0] + len(numbers))))
                self.assertGreater(second[0]["frame"], first[-1]["frame"], "a frame was saved twice")
                if second[0]["frame"] != first[-1]["frame"] + 1:  # the second trigger came late
                    self.expect_full_buffer(second, camera)
                for directory in (first_directory, second_directory):
                    self.expect_identical(directory, camera)
                    report = subprocess.run([MEDIAGRABBER, "report", str(directory)], capture_output=True, text=True)
                    self.assertEqual((report.returncode, report.stderr), (0, ""))
                self.assertRegex(recording.log, rf"writing {len(first)} frames, 0\.\d+ s, to {first_directory}\n")
                self.assertRegex(recording.log, rf"buffered, {len(first + second)} of them saved in 2 recordings, ")

    def test_saves_the_frames_before_a_loss(self):
        with FaultyCamera() as camera, Recording(configuration(more="trigger_on_loss = true\n")) as recording:
            wait_for(lambda: len(camera.frames_so_far()) > 2 * RATE, "two seconds of frames")
            self.assertEqual(triggered_recordings(recording), [])
            fault = camera.start_fault("leader_loss", including_resends=True)
            sent = len(camera.frames_so_far())
            wait_for(lambda: len(camera.frames_so_far()) > sent + 5, "frames without a leader")
            camera.stop_fault(fault)
            recording.wait_for_log("frames were lost: writing ")
            recording.wait_for_log(": info: saved ")
            recording.stop()
            _, frames = triggered_recordings(recording)[0]
            ticks = [line["ticks"] for line in frames]
            steps = [after - before for before, after in zip(ticks, ticks[1:])]
            self.assertGreater(len(steps), BUFFER_S * RATE / 2)
            self.assertGreater(max(steps), 1.5 * min(steps), "the lost frames are not missing among the saved ones")

    def test_on_a_full_disk_reports_the_error_and_continues(self):
        with file_system("size=100k") as disk, Camera() as camera:
            with Recording(configuration(), output=disk / "out") as recording:
                wait_for(lambda: len(camera.frames_so_far()) > RATE, "a second of frames")
                self.trigger(recording)
                recording.wait_for_log("could not be written: frames.tif: No space left on device")
                sent = len(camera.frames_so_far())
                wait_for(lambda: len(camera.frames_so_far()) > sent + 5, "more frames")
                self.assertEqual(recording.stop(), 1, recording.log)
                (directory, frames), = triggered_recordings(recording)
                self.assertTrue(0 < len(frames) < BUFFER_S * RATE)
                self.expect_identical(directory, camera)

    def event(self, recording, name):
        """Triggers with the name of an event. \return the finished command"""
        socket = re.search(r"control socket for `mediagrabber set`: (\S+)", recording.log)[1]
        return subprocess.run([MEDIAGRABBER, "signal", "--socket", socket, "trigger", "--event", name], capture_output=True, text=True)

    def test_saves_to_a_directory_with_the_name_of_the_event(self):
        name = "20261121T173318.123Z-door"
        with tempfile.TemporaryDirectory() as runtime, Camera() as camera:
            with Recording(configuration(), environment={"XDG_RUNTIME_DIR": runtime}) as recording:
                wait_for(lambda: len(camera.frames_so_far()) > RATE, "a second of frames")
                done = self.event(recording, name)
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertRegex(done.stdout, rf"^saving \S+/pretrigger/{name}\n$")
                recording.wait_for_log(": info: saved ")
                done = self.event(recording, "../door")
                self.assertEqual(done.returncode, 2)
                self.assertIn("TIME-NAME as in 20261121T173318.123Z-door", done.stderr)
                self.assertEqual(recording.stop(), 0, recording.log)
                (directory, frames), = triggered_recordings(recording)
                self.assertEqual(directory.name, name)
                self.assertGreater(len(frames), 0)
                self.assertIn(f"event {name}: writing {len(frames)} frames", recording.log)
                self.expect_identical(directory, camera)

    def test_says_if_nothing_is_saved(self):
        with FaultyCamera() as camera, Recording(configuration()) as recording:
            wait_for(lambda: len(camera.frames_so_far()) > RATE, "a second of frames")
            camera.start_fault("freeze")
            answers = []

            def is_without_new_frames():
                answers.append(self.event(recording, "20261121T173318.123Z-door"))
                return answers[-1].returncode != 0
            wait_for(is_without_new_frames, "a trigger without new frames")
            self.assertIn("saving ", answers[0].stdout)
            self.assertEqual(answers[-1].returncode, 7)
            self.assertIn("nothing is saved, because no frame has arrived since the last trigger", answers[-1].stderr)
            recording.wait_for_log("no recording, because no frame has arrived since the last trigger")

    def test_is_refused_if_the_buffer_is_disabled(self):
        text = configuration().replace(f"seconds = {BUFFER_S}", "seconds = 0")
        with Camera(), Recording(text) as recording:
            recording.wait_for_frames(3)
            os.kill(recording.process.pid, TRIGGER)
            recording.wait_for_log("trigger ignored: pretrigger.seconds is 0")
            done = self.event(recording, "20261121T173318.123Z-door")
            self.assertEqual(done.returncode, 7)
            self.assertIn("trigger refused: pretrigger.seconds is 0", done.stderr)
            self.assertEqual(recording.stop(), 0, recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
