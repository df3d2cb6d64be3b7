# SPDX-License-Identifier: MIT
"""Recordings in segments, and the deletion of old ones."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera
from recorder import Recording, verify_directory
from recording_process import MEDIAGRABBER
from waiting import wait_for

SEGMENT_FRAMES = 10


def configuration(more=""):
    return f"""
[image]
width = 160
height = 120
[timing]
frame_rate_hz = 20.0
[memory]
export_buffers = 50
[output]
format = "raw"
segment_frames = {SEGMENT_FRAMES}
{more}"""


def segments(root):
    """The segments on the disk in the order of their frames, each as its directory and frame index."""
    found = []
    for index in root.glob("*/*/frames.jsonl"):
        if lines := [json.loads(line) for line in index.read_text().split("\n")[:-1]]:
            found.append((index.parent, lines))
    return sorted(found, key=lambda segment: segment[1][0]["frame"])


class Segments(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = pathlib.Path(directory.name)

    def recording(self, more=""):
        return Recording(configuration(more), output=self.root / "{date}" / "{time}")

    def test_have_every_frame_once(self):
        with Camera() as camera, self.recording() as recording:
            wait_for(lambda: len(segments(self.root)) > 3, "three segments")
            self.assertEqual(recording.stop(), 0, recording.log)
            found = segments(self.root)
            numbers = [line["frame"] for _, lines in found for line in lines]
            self.assertEqual(numbers, list(range(1, len(numbers) + 1)))
            for directory, lines in found:
                status, report = verify_directory(directory, camera.truth_path)
                self.assertEqual(status, 0, report)
                summary = json.loads((directory / "segment.json").read_text())
                self.assertEqual((summary["frames"], summary["first_frame"], summary["last_timestamp_us"]),
                                 (len(lines), lines[0]["frame"], lines[-1]["timestamp_us"]))
            self.assertEqual({len(lines) for _, lines in found[:-1]}, {SEGMENT_FRAMES})
            done = subprocess.run([MEDIAGRABBER, "report", str(self.root)], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertEqual((self.root / "report.html").read_text().count("<img "), 12)

    def test_oldest_are_deleted_and_counters_go_on(self):
        segment_bytes = SEGMENT_FRAMES * 160 * 120
        text = f"keep_bytes = {2.5 * segment_bytes}\n"  # room for two segments with their indexes
        with Camera(), self.recording(text) as recording:
            wait_for(lambda: recording.log.count("because all recordings exceed output.keep_bytes") >= 2, "two deletions")
            self.assertEqual(recording.stop(), 0, recording.log)
            found = segments(self.root)
            self.assertGreater(found[0][1][0]["frame"], 2 * SEGMENT_FRAMES)
            self.assertLessEqual(len(found), 4)
            numbers = [line["frame"] for _, lines in found for line in lines]
            self.assertEqual(numbers, list(range(numbers[0], numbers[-1] + 1)))

    def test_need_a_time_in_the_name_of_the_directory(self):
        with Recording(configuration(), output=self.root / "{date}") as recording:
            self.assertEqual(recording.finish(), 2, recording.log)
            self.assertIn("must have {time} in its last part", recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
