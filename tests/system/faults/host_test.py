"""Faults of the host: it is killed, suspended, cut off from the network, or another one wants the same camera."""

import signal
import subprocess
import sys
import time
import unittest

from camera_process import FaultyCamera
from faulty_grabbing import CONFIGURATION, RATE, Grabbing
from recorder import Recording

LONGEST_RECOVERY = 10.0
SUSPENDED_SECONDS = 5.0


class KilledHost(unittest.TestCase):
    def test_leaves_the_camera_to_the_next_as_soon_as_its_heartbeat_is_missed(self):
        with FaultyCamera() as camera:
            with Recording(CONFIGURATION.format(rate=RATE)) as killed:
                killed.wait_for_frames(10)
                killed.signal(signal.SIGKILL)
                killed.process.wait()
                # What it had written is whole.
                written = {path.name for path in killed.output.glob("*.tif")}
                self.assertLessEqual({line["file"] for line in killed.journal()}, written)
                began = time.monotonic()
                with Recording(CONFIGURATION.format(rate=RATE)) as successor:
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
            with Recording(CONFIGURATION.format(rate=RATE).replace('"never"', "0"), "--frames", "10") as second:
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


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
