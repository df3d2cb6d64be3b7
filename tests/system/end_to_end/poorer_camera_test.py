"""What a run makes of a camera that lacks a feature: frames and a warning, or an end with a name, and never a crash."""

import concurrent.futures
import os
import re
import subprocess
import sys
import unittest

from camera_process import CAMSIM, Camera, run
from recorder import Recording

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
frame_rate = 100.0
[exposure]
mode = "manual"
time_us = 1000
[gain]
mode = "manual"
db = 6
[tone]
enable = true
gamma = 0.6
[[line]]
pin = "Out1"
source = "exposure_active"
[run]
grace_time_s = 1
"""
AT_ONCE = 6
FRAMES = 3
PATIENCE_SECONDS = 15

# How a run ends.
GRABS = "grabs"
NO_FRAME_COMES = "no frame comes, a stop ends it"
ENDS_WITH = "ends with exit code {}"
FRAMES_WITHOUT_SIZE = "frames come, their size is unknown and none is kept"

# Without a feature that is not here, a run grabs and says nothing of it.
OUTCOMES = {
    "AcquisitionFrameRate": (GRABS, "PvGenParameterArray::GetFloat (name:AcquisitionFrameRate)"),
    "AcquisitionStart": (NO_FRAME_COMES, "Can't map AcquisitionStart command"),
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
    # The offset beside it is written before the region turns out not to be: the camera refuses the pair.
    "OffsetY": (NO_FRAME_COMES, "Can't execute AcquisitionStart command to start capture"),
    # Buffers have the picture's size then, and none for chunks.
    "PayloadSize": (NO_FRAME_COMES, "Frames Drop trigger"),
    "PixelFormat": (ENDS_WITH.format(-2), "The asked pixel format is not supported by device!"),
    "Width": (FRAMES_WITHOUT_SIZE, "PvGenParameterArray::GetInteger (name:Width)"),
}


def features_of_the_camera():
    """Whatever its description lists."""
    description = run(CAMSIM, "--print-description")
    categories = set(re.findall(r'<Category Name="(\w+)"', description))
    return sorted(set(re.findall(r"<pFeature>(\w+)</pFeature>", description)) - categories)


def outcome(number, feature):
    """How a run ends, the warnings and errors of the plug-in, and the whole log."""
    serial = f"SN{number}"
    with Camera("--address", f"127.0.0.{number + 2}", "--serial", serial, "--without", feature):
        with Recording(CONFIGURATION.format(serial=serial), "--frames", str(FRAMES)) as recording:
            try:
                status = recording.finish(PATIENCE_SECONDS)
            except subprocess.TimeoutExpired:
                status = recording.stop()
            frames = len(recording.journal())
            log = recording.log
    said = [line for line in log.splitlines() if re.match(r"\[\w+:[ew]\]", line)]
    code = re.search(r"\(exit code (-?\d+)\)", log)
    if status == 0 and frames == FRAMES:
        return GRABS, said, log
    if status == 5 and frames == 0:
        return NO_FRAME_COMES, said, log
    if status == 4 and f"{FRAMES} not written" in log and "frames can't be recorded" in log:
        return FRAMES_WITHOUT_SIZE, said, log
    return ENDS_WITH.format(code[1]) if code else f"status {status}, {frames} frames", said, log


class WithoutAFeature(unittest.TestCase):
    def test_a_run_ends_as_it_should(self):
        names = features_of_the_camera()
        self.assertLessEqual(set(OUTCOMES), set(names), "the camera has what the table tells of")
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            outcomes = dict(zip(names, pool.map(outcome, range(len(names)), names)))
        for name, (ended, said, log) in outcomes.items():
            print(f"without {name:40} {ended:52} {said[0] if said else ''}")
            with self.subTest(without=name):
                expected, words = OUTCOMES.get(name, (GRABS, None))
                self.assertEqual(ended, expected, log)
                if words is None:
                    self.assertEqual(said, [])
                else:
                    self.assertTrue(any(words in line for line in said), log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
