# SPDX-License-Identifier: MIT
"""Each measurement in its short form: its programs run, and it fails if the camera loses frames. Figures are not evaluated.

BENCH is the folder of the measurements, BUILD the build directory.
"""

import os
import pathlib
import re
import subprocess
import sys
import unittest

BENCH = pathlib.Path(os.environ["BENCH"])
LOSSES = 1  # exit status
PAGES = BENCH.parent / "docs/measurements"


class Measurement(unittest.TestCase):
    def run_script(self, subject, *arguments):
        script = BENCH / subject / (subject.replace("-", "_") + ".py")
        before = (PAGES / f"{subject}.md").read_text()
        done = subprocess.run(["/usr/bin/python3", script, *arguments], capture_output=True, text=True)
        self.assertEqual((PAGES / f"{subject}.md").read_text(), before, "a run without --publish has changed the page")
        return done

    def measure(self, subject, *arguments, status=0):
        done = self.run_script(subject, "--quick", *arguments)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done

    def expect_header(self, output):
        for row in ("revision", "measured code", "command", "processor", "kernel", "load average before", "stolen processor time"):
            self.assertRegex(output, rf"(?m)^\| {row} \| .+ \|$")


class Cameras(Measurement):
    def test_runs(self):
        self.expect_header(self.measure("cameras").stdout)

    def test_fails_if_frames_are_lost(self):
        self.assertIn("camera 1: 2 of 12 frames lost", self.measure("cameras", "--inject-loss", status=LOSSES).stderr)


class Recorders(Measurement):
    def test_runs(self):
        output = self.measure("recorders").stdout
        self.expect_header(output)
        for kind in ("raw", "tiff", "bigtiff", "hdf5"):
            self.assertRegex(output, rf"(?m)^\| {kind} \| [1-9]\d* \| [0-9.]+ \| [0-9.]+ \|$")
            self.assertRegex(output, rf"(?m)^\| {kind} \| 210 \| [0-9.]+ \| [1-9]\d+ \| [1-9][0-9.]* \|$")
            self.assertRegex(output, rf"(?m)^\| {kind} \| 20 of 20 \| 0 \|")

    def test_fails_if_frames_are_lost(self):
        self.assertRegex(self.measure("recorders", "--inject-loss", status=LOSSES).stderr, r"hdf5: [1-9]\d* of \d+ frames lost")


class Viewers(Measurement):
    def test_runs(self):
        output = self.measure("viewers").stdout
        self.expect_header(output)
        self.assertRegex(output, r"20 frames from shared memory, 0 missed; [1-9]\d*/[1-9]\d*/[1-9]\d* images")

    def test_fails_if_frames_are_lost(self):
        self.assertIn("2 of 22 frames lost", self.measure("viewers", "--inject-loss", status=LOSSES).stderr)


class Receive(Measurement):
    def test_runs(self):
        done = self.measure("receive")
        self.expect_header(done.stdout)
        for program in ("bare loop", "bare loop into 16 frames", "grabber", "mediagrabber", "Aravis"):
            self.assertRegex(done.stdout, rf"(?m)^\| merged \| 1400 \| {program} \| 1 \|(?: [^|]+ \|){{5}} 0 of 10 \| 0 \|")
        for program in ("grabber", "mediagrabber", "Aravis", "Aravis, packet socket"):
            self.assertRegex(done.stdout, rf"(?m)^\| not merged \| 1400 \| {program} \| 1 \|(?: [^|]+ \|){{5}} 0 of 10 \| 0 \|")
        self.assertRegex(done.stdout, r"(?m)^\| merged \| 1400 \| arv-camera-test \| 1 \|")
        self.assertIn("highest rates: [20]", done.stderr)
        for feature in ("GevTimestampValue", "DeviceTemperature", "GainSelector", "Gain", "ExposureTime"):
            self.assertRegex(done.stdout, rf"(?m)^\| {feature} \| \d+ \|")

        # The same socket buffer for all, except arv-camera-test, which is the row of Aravis's defaults.
        found = {row[0]: row[1] for row in re.findall(r"(?m)^\| merged \| 1400 \| ([^|]+) \|.* ([^|]+) \|$", done.stdout)}
        default = found.pop("arv-camera-test")
        self.assertEqual(len(set(found.values())), 1, found)
        self.assertNotIn(default, found.values())
        self.assertRegex(done.stdout, r"(?m)^\| not merged \| 1400 \| Aravis, packet socket \|.* packet socket \|$")
        self.assertEqual(done.stdout.count(" packet socket |"), 2)

    def test_fails_if_frames_are_lost(self):
        done = self.measure("receive", "--inject-loss", status=LOSSES)
        self.assertIn("highest rates: [0]", done.stderr)
        self.assertRegex(done.stderr, "FRAMES LOST: [1-9]")
        for program in ("bare loop", "bare loop into 16 frames", "grabber", "mediagrabber", "Aravis", "arv-camera-test"):
            self.assertRegex(done.stdout, rf"(?m)^\| merged \| 1400 \| {program} \| 1 \|(?: [^|]+ \|){{5}} [1-9]\d* of")


class Timekeeping(Measurement):
    def test_runs(self):
        self.expect_header(self.measure("timekeeping").stdout)


class PluginWork(Measurement):
    def test_runs(self):
        output = self.measure("plugin-work").stdout
        self.expect_header(output)
        self.assertRegex(output, r"(?m)^\| one loop iteration .* \| \d+\.\d \|$")
        cell = r" \d+\.\d\d \|"
        for row in (rf"Mono8 \|{cell}{cell} - \|{cell}{cell}", rf"Mono12Packed \|{cell}{cell}{cell} - \|{cell}"):
            self.assertRegex(output, rf"(?m)^\| {row}$")


class Soak(Measurement):
    def test_runs_and_receives_with_every_consumer(self):
        done = self.run_script("soak", "0.55")
        self.expect_header(done.stdout)
        figures = dict(re.findall(r"(?m)^\| ([^|]+) \| (\d+) \|$", done.stdout))
        for name in ("exported", "images of the page", "answers with metrics", "frames read from the ring"):
            self.assertGreater(int(figures[name]), 0, done.stdout)
        # Resources do not settle in this time; nothing else may be wrong.
        result = re.search(r"(?m)^Result: (.*)\.$", done.stdout).group(1)
        resource = r"((resident memory|descriptors|threads) (grows|grew|undecided)[^;]*|undecided means [^;]*)"
        self.assertRegex(result, rf"^(every frame is accounted for.*|{resource}(; {resource})*)$")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
