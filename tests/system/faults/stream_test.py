"""Faults of the stream: what is lost is counted, nothing is torn, and frames go on."""

import os
import sys
import unittest

from faulty_grabbing import PACKETS, RATE, Grabbing
from recording_process import DEADLINE_SECONDS

FRAMES = int(os.environ.get("FAULT_FRAMES", "150"))  # that a fault is in force for
TOLERATED = int(os.environ.get("FAULT_FRAMES_TOLERATED", "0"))  # frames that may be lost where none should be


def strike_frames(run, kind, count=FRAMES, **parameters):
    """Has a fault in force while so many frames are taken."""
    end = run.exposures() + count
    seconds = DEADLINE_SECONDS + 2 * count / RATE
    return run.strike(kind, until=lambda: run.exposures() >= end, seconds=seconds, **parameters)


class Faults(unittest.TestCase):
    """What all of them have in common."""

    def mended(self, kind, **parameters):
        """A fault that costs no frame, because packets are asked for again."""
        with Grabbing(self) as run:
            self.assertGreater(strike_frames(run, kind, **parameters), 0)
            run.recover()
            account = run.finish()
        account.check(self)
        self.assertLessEqual(account.missing, TOLERATED, account.words + account.log)

    def counted(self, kind, **parameters):
        """A fault that costs frames, each of which is reported. \\return the account"""
        with Grabbing(self) as run:
            self.assertGreater(strike_frames(run, kind, **parameters), 0)
            run.recover()
            account = run.finish()
        self.assertGreater(account.missing, 0)
        account.check(self)
        self.assertLess(run.recovery, 10)
        return account


class PacketLoss(Faults):
    def test_of_1_percent_costs_no_frame(self):
        self.mended("packet_loss", share=0.01)

    def test_of_10_percent_costs_what_is_counted(self):
        with Grabbing(self) as run:
            strike_frames(run, "packet_loss", share=0.1)
            run.recover()
            account = run.finish()
        account.check(self)
        self.assertLessEqual(account.missing, TOLERATED + account.sent / 100)

    def test_of_nearly_everything_is_counted(self):
        self.counted("packet_loss", share=0.6)


class LossBurst(Faults):
    def test_costs_no_frame(self):
        self.mended("loss_burst", share=1, packets=30)

    def test_of_half_a_frame_is_counted(self):
        # A burst that begins late in the frame is short, and mended.
        self.counted("loss_burst", share=1, packets=PACKETS // 2)


class Reordering(Faults):
    def test_costs_no_frame(self):
        self.mended("packet_reordering", share=0.1, by=8)


class Duplication(Faults):
    def test_costs_no_frame(self):
        self.mended("packet_duplication", share=0.2)


class HeaderCorruption(Faults):
    def test_tears_no_frame_and_falsifies_no_count(self):
        with Grabbing(self) as run:
            self.assertGreater(strike_frames(run, "header_corruption", share=0.002), 10)
            run.recover()
            account = run.finish()
        account.check(self)
        self.assertLess(run.recovery, 10)


class PayloadCorruption(Faults):
    def test_falsifies_the_frames_that_the_camera_knows_of_and_no_other(self):
        with Grabbing(self) as run:
            strike_frames(run, "payload_corruption", share=0.001)
            run.recover()
            account = run.finish()
        struck = {frame["ticks"] for frame in account.truth if "payload_corruption" in frame.get("faults", {})}
        recorded = {line["ticks"] for line in account.journal}
        self.assertEqual(account.falsified, len(struck & recorded))
        self.assertGreater(account.falsified, 0)
        account.check(self)
        self.assertLessEqual(account.missing, TOLERATED, account.words + account.log)


class LeaderLost(Faults):
    def test_once_costs_no_frame(self):
        self.mended("leader_loss")

    def test_for_good_costs_every_frame(self):
        account = self.counted("leader_loss", again=True)
        self.assertGreaterEqual(account.missing, FRAMES - 1)


class TrailerLost(Faults):
    def test_once_costs_no_frame(self):
        self.mended("trailer_loss")

    def test_for_good_costs_every_frame(self):
        account = self.counted("trailer_loss", again=True)
        self.assertGreaterEqual(account.missing, FRAMES - 1)


class BlocksSkipped(Faults):
    def test_are_counted(self):
        with Grabbing(self) as run:
            skipped = strike_frames(run, "block_skip", share=0.2)
            run.recover()
            account = run.finish()
        self.assertGreater(skipped, 0)
        self.assertEqual(account.missing, 0)
        self.assertGreaterEqual(account.skipped, skipped)
        self.assertEqual((account.nothing_came, account.reported), (skipped, skipped), account.words + account.log)


class Freeze(Faults):
    def test_of_the_stream_is_sat_out(self):
        with Grabbing(self) as run:
            run.strike_for(3, "freeze")
            run.recover()
            account = run.finish()
        account.check(self)
        self.assertLessEqual(account.missing, 1)  # the one that it came into the middle of
        self.assertGreater(account.empty, account.failed)  # fetches that waited for a second
        self.assertNotIn("exit code", account.log)
        self.assertLess(run.recovery, 10)


class WrongSize(Faults):
    def test_in_the_leader_keeps_the_frame_from_the_disk_and_is_counted(self):
        for factor in (2, 0.5, 1e10):
            with self.subTest(factor=factor):
                self.counted("leader_size", factor=factor, count=30)

    def test_of_nothing_in_the_leader_leaves_the_picture(self):
        self.mended("leader_size", factor=0, count=30)


class WrongFormat(Faults):
    def test_in_the_leader_costs_frames_that_are_counted(self):
        self.counted("leader_format", count=50)

    def test_with_smaller_pixels_does_not_matter(self):
        # Mono1p: the picture would take fewer bytes than have come.
        with Grabbing(self) as run:
            strike_frames(run, "leader_format", code=0x01010037, count=50)
            run.recover()
            account = run.finish()
        account.check(self)


class LyingChunks(Faults):
    def test_leave_the_pictures(self):
        for length in ("too_large", "zero", "odd"):
            with self.subTest(length=length):
                self.mended("chunk_length", length=length, count=50)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
