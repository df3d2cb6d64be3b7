# SPDX-License-Identifier: MIT
"""The camera's output lines: set by Aravis, and the trace of their levels against the truth of the frames."""

import pathlib
import re
import subprocess
import tempfile
import unittest

import gvcp
from camera_process import CAMSIM, PROBE, Camera, arv_control, arv_tool, run
from gvcp import Application
from waiting import DEADLINE_SECONDS

ADDRESSES = gvcp.feature_addresses(run(CAMSIM, "--print-xml"))


def read_vcd(text):
    """Changes of each wire, by its name: a list of times and levels, the level at power-up first."""
    assert "$timescale 1 ns $end" in text
    names = dict(re.findall(r"\$var wire 1 (\S) (\w+) \$end", text))
    changes = {name: [] for name in names.values()}
    now = None
    for line in text[text.index("$enddefinitions $end"):].splitlines()[1:]:
        if line.startswith("#"):
            time = int(line[1:])
            assert now is None or time > now, line
            now = time
        elif line[0] in "01":
            changes[names[line[1:]]].append((now, int(line[0])))
    return changes


def intervals(changes, level=1):
    """\\return start and end of each interval with the level, without one that is open at the end"""
    return [(start, end) for (start, value), (end, _) in zip(changes, changes[1:]) if value == level]


class Lines(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.trace = pathlib.Path(self.directory.name) / "lines.vcd"

    def grab(self, settings, *options):
        """\\return the changes of the wires during an acquisition, and the camera with its truth file"""
        with Camera("--line-trace", str(self.trace), *options) as camera:
            output = arv_control(*settings)
            self.assertNotIn("rror", "".join(output))
            run(PROBE, "--width", "320", "--height", "200", "--rate", "100", "--frames", "40", "--seconds", str(DEADLINE_SECONDS))
        return read_vcd(self.trace.read_text()), camera

    def exposures(self, camera):
        power_up = camera.truth_header["power_up_ns"]
        return [(frame["exposure_start_ns"] - power_up, frame["exposure_end_ns"] - power_up)
                for frame in camera.truth_frames if frame["outcome"] != "dropped"]

    def test_driven_by_exposure_active_match_each_exposure_to_the_nanosecond(self):
        wires, camera = self.grab(["LineSelector=Line2", "LineSource=ExposureActive"], "--clock-drift-ppm", "300")
        exposures = self.exposures(camera)
        self.assertGreater(len(exposures), 30)
        self.assertEqual(intervals(wires["line2"]), exposures)
        self.assertEqual(wires["line3"], [(0, 0)])

    def test_can_be_inverted(self):
        wires, camera = self.grab(["LineSelector=Line3", "LineSource=ExposureActive", "LineInverter=true"])
        self.assertEqual(wires["line3"][1][1], 1)  # rises when it is inverted
        self.assertEqual(intervals(wires["line3"], level=0)[1:], self.exposures(camera))
        self.assertEqual(wires["line2"], [(0, 0)])

    def test_driven_by_frames_are_active_until_the_last_packet_has_left(self):
        wires, camera = self.grab(["LineSelector=Line2", "LineSource=FrameActive"], "--network-delay", "3:1")
        power_up = camera.truth_header["power_up_ns"]
        expected = [(frame["exposure_start_ns"] - power_up, frame["send_end_ns"] - power_up)
                    for frame in camera.truth_frames if frame["outcome"] == "sent"]
        active = intervals(wires["line2"])
        merged = []
        for start, end in expected:
            if merged and start <= merged[-1][1]:
                merged[-1] = (merged[-1][0], end)
            else:
                merged.append((start, end))
        self.assertGreater(len(expected), 30)
        self.assertEqual(active[:len(merged) - 1], merged[:-1])

    def test_of_a_camera_that_drops_frames_show_the_exposed_ones(self):
        wires, camera = self.grab(["LineSelector=Line2", "LineSource=ExposureActive"], "--pacing", "2")
        self.assertIn("dropped", {frame["outcome"] for frame in camera.truth_frames})
        self.assertEqual(intervals(wires["line2"]), self.exposures(camera))

    def test_follow_user_outputs_and_show_their_status(self):
        with Camera("--line-trace", str(self.trace)):
            lines = arv_control("LineSelector=Line3", "LineSource=UserOutput1", "LineStatus",
                                "UserOutputSelector=UserOutput1", "UserOutputValue=true", "LineStatus",
                                "LineInverter=true", "LineStatus", "LineSource=High", "LineInverter=false",
                                "LineStatus", "LineSelector=Line2", "LineStatus", "LineSource")
        status = [line.split(" = ")[1] for line in lines if line.startswith("LineStatus = ")]
        self.assertEqual(status, ["false", "true", "false", "true", "false"])
        self.assertEqual(lines[-1], "LineSource = Low")
        wires = read_vcd(self.trace.read_text())
        # High by the output, low by the inverter; source High with the inverter stays low; high without it.
        self.assertEqual([level for _, level in wires["line3"]], [0, 1, 0, 1])
        self.assertEqual([level for _, level in wires["user_output1"]], [0, 1])

    def test_are_read_alike_with_and_without_a_register_cache(self):
        steps = ["LineSelector=Line2", "LineSource=ExposureActive", "LineSelector=Line3", "LineSource", "LineInverter",
                 "LineInverter=true", "LineSelector=Line2", "LineSource", "LineInverter"]
        outputs = []
        for cache in ("enable", "disable"):
            with Camera():
                outputs.append(arv_tool(f"--register-cache={cache}", "control", *steps).splitlines()[1:])
        self.assertEqual(outputs[0], outputs[1])
        self.assertEqual([line for line in outputs[0] if line.startswith("LineSource =")][-1],
                         "LineSource = ExposureActive")

    def test_keep_their_level_while_no_frame_is_exposed(self):
        with Camera("--missing-entry", "LineSource=Low", "--line-trace", str(self.trace)), Application() as application:
            self.assertEqual(application.read(ADDRESSES["LineStatus"]), (gvcp.SUCCESS, (1,)))  # the first remaining entry is High
        self.assertEqual(read_vcd(self.trace.read_text())["line2"], [(0, 1)])

    def test_reports_a_trace_that_cannot_be_created(self):
        done = subprocess.run([CAMSIM, "--line-trace", "/nowhere/trace"], capture_output=True, text=True, timeout=20)
        self.assertEqual(done.returncode, 1)
        self.assertIn("cannot write the line trace /nowhere/trace: No such file or directory", done.stderr)


if __name__ == "__main__":
    unittest.main()
