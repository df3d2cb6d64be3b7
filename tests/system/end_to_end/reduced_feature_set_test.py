# SPDX-License-Identifier: MIT
"""Cameras with a missing feature: the run grabs frames and logs a warning, or ends with a documented exit code."""

import concurrent.futures
import re
import subprocess
import sys
import unittest

from camera_process import CAMSIM, Camera, run
from recorder import Recording
from waiting import DEADLINE_SECONDS

CONFIGURATION = """
[camera]
model = "GO-5100M-PGE"
serial = "{serial}"
[image]
width = 640
height = 480
offset_x = 8
offset_y = 2
[timing]
frame_rate_hz = 100.0
[memory]
export_buffers = 200
[exposure]
auto = "Off"
time_us = 1000
[gain]
auto = "Off"
db = 6
[tone]
enable = true
gamma = 0.6
[[line]]
pin = "Out1"
source = "ExposureActive"
[run]
grace_time_s = 1
"""
PARALLEL_RUNS = 6
FRAMES = 3
SILENT_SECONDS = 15  # after which a run without a frame is stopped, if that is the expected outcome

# Outcomes of a run.
GRABS = "grabs"
NO_FRAME_ARRIVES = "no frame arrives, stop signal ends the run"
ENDS_WITH = "ends with exit code {}"
FRAMES_WITHOUT_SIZE = "frames of unknown size, none saved"

# Outcome and first words of the message for each missing feature. For a feature that is not listed, a run grabs and logs nothing.
OUTCOMES = {
    "AcquisitionFrameRate": (GRABS, "PvGenParameterArray::GetFloat (name:AcquisitionFrameRate)"),
    "AcquisitionStart": (NO_FRAME_ARRIVES, "Can't map AcquisitionStart command"),
    "AcquisitionStop": (GRABS, "Can't map AcquisitionStop command"),
    "ChunkModeActive": (GRABS, "Chunks can't be enabled: missing configuration param1"),
    "ChunkSelector": (GRABS, "Chunks can't be enabled: missing configuration param2"),
    "ExposureAuto": (GRABS, "SetEnumValue (name:ExposureAuto, value:Off, result:<NOT_FOUND>)"),
    "ExposureTime": (ENDS_WITH.format(-10), "PvGenParameterArray::GetFloat (name:ExposureTime)"),
    "Gain": (GRABS, "PvGenParameterArray::GetFloat (name:Gain)"),
    "GainAuto": (GRABS, "SetEnumValue (name:GainAuto, value:Off, result:<NOT_FOUND>)"),
    "GainSelector": (GRABS, "SetEnumValue (name:GainSelector, value:AnalogAll, result:<NOT_FOUND>)"),
    "GevSCCFGUnconditionalStreaming":
        (GRABS, "PvGenParameterArray::GetBoolean (name:GevSCCFGUnconditionalStreaming)"),
    "GevSCPSPacketSize": (GRABS, "PvDeviceGEV::NegotiatePacketSize"),
    "GevTimestampTickFrequency": (GRABS, "frames are stamped with host time"),
    "Height": (FRAMES_WITHOUT_SIZE, "PvGenParameterArray::GetInteger (name:Height)"),
    "JAIGamma": (GRABS, "Gamma is not supported for this device"),
    "JAILUTMode": (GRABS, "can't get LutGamma mode"),
    "LineInverter": (GRABS, "SetBooleanValue (selector:Line2, name:LineInverter, value:false, result:<NOT_FOUND>)"),
    "LineSelector": (GRABS, "SetEnumValue (name:LineSelector, value:Line2)"),
    "LineSource": (GRABS, "SetEnumValue (selector:Line2, name:LineSource, value:ExposureActive, result:<NOT_FOUND>)"),
    "OffsetX": (FRAMES_WITHOUT_SIZE, "PvGenParameterArray::GetInteger (name:OffsetX)"),
    # OffsetX is written before OffsetY turns out to be missing, and the camera refuses the resulting region.
    "OffsetY": (NO_FRAME_ARRIVES, "Can't execute AcquisitionStart command to start capture"),
    "PixelFormat": (ENDS_WITH.format(-2), "The asked pixel format is not supported by device!"),
    "Width": (FRAMES_WITHOUT_SIZE, "PvGenParameterArray::GetInteger (name:Width)"),
}


def features_of_the_camera():
    """The features in the GenICam XML, without categories."""
    xml = run(CAMSIM, "--print-xml")
    categories = set(re.findall(r'<Category Name="(\w+)"', xml))
    return sorted(set(re.findall(r"<pFeature>(\w+)</pFeature>", xml)) - categories)


def outcome(number, feature):
    """The outcome of a run without `feature`, the warnings and errors of the plug-in, and the complete log."""
    serial = f"SN{number}"
    with Camera("--address", f"127.0.0.{number + 2}", "--serial", serial, "--missing-feature", feature):
        with Recording(CONFIGURATION.format(serial=serial), "--frames", str(FRAMES)) as recording:
            expected, words = OUTCOMES.get(feature, (GRABS, None))
            silent = expected == NO_FRAME_ARRIVES
            if silent:
                recording.wait_for_log(words)
            try:
                status = recording.finish(SILENT_SECONDS if silent else DEADLINE_SECONDS)
            except subprocess.TimeoutExpired:
                status = recording.stop()
            frames = len(recording.frame_index())
            log = recording.log
    messages = [line for line in log.splitlines() if re.match(r"\[\w+:[ew]\]", line)]
    code = re.search(r"\(exit code (-?\d+)\)", log)
    if status == 0 and frames == FRAMES:
        return GRABS, messages, log
    if status == 5 and frames == 0:
        return NO_FRAME_ARRIVES, messages, log
    if status == 4 and f"{FRAMES} (write errors)" in log and "frames cannot be recorded" in log:
        return FRAMES_WITHOUT_SIZE, messages, log
    return ENDS_WITH.format(code[1]) if code else f"status {status}, {frames} frames", messages, log


class MissingFeature(unittest.TestCase):
    def test_a_run_has_the_documented_outcome(self):
        names = features_of_the_camera()
        self.assertLessEqual(set(OUTCOMES), set(names), "the table lists a feature that the camera does not have")
        with concurrent.futures.ThreadPoolExecutor(PARALLEL_RUNS) as pool:
            outcomes = dict(zip(names, pool.map(outcome, range(len(names)), names)))
        for name, (ended, messages, log) in outcomes.items():
            print(f"without {name:40} {ended:52} {messages[0] if messages else ''}")
            with self.subTest(without=name):
                expected, words = OUTCOMES.get(name, (GRABS, None))
                self.assertEqual(ended, expected, log)
                if words is None:
                    self.assertEqual(messages, [])
                else:
                    self.assertTrue(any(words in line for line in messages), log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
