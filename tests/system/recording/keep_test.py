"""Frames that are held in memory: what is written of them, and when."""

import json
import os
import signal
import subprocess
import sys
import unittest

from camera_process import Camera, FaultyCamera, wait_for
from file_system import file_system
from recorder import VERIFY_RECORDING, Recording
from recording_process import MEDIAGRABBER

KEEP = signal.SIGRTMIN + 1
HELD_S = 0.5
RATE = 50


def configuration(kind="bigtiff", more=""):
    return f"""
[image]
width = 160
height = 120
[timing]
frame_rate = {RATE}.0
[memory]
export_buffers = 50
[output]
format = "{kind}"
keep_s = {HELD_S}
{more}"""


def kept(recording):
    """The recordings that were kept so far, in the order of their times, each as its journal."""
    places = sorted(recording.output.glob("kept-*"))
    return [(place, [json.loads(line) for line in (place / "frames.jsonl").read_text().splitlines()])
            for place in places]


class Keep(unittest.TestCase):
    def judge(self, place, camera):
        judged = subprocess.run([VERIFY_RECORDING, str(place), str(camera.truth_path)], capture_output=True, text=True)
        self.assertEqual(judged.returncode, 0, judged.stdout + judged.stderr)

    def ask(self, recording):
        asked = subprocess.run([MEDIAGRABBER, "signal", str(recording.process.pid), "keep"], capture_output=True,
                               text=True)
        self.assertEqual(asked.returncode, 0, asked.stderr)

    def test_writes_the_last_frames_when_it_is_told_and_goes_on(self):
        for kind in ("tiff", "bigtiff", "raw"):
            with self.subTest(kind), Camera() as camera, Recording(configuration(kind)) as recording:
                wait_for(lambda: len(camera.frames_so_far()) > 2 * RATE, "two seconds of frames")
                self.assertEqual(kept(recording), [])
                self.ask(recording)
                recording.wait_for_log(": info: kept ")
                sent = len(camera.frames_so_far())
                wait_for(lambda: len(camera.frames_so_far()) > sent + 5, "frames that come meanwhile")
                self.ask(recording)
                self.assertEqual(recording.stop(), 0, recording.log)
                (first_place, first), (second_place, second) = kept(recording)
                span_s = (first[-1]["timestamp_us"] - first[0]["timestamp_us"]) / 1e6
                self.assertTrue(HELD_S - 3 / RATE < span_s <= HELD_S, span_s)
                numbers = [line["frame"] for line in first + second]
                self.assertEqual(numbers, list(range(numbers[0], numbers[0] + len(numbers))), "no frame is kept twice")
                for place in (first_place, second_place):
                    self.judge(place, camera)
                    report = subprocess.run([MEDIAGRABBER, "report", str(place)], capture_output=True, text=True)
                    self.assertEqual((report.returncode, report.stderr), (0, ""))
                self.assertRegex(recording.log, rf"keeping {len(first)} frames, 0\.\d+ s, in {first_place}\n")
                self.assertRegex(recording.log, rf"held, {len(numbers)} of them kept in 2 recordings, ")

    def test_writes_what_came_before_a_loss(self):
        with FaultyCamera() as camera, Recording(configuration(more="keep_when_lost = true\n")) as recording:
            wait_for(lambda: len(camera.frames_so_far()) > 2 * RATE, "two seconds of frames")
            self.assertEqual(kept(recording), [])
            camera.start_fault("leader_loss", again=True, for_s=0.2)
            recording.wait_for_log("frames were lost: keeping ")
            recording.wait_for_log(": info: kept ")
            recording.stop()
            place, frames = kept(recording)[0]
            ticks = [line["ticks"] for line in frames]
            steps = [after - before for before, after in zip(ticks, ticks[1:])]
            self.assertGreater(len(steps), HELD_S * RATE / 2)
            self.assertGreater(max(steps), 1.5 * min(steps), "the frames that were lost are missing among those kept")

    def test_a_full_disk_is_said_and_costs_only_what_was_to_be_kept(self):
        with file_system("size=100k") as place, Camera() as camera:
            with Recording(configuration(), output=place / "out") as recording:
                wait_for(lambda: len(camera.frames_so_far()) > RATE, "a second of frames")
                self.ask(recording)
                recording.wait_for_log("could not be written: frames.tif: No space left on device")
                sent = len(camera.frames_so_far())
                wait_for(lambda: len(camera.frames_so_far()) > sent + 5, "frames that come meanwhile")
                self.assertEqual(recording.stop(), 1, recording.log)
                (place, frames), = kept(recording)
                self.assertTrue(0 < len(frames) < HELD_S * RATE)
                self.judge(place, camera)

    def test_is_not_possible_where_frames_are_written_as_they_come(self):
        text = configuration().replace(f"keep_s = {HELD_S}", "keep_s = 0")
        with Camera(), Recording(text) as recording:
            recording.wait_for_frames(3)
            os.kill(recording.process.pid, KEEP)
            recording.wait_for_log("frames can't be kept: they are written as they come")
            self.assertEqual(recording.stop(), 0, recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
