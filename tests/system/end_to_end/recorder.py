# SPDX-License-Identifier: MIT
"""mediagrabber with the plug-in, as a child process that records from camsim.

Paths are in the environment variables MEDIAGRABBER, MGJAI and VERIFY_RECORDING.
"""

import contextlib
import json
import os
import pathlib
import signal
import subprocess

from camera_process import Camera
from recording_process import RecordingProcess
from tiff_strip import read_strip
from waiting import wait_for

MGJAI = os.environ["MGJAI"]
VERIFY_RECORDING = os.environ["VERIFY_RECORDING"]


class Recording(RecordingProcess):
    """A recording with libmgjai.so."""

    def __init__(self, configuration, *arguments, **where):
        super().__init__(MGJAI, configuration, arguments, **where)

    def stop(self):
        """Stops the recording with SIGTERM. \\return the exit status"""
        self.signal(signal.SIGTERM)
        return self.finish()

    def pixels(self, line):
        """The pixels of an 8-bit frame, given its line of the frame index."""
        strip = read_strip(self.output / line["file"])
        assert len(strip) == line["width"] * line["height"], "not one strip of 8-bit pixels"
        return strip

    def wrong_counters(self, camera):
        """Lines of the frame index whose exposure start counter is not the camera's. A camera on a busy machine leaves out exposures,
        so counters of a complete recording may have gaps."""
        wait_for_truth(self.output, camera.truth_path)
        counters = {frame["ticks"]: frame["frame"] for frame in camera.frames_so_far()}
        return [line for line in self.frame_index() if line["counter"] != counters[line["ticks"]]]

    def verify(self, truth_path, *options):
        """Compares the saved frames with the camera's truth file. \\return exit status and output of verify_recording"""
        return verify_directory(self.output, truth_path, *options)


def wait_for_truth(directory, truth_path):
    """Waits until the last saved frame is in the camera's truth file. The camera writes it after it has sent the frame."""
    index = pathlib.Path(directory) / "frames.jsonl"
    lines = index.read_text().split("\n")[:-1] if index.exists() else []
    if lines:
        ticks = json.loads(lines[-1])["ticks"]
        frames = lambda: (json.loads(line) for line in reversed(truth_path.read_text().split("\n")[1:-1]))
        wait_for(lambda: any(frame["ticks"] == ticks for frame in frames()), f"the frame with ticks {ticks} in {truth_path}")


def verify_directory(directory, truth_path, *options):
    """Compares the frames in a directory with the camera's truth file. \\return exit status and output of verify_recording"""
    wait_for_truth(directory, truth_path)
    done = subprocess.run([VERIFY_RECORDING, *options, str(directory), str(truth_path)], capture_output=True, text=True,
                          timeout=600)  # a sanitized program needs minutes for some hundred frames
    return done.returncode, done.stdout + done.stderr


@contextlib.contextmanager
def verified_recording(test, configuration, frames, *arguments, verify_options=(), camera_options=()):
    """Records from a camera and checks that each saved frame is identical to the frame that the camera sent.

    Yields the finished recording, whose files exist until the context is left, and the output of verify_recording.
    \\param camera_options of camsim
    """
    with Recording(configuration, "--frames", frames, *arguments) as recording:
        with Camera(*camera_options) as camera:
            test.assertEqual(recording.finish(), 0, recording.log)
            status, report = recording.verify(camera.truth_path, *verify_options)
        test.assertEqual(status, 0, report + recording.log)
        yield recording, report
