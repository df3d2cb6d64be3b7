# SPDX-License-Identifier: MIT
"""Faults of the host: kill, suspension, network failure, unreadable configuration, clock steps, and a second host that uses
the same camera."""

import random
import signal
import subprocess
import sys
import time
import unittest

from camera_process import FaultyCamera
from fault_recording import INTERRUPTED, RATE, FaultRecording, configuration
from host_troubles import HostTroubles
from recorder import Recording

USAGE = 2
SLOW = 20.0  # frames/s, of which a busy machine receives all
MAX_RECOVERY_SECONDS = 10.0
SUSPENDED_SECONDS = 5.0
MAX_SILENCE_SECONDS = 4.0  # after which a run without acknowledges has ended


class KilledHost(unittest.TestCase):
    def test_releases_the_camera_after_the_heartbeat_timeout(self):
        with FaultyCamera() as camera:
            with Recording(configuration()) as killed:
                killed.wait_for_frames(10)
                killed.signal(signal.SIGKILL)
                killed.process.wait()
                # All files of the frame index are complete.
                written = {path.name for path in killed.output.glob("*.tif")}
                self.assertLessEqual({line["file"] for line in killed.frame_index()}, written)
                began = time.monotonic()
                with Recording(configuration(SLOW)) as successor:
                    successor.wait_for_frames(10)
                    recovery = time.monotonic() - began
                    self.assertEqual(successor.stop(), 0, successor.log)
                    status, report = successor.verify(camera.truth_path)
        self.assertEqual(status, 0, report)
        self.assertLess(recovery, MAX_RECOVERY_SECONDS)
        print(f"{self.id()}: frames again after {recovery:.2f} s", flush=True)


class TwoHosts(unittest.TestCase):
    def test_the_second_gets_an_error_and_does_not_disturb_the_first(self):
        with FaultRecording(self, rate=SLOW) as run:
            with Recording(configuration().replace('"never"', "0"), "--frames", "10") as second:
                self.assertNotEqual(second.finish(), 0)
            self.assertIn("(exit code -5)", second.log)
            self.assertIn("another application may be using it", second.log)
            self.assertEqual(second.frame_index(), [])
            run.wait_for_more(20)
            balance = run.finish()
        self.assertEqual((balance.missing, balance.reported), (0, 0), balance.report + balance.log)
        self.assertNotIn("exit code", balance.log)


class SuspendedHost(unittest.TestCase):
    def test_continues_without_damaged_frames(self):
        with FaultRecording(self) as run:
            run.recording.signal(signal.SIGSTOP)
            time.sleep(SUSPENDED_SECONDS)  # longer than the heartbeat timeout
            run.recording.signal(signal.SIGCONT)
            run.recover()
            balance = run.finish()
        self.assertLess(run.recovery, MAX_RECOVERY_SECONDS)
        balance.check(self, interrupted=INTERRUPTED + SUSPENDED_SECONDS * RATE)


class NetworkInterfaceDown(unittest.TestCase):
    def test_is_followed_by_a_restart_when_it_is_up_again(self):
        with FaultRecording(self) as run:
            subprocess.run(["ip", "link", "set", "lo", "down"], check=True)
            try:
                run.recording.wait_for_log("(exit code -10)")
            finally:
                subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
            run.recover()
            balance = run.finish()
        self.assertLess(run.recovery, MAX_RECOVERY_SECONDS)
        balance.check(self, interrupted=INTERRUPTED + MAX_SILENCE_SECONDS * RATE)


class ClockStep(unittest.TestCase):
    def test_forward_by_an_hour_is_followed_and_costs_no_frame(self):
        self.expect_followed(3600, "TS readjusting", 1)

    def test_back_by_an_hour_is_followed_and_costs_no_frame(self):
        self.expect_followed(-3600, "init TS trigger", 2)  # the first one is logged in every run

    def expect_followed(self, seconds, message, times):
        """Frames have the new time once the message is in the log."""
        troubles = HostTroubles()
        with FaultRecording(self, rate=SLOW, troubles=troubles) as run:
            run.wait_for_more(10)
            troubles.clock_ahead_s = seconds
            run.recording.wait_while_running(lambda: run.recording.log.count(message) >= times, "a log message about the step")
            followed_us = (time.time() + seconds) * 1e6
            run.wait_for_more(10)
            now_us = (time.time() + seconds) * 1e6
            first, *_, last = (line["timestamp_us"] for line in run.recording.frame_index())
            balance = run.finish()
        self.assertLess(followed_us - 1e6, last, balance.log)
        self.assertLess(last, now_us + 1e6, balance.log)
        self.assertAlmostEqual((now_us - first) / 1e6, seconds, delta=60)
        self.assertEqual((balance.missing, balance.reported), (0, 0), balance.report + balance.log)
        self.assertNotIn("exit code", balance.log)


class UnreadableConfiguration(unittest.TestCase):
    FILES = {
        "nothing": (lambda path: path.unlink(), "No such file or directory"),
        "a directory": (lambda path: (path.unlink(), path.mkdir()), "is not a regular file"),
        "100 MB": (lambda path: path.write_bytes(b"#" * 100_000_000), "is larger than"),
        "random bytes": (lambda path: path.write_bytes(random.Random(1).randbytes(4096)), ":1:"),
    }

    def test_during_a_recording_is_reported_and_changes_nothing(self):
        with FaultRecording(self, rate=SLOW) as run:
            path = run.recording.configuration_path
            valid, refusal = path.read_bytes(), "configuration not reloaded; the previous one stays active"
            for what, (damage, error) in self.FILES.items():
                with self.subTest(what):
                    before = run.recording.log.count(refusal)
                    damage(path)
                    run.recording.signal(signal.SIGHUP)
                    run.recording.wait_while_running(lambda: run.recording.log.count(refusal) > before, "an error message")
                    self.assertIn(error, run.recording.log)
                    run.wait_for_more(10)
                    if path.is_dir():
                        path.rmdir()
                    path.write_bytes(valid)
            balance = run.finish()
        self.assertEqual((balance.missing, balance.reported), (0, 0), balance.report + balance.log)

    def test_at_the_start_is_an_error_before_the_camera_is_used(self):
        with FaultyCamera() as camera:
            for what, (damage, error) in self.FILES.items():
                with self.subTest(what):
                    recording = Recording(configuration())
                    damage(recording.configuration_path)
                    with recording:
                        self.assertEqual(recording.finish(), USAGE, recording.log)
                    self.assertIn(error, recording.log)
            self.assertEqual(camera.frames_so_far(), [])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
