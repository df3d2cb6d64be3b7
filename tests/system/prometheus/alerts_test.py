# SPDX-License-Identifier: MIT
"""The alert rules in Prometheus itself: each fires while there is its fault in a recording, and no other does."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from broker import PORT as BROKER_PORT
from broker import Broker
from camera_process import FaultyCamera
from file_system import file_system, remount
from recorder import Recording
from recording_process import MEDIAGRABBER
from server import ALERT_RULES, PROMTOOL, TARGET, Prometheus, shortened
from waiting import wait_for

ANOTHER_VALUE = 9  # exit status of `mediagrabber set`
RATE = 20
WIDTH, HEIGHT = 320, 240
# Enough for the ten minutes of DiskNearlyFull. A file system in memory uses what is written only.
LARGE_DISK = "size=8g"
CONFIGURATION = f"""
[image]
width = {WIDTH}
height = {HEIGHT}
format = "Mono8"
[timing]
frame_rate_hz = {RATE}.0
[run]
retry_interval_s = 0.2
give_up_after = "never"
[web]
address = "{TARGET}"
[mqtt]
broker = "mqtt://127.0.0.1:{BROKER_PORT}"
frames = true
queue_frames = 20
[log]
level = "info"
"""


class Rules(unittest.TestCase):
    def test_are_valid(self):
        done = subprocess.run([PROMTOOL, "check", "rules", str(ALERT_RULES)], capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)

    def test_that_are_invalid_are_refused(self):
        """The check of test_are_valid() itself."""
        with tempfile.NamedTemporaryFile("w", suffix=".yml") as rules:
            rules.write(ALERT_RULES.read_text().replace("== 0", "== 0)"))
            rules.flush()
            self.assertNotEqual(subprocess.run([PROMTOOL, "check", "rules", rules.name], capture_output=True, timeout=60).returncode, 0)

    def test_are_only_shortened_for_the_tests_of_alerts(self):
        durations = re.compile(r"\[\w+\]|for: \w+")
        rules = ALERT_RULES.read_text()
        self.assertEqual(durations.sub("", shortened(rules)), durations.sub("", rules))


class Alerts(unittest.TestCase):
    """One recording and one Prometheus for all tests."""

    @classmethod
    def setUpClass(cls):
        cls.fired = set()
        cls.broker = cls.enterClassContext(Broker(cls.enterClassContext(tempfile.TemporaryDirectory())))
        cls.disk = cls.enterClassContext(file_system(LARGE_DISK))
        cls.camera = cls.enterClassContext(FaultyCamera())
        cls.start_recording()
        cls.addClassCleanup(lambda: cls.recording.__exit__(None, None, None))
        cls.prometheus = cls.enterClassContext(Prometheus())

    @classmethod
    def start_recording(cls):
        # Not a context of the class: a test ends it and starts another one.
        cls.recording = Recording(CONFIGURATION, output=pathlib.Path(tempfile.mkdtemp(dir=cls.disk)) / "frames")
        cls.recording.__enter__()
        cls.recording.wait_for_frames(RATE)
        cls.recording.wait_for_log("connected to the MQTT broker")

    def setUp(self):
        self.wait_until_no_alert_is_left()

    def wait_until_no_alert_is_left(self):
        def none_left():
            self.prometheus.wait_for_evaluations()
            return self.prometheus.targets()["health"] == "up" and not self.prometheus.alerts("pending", "firing")
        try:
            wait_for(none_left, "the end of all alerts")
        except AssertionError as error:
            raise AssertionError(f"{error}: {self.prometheus.alerts('pending', 'firing')}\n{self.recording.log}") from None

    def expect(self, *names):
        """Waits until these alerts fire. Then, no other may fire."""
        wait_for(lambda: set(names) <= self.prometheus.firing(),
                 f"the alerts {names}; those that fire: {self.prometheus.firing()}; the log:\n{self.recording.log}")
        self.prometheus.wait_for_evaluations()

        def only_these():
            firing = self.prometheus.firing()
            self.assertLessEqual(firing, set(names))
            return firing == set(names)  # a busy machine can miss a scrape; then no alert fires for a moment
        wait_for(only_these, f"the alerts {names} after another evaluation")
        for alert in self.prometheus.alerts("firing"):
            for text in alert["annotations"].values():
                self.assertNotRegex(text, "<error|<no value>|  |{{", "an annotation with a label that does not exist")
        self.fired.update(names)

    def expect_end(self, name):
        """Waits until an alert is over: Prometheus lists it neither as firing nor as pending."""
        names = lambda: {alert["labels"]["alertname"] for alert in self.prometheus.alerts("pending", "firing")}
        wait_for(lambda: name not in names(), f"the end of {name}; the log:\n{self.recording.log}")

    def test_no_alert_fires_during_an_undisturbed_recording(self):
        frames = len(self.recording.frame_index())
        self.recording.wait_for_frames(frames + 3 * RATE)
        self.prometheus.wait_for_evaluations()
        self.assertEqual(self.prometheus.firing(), set())
        pending = {alert["labels"]["alertname"] for alert in self.prometheus.alerts("pending")}
        self.assertLessEqual(pending, {"RecordingDown"})  # a busy machine can miss a scrape

    def test_recording_down(self):
        self.recording.process.kill()
        self.recording.__exit__(None, None, None)
        self.expect("RecordingDown")
        self.start_recording()
        self.expect_end("RecordingDown")

    def expect_during_fault(self, name, kind, **parameters):
        """Expects an alert while the camera has a fault."""
        fault = self.camera.start_fault(kind, **parameters)
        try:
            self.expect(name)
        finally:
            self.camera.stop_fault(fault)
        self.expect_end(name)

    def test_no_frames(self):
        self.expect_during_fault("NoFrames", "freeze")

    def test_packets_lost(self):
        self.expect_during_fault("PacketsLost", "packet_loss", probability=0.3)

    def test_camera_hot(self):
        self.expect_during_fault("CameraHot", "overheating", celsius=72)

    def test_requested_value_differs(self):
        self.assertEqual(self.set(f"image.width={WIDTH + 5}"), ANOTHER_VALUE)  # not a multiple of the camera's increment
        self.expect("RequestedValueDiffers")
        self.assertEqual(self.set(f"image.width={WIDTH}"), 0)
        self.expect_end("RequestedValueDiffers")

    def set(self, assignment):
        return subprocess.run([MEDIAGRABBER, "set", "--restart", assignment], timeout=60).returncode

    def test_disk_nearly_full(self):
        self.leave_space_for(200 * RATE)
        self.expect("DiskNearlyFull")
        remount(self.disk, LARGE_DISK)
        self.expect_end("DiskNearlyFull")

    def test_frames_dropped_and_disk_full(self):
        self.leave_space_for(RATE)
        self.expect("FramesDropped", "DiskNearlyFull")
        # Nothing is written any more, so the rate of writing says nothing about the disk.
        self.wait_until_nothing_is_written()
        self.expect("FramesDropped", "DiskNearlyFull")
        remount(self.disk, LARGE_DISK)
        self.expect_end("DiskNearlyFull")
        self.expect_end("FramesDropped")

    def leave_space_for(self, frames):
        self.addCleanup(remount, self.disk, LARGE_DISK)
        status = os.statvfs(self.disk)
        used = (status.f_blocks - status.f_bfree) * status.f_frsize
        remount(self.disk, f"size={used + frames * WIDTH * HEIGHT}")

    def wait_until_nothing_is_written(self):
        written = "query?query=" + "increase(mediagrabber_written_bytes_total[8s])"
        values = lambda: [float(one["value"][1]) for one in self.prometheus.get(written)["result"]]
        wait_for(lambda: values() == [0], "no bytes written in the window")

    def test_mqtt_messages_dropped(self):
        self.broker.stop()
        self.expect("MqttMessagesDropped")
        self.broker.start()
        self.expect_end("MqttMessagesDropped")

    def test_that_there_is_a_test_for_each_alert(self):
        """Runs last, because of its name."""
        self.assertEqual(self.fired, set(self.prometheus.rules()))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
