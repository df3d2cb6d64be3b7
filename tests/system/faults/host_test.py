"""Faults of the host: it is killed, suspended, cut off from the network, misconfigured, its clock is set, or another one wants
the same camera."""

import random
import signal
import subprocess
import sys
import time
import unittest

from camera_process import FaultyCamera
from faulty_grabbing import Grabbing, configuration
from host_troubles import HostTroubles
from recorder import Recording

USAGE = 2
LONGEST_RECOVERY = 10.0
SUSPENDED_SECONDS = 5.0


class KilledHost(unittest.TestCase):
    def test_leaves_the_camera_to_the_next_as_soon_as_its_heartbeat_is_missed(self):
        with FaultyCamera() as camera:
            with Recording(configuration()) as killed:
                killed.wait_for_frames(10)
                killed.signal(signal.SIGKILL)
                killed.process.wait()
                # What it had written is whole.
                written = {path.name for path in killed.output.glob("*.tif")}
                self.assertLessEqual({line["file"] for line in killed.journal()}, written)
                began = time.monotonic()
                with Recording(configuration()) as successor:
                    successor.wait_for_frames(10)
                    recovery = time.monotonic() - began
                    self.assertEqual(successor.stop(), 0, successor.log)
                    status, words = successor.compare(camera.truth_path)
        self.assertEqual(status, 0, words)
        self.assertLess(recovery, LONGEST_RECOVERY)
        print(f"{self.id()}: frames again after {recovery:.2f} s", flush=True)


class TwoHosts(unittest.TestCase):
    def test_the_second_is_told_so_and_disturbs_nothing(self):
        with Grabbing(self) as run:
            with Recording(configuration().replace('"never"', "0"), "--frames", "10") as second:
                self.assertNotEqual(second.finish(), 0)
            self.assertIn("(exit code -5)", second.log)
            self.assertIn("another application may have it", second.log)
            self.assertEqual(second.journal(), [])
            run.wait_for_more(20)
            account = run.finish()
        self.assertEqual((account.missing, account.reported), (0, 0), account.words + account.log)
        self.assertNotIn("exit code", account.log)


class SuspendedHost(unittest.TestCase):
    def test_goes_on_when_it_is_let_and_shows_no_frame_torn(self):
        with Grabbing(self) as run:
            run.recording.signal(signal.SIGSTOP)
            time.sleep(SUSPENDED_SECONDS)  # longer than the camera waits for its heartbeat
            run.recording.signal(signal.SIGCONT)
            run.recover()
            run.finish()
        self.assertLess(run.recovery, LONGEST_RECOVERY)


class NetworkInterface(unittest.TestCase):
    def test_that_is_down_and_up_again_is_grabbed_over_again(self):
        with Grabbing(self) as run:
            subprocess.run(["ip", "link", "set", "lo", "down"], check=True)
            try:
                run.recording.wait_for_log("(exit code -10)")
            finally:
                subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
            run.recover()
            run.finish()
        self.assertLess(run.recovery, LONGEST_RECOVERY)


class ClockSet(unittest.TestCase):
    def test_ahead_by_an_hour_is_followed_and_costs_no_frame(self):
        self.is_followed(3600, "TS readjusting", 1)

    def test_back_by_an_hour_is_followed_and_costs_no_frame(self):
        self.is_followed(-3600, "init TS trigger", 2)  # the first is that of every run

    def is_followed(self, seconds, announcement, times):
        """Frames have the new time once the log has said so."""
        troubles = HostTroubles()
        with Grabbing(self, troubles=troubles) as run:
            run.wait_for_more(10)
            troubles.clock_ahead_s = seconds
            run.recording.wait_while_running(lambda: run.recording.log.count(announcement) >= times, "the step was noticed")
            run.wait_for_more(10)
            now_us = (time.time() + seconds) * 1e6
            first, *_, last = (line["timestamp_us"] for line in run.recording.journal())
            account = run.finish()
        self.assertLess(abs(now_us - last), 1e6, account.log)
        self.assertAlmostEqual((now_us - first) / 1e6, seconds, delta=60)
        self.assertEqual((account.missing, account.reported), (0, 0), account.words + account.log)
        self.assertNotIn("exit code", account.log)


class Misconfigured(unittest.TestCase):
    """A configuration that cannot be read in the middle of a recording."""

    WRONG = {
        "nothing": (lambda path: path.unlink(), "No such file or directory"),
        "a directory": (lambda path: (path.unlink(), path.mkdir()), "is not a regular file"),
        "100 MB": (lambda path: path.write_bytes(b"#" * 100_000_000), "is larger than"),
        "random bytes": (lambda path: path.write_bytes(random.Random(1).randbytes(4096)), ":1:"),
    }

    def test_goes_on_as_it_was(self):
        with Grabbing(self) as run:
            path = run.recording.configuration_path
            right, refusal = path.read_bytes(), "the configuration is not reloaded"
            for what, (spoil, complaint) in self.WRONG.items():
                with self.subTest(what):
                    before = run.recording.log.count(refusal)
                    spoil(path)
                    run.recording.signal(signal.SIGHUP)
                    run.recording.wait_while_running(lambda: run.recording.log.count(refusal) > before, "it was told")
                    self.assertIn(complaint, run.recording.log)
                    run.wait_for_more(10)
                    if path.is_dir():
                        path.rmdir()
                    path.write_bytes(right)
            account = run.finish()
        self.assertEqual((account.missing, account.reported), (0, 0), account.words + account.log)

    def test_at_the_start_touches_no_camera(self):
        with FaultyCamera() as camera:
            for what, (spoil, complaint) in self.WRONG.items():
                with self.subTest(what):
                    recording = Recording(configuration())
                    spoil(recording.configuration_path)
                    with recording:
                        self.assertEqual(recording.finish(), USAGE, recording.log)
                    self.assertIn(complaint, recording.log)
            self.assertEqual(camera.frames_so_far(), [])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
