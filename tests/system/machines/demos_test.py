# SPDX-License-Identifier: MIT
"""The demos of examples/several_machines: what they save, show and report."""

import contextlib
import datetime
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import urllib.parse
import urllib.request

from PIL import Image, ImageStat

from recorder import verify_directory
from recording_process import MEDIAGRABBER
from waiting import wait_for

EXAMPLES = pathlib.Path(os.environ["EXAMPLES"])
MACHINES = (1, 2)
DEMO_SECONDS = 150  # most of them are the patience of a demo that fails


class Demo(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.output = pathlib.Path(directory.name)

    def environment(self, **values):
        return {**os.environ, "BIN": str(pathlib.Path(MEDIAGRABBER).parent), **values}

    def logs(self):
        return "".join(f"--- {path.name}\n{path.read_text()}" for path in sorted(self.output.glob("*.log")))

    def run_demo(self, name, *arguments):
        """\\return the output of a demo, which must succeed and leave no process"""
        done = subprocess.run([EXAMPLES / name, self.output, *arguments], env=self.environment(DEMO=str(self.output)), text=True,
                              timeout=DEMO_SECONDS, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, 0, done.stdout + self.logs())
        wait_for(lambda: not processes_with(f"DEMO={self.output}"), "the end of all processes of the demo", 5)
        self.assertNotRegex(self.logs(), "Sanitizer:|runtime error:")  # the demo does not look at the exit statuses
        return done.stdout

    def expect_identical(self, number, directory):
        """The saved frames are those that the machine's camera has sent."""
        status, report = verify_directory(directory, self.output / f"machine{number}" / "truth.jsonl")
        self.assertEqual(status, 0, report)


def processes_with(variable):
    """\\return the command lines of the processes with this environment variable"""
    found = []
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):  # it has ended
            if variable.encode() in (process / "environ").read_bytes().split(b"\0"):
                found.append((process / "cmdline").read_bytes())
    return found


def frame_index(directory):
    return [json.loads(line) for line in (directory / "frames.jsonl").read_text().splitlines()]


class Event(Demo):
    def test_saves_the_frames_before_it_on_all_machines_with_its_name(self):
        output = self.run_demo("event_demo")
        event = re.search(r"^event (\S+)$", output, re.MULTILINE)[1]
        happened = datetime.datetime.strptime(event, "%Y%m%dT%H%M%S.%fZ-door").replace(tzinfo=datetime.timezone.utc).timestamp()
        for number in MACHINES:
            recordings = list((self.output / f"machine{number}" / "frames" / "pretrigger").iterdir())
            self.assertEqual([path.name for path in recordings], [event], self.logs())
            frames = frame_index(recordings[0])
            self.assertGreater(len(frames), 10, self.logs())
            self.assertLess(frames[0]["timestamp_us"] / 1e6, happened, "the first frame was exposed before the event")
            self.expect_identical(number, recordings[0])


class Display(Demo):
    WIDTH, HEIGHT = 320, 240

    def test_shows_the_frames_of_all_recorders_side_by_side(self):
        output = self.run_demo("display_demo", "5")
        self.assertRegex(output, r"display: [1-9]\d* images")
        images = [Image.open(path).convert("L") for path in sorted(self.output.glob("display-*.png"))]
        parts = [(image.crop((0, 0, self.WIDTH, self.HEIGHT)), image.crop((self.WIDTH, 0, 2 * self.WIDTH, self.HEIGHT)))
                 for image in images if image.size == (2 * self.WIDTH, self.HEIGHT)]
        self.assertEqual(len(parts), len(images))
        shown = [both for both in parts if all(ImageStat.Stat(part).stddev[0] > 5 for part in both)]
        self.assertGreaterEqual(len(shown), 2, "both parts have an image: " + self.logs())
        for left, right in shown:
            self.assertLess(ImageStat.Stat(left).mean[0] + 10, ImageStat.Stat(right).mean[0], "the right camera exposes longer")
        for side in (0, 1):
            self.assertGreater(len({both[side].tobytes() for both in shown}), 1, "the images change")
        for number in MACHINES:
            self.expect_identical(number, self.output / f"machine{number}" / "frames")


class Federation(Demo):
    # Only times are changed, so that the test need not wait for minutes.
    SHORTEN = r"s/_interval: 10s/_interval: 500ms/; s/for: [0-9]*[sm]/for: 1s/; s/\[[0-9]*m\]/[20s]/g"

    def get(self, what, **parameters):
        """\\return the data of an API response of the plant's server"""
        query = urllib.parse.urlencode(parameters)
        with urllib.request.urlopen(f"http://10.77.0.1:9090/api/v1/{what}?{query}", timeout=20) as response:
            return json.load(response)["data"]

    def values(self, expression):
        """\\return the values of an expression by the label "machine\""""
        return {one["metric"].get("machine"): float(one["value"][1]) for one in self.get("query", query=expression)["result"]}

    def firing(self):
        return {(alert["labels"]["alertname"], alert["labels"]["instance"]) for alert in self.get("alerts")["alerts"]
                if alert["state"] == "firing"}

    def test_collects_the_metrics_of_all_recorders_and_evaluates_the_alerts(self):
        demo = subprocess.Popen([EXAMPLES / "federation_demo", self.output], text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, env=self.environment(SEVERAL_MACHINES="1", SHORTEN=self.SHORTEN))
        with demo:
            try:
                line = ""
                while not line.startswith("federation: "):
                    line = demo.stdout.readline()
                    self.assertTrue(line, self.logs())
                self.examine(lambda command: print(command, file=demo.stdin, flush=True))
                demo.stdin.close()
                self.assertEqual(demo.wait(60), 0, self.logs())
            finally:
                demo.terminate()

    def examine(self, command):
        received = "mediagrabber_frames_received_total"
        both = {"cell-1", "cell-2"}
        wait_for(lambda: set(self.values(received)) == both, "metrics of both machines")
        before = self.values(received)
        wait_for(lambda: all(self.values(received).get(machine, 0) > before[machine] for machine in both), "more frames of both")
        self.assertEqual(self.values('up{job="mediagrabber"}'), {"cell-1": 1, "cell-2": 1})
        rules = {rule["name"]: rule["health"] for group in self.get("rules")["groups"] for rule in group["rules"]}
        self.assertLessEqual({"RecordingDown", "NoFrames", "FramesDropped", "MachineDown"}, set(rules))
        self.assertNotIn("err", rules.values())
        down = {("RecordingDown", "cell-1:8080"), ("MachineDown", "10.77.0.12:9090")}
        self.assertTrue(down.isdisjoint(self.firing()))
        command("stop recorder1")
        wait_for(lambda: ("RecordingDown", "cell-1:8080") in self.firing(), "the alert for the recording of machine 1")
        self.assertNotIn(("RecordingDown", "cell-2:8080"), self.firing())
        command("stop prometheus2")
        wait_for(lambda: ("MachineDown", "10.77.0.12:9090") in self.firing(), "the alert for machine 2")
        self.assertNotIn(("MachineDown", "10.77.0.11:9090"), self.firing())


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
