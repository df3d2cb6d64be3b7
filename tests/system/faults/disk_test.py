# SPDX-License-Identifier: MIT
"""Faults of the disk: grabbing continues, frames that cannot be saved are counted, and saved frames are complete."""

import errno
import sys
import unittest

from fault_recording import FaultRecording
from file_system import file_system, remount
from host_troubles import HostTroubles

FRAMES_WITHOUT_DISK = 50


class FullDisk(unittest.TestCase):
    def test_costs_only_the_frames_that_do_not_fit(self):
        with file_system("size=6m") as disk, FaultRecording(self, output=disk / "frames") as run:
            run.recording.wait_for_log("No space left on device")
            run.wait_for_sent(FRAMES_WITHOUT_DISK)
            remount(disk, "size=600m")
            run.recover()
            balance = run.finish()
        self.assertGreater(balance.dropped_write_error, FRAMES_WITHOUT_DISK / 2)
        balance.check(self)


class ReadOnlyDisk(unittest.TestCase):
    def test_costs_only_the_frames_that_cannot_be_written(self):
        troubles = HostTroubles()
        with FaultRecording(self, troubles=troubles) as run:
            troubles.write_error = errno.EROFS
            run.recording.wait_for_log("Read-only file system")
            run.wait_for_sent(FRAMES_WITHOUT_DISK)
            troubles.write_error = 0
            run.recover()
            balance = run.finish()
        self.assertGreater(balance.dropped_write_error, FRAMES_WITHOUT_DISK / 2)
        balance.check(self)


class SlowDisk(unittest.TestCase):
    def test_costs_only_the_frames_that_the_full_queue_rejects(self):
        troubles = HostTroubles()
        with FaultRecording(self, troubles=troubles, export_buffers=4) as run:
            troubles.write_delay_us = 500_000  # 25 frame periods; fewer if the camera leaves out exposures
            run.wait_for_sent(FRAMES_WITHOUT_DISK)
            troubles.write_delay_us = 0
            run.recover()
            balance = run.finish()
        self.assertGreater(balance.dropped_queue_full, FRAMES_WITHOUT_DISK / 2)
        self.assertEqual(balance.dropped_write_error, 0)
        balance.check(self)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
