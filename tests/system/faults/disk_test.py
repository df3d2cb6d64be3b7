"""Faults of the disk: grabbing goes on, what could not be kept is counted, and what is kept is whole."""

import errno
import sys
import unittest

from faulty_grabbing import Grabbing
from file_system import file_system, remount
from host_troubles import HostTroubles

FRAMES_WITHOUT_DISK = 50


class FullDisk(unittest.TestCase):
    def test_costs_the_frames_that_find_no_room_and_no_other(self):
        with file_system("size=6m") as disk, Grabbing(self, output=disk / "frames") as run:
            run.recording.wait_for_log("No space left on device")
            run.wait_for_exposures(FRAMES_WITHOUT_DISK)
            remount(disk, "size=600m")
            run.recover()
            account = run.finish()
        self.assertGreater(account.not_written, FRAMES_WITHOUT_DISK / 2)
        account.check(self)


class ReadOnlyDisk(unittest.TestCase):
    def test_costs_the_frames_that_cannot_be_written_and_no_other(self):
        troubles = HostTroubles()
        with Grabbing(self, troubles=troubles) as run:
            troubles.write_error = errno.EROFS
            run.recording.wait_for_log("Read-only file system")
            run.wait_for_exposures(FRAMES_WITHOUT_DISK)
            troubles.write_error = 0
            run.recover()
            account = run.finish()
        self.assertGreater(account.not_written, FRAMES_WITHOUT_DISK / 2)
        account.check(self)


class SlowDisk(unittest.TestCase):
    def test_costs_the_frames_that_cannot_wait_any_longer_and_no_other(self):
        troubles = HostTroubles()
        with Grabbing(self, troubles=troubles, export_buffers=4) as run:
            troubles.write_delay_us = 100_000  # five frames' time
            run.wait_for_exposures(FRAMES_WITHOUT_DISK)
            troubles.write_delay_us = 0
            run.recover()
            account = run.finish()
        self.assertGreater(account.overrun, FRAMES_WITHOUT_DISK / 2)
        self.assertEqual(account.not_written, 0)
        account.check(self)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
