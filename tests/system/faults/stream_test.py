# SPDX-License-Identifier: MIT
"""Faults of the stream: lost frames are counted, no saved frame is damaged, and frames continue."""

import json
import os
import re
import sys
import unittest

from fault_recording import PACKETS, RATE, FaultRecording
from waiting import DEADLINE_SECONDS
from web_client import get

FRAMES = int(os.environ.get("FAULT_FRAMES", "150"))  # during which a fault is active
TOLERATED = int(os.environ.get("FAULT_FRAMES_TOLERATED", "0"))  # frames that may be lost where no loss is expected


def inject_for_frames(run, kind, count=FRAMES, **parameters):
    """Keeps a fault active for this many frames that the camera sends. \\return the number of hits"""
    end = run.sent() + count
    seconds = DEADLINE_SECONDS + 2 * count / RATE
    return run.inject_until(kind, until=lambda: run.sent() >= end, seconds=seconds, **parameters)


DESCRIBES_IMAGES = ("--chunk-payload", "extended")  # a leader of chunk data has no size and format of the image


class StreamFaults(unittest.TestCase):
    """Base class of the tests of one fault each."""

    camera = ()  # options of camsim

    def expect_no_loss(self, kind, **parameters):
        """Injects a fault that costs no frame, because lost packets are resent."""
        with FaultRecording(self, camera=self.camera) as run:
            self.assertGreater(inject_for_frames(run, kind, **parameters), 0)
            run.recover()
            balance = run.finish()
        balance.check(self)
        self.assertLessEqual(balance.missing, TOLERATED, balance.report + balance.log)

    def expect_reported_loss(self, kind, **parameters):
        """Injects a fault that costs frames, each of which is reported. \\return the balance"""
        with FaultRecording(self, camera=self.camera) as run:
            self.assertGreater(inject_for_frames(run, kind, **parameters), 0)
            run.recover()
            balance = run.finish()
        self.assertGreater(balance.missing, 0)
        balance.check(self)
        self.assertLess(run.recovery, 10)
        return balance


class PacketLoss(StreamFaults):
    def test_of_1_percent_costs_no_frame(self):
        self.expect_no_loss("packet_loss", probability=0.01)

    def test_of_10_percent_costs_few_frames_that_are_reported(self):
        with FaultRecording(self) as run:
            inject_for_frames(run, "packet_loss", probability=0.1)
            run.recover()
            balance = run.finish()
        balance.check(self)
        self.assertLessEqual(balance.missing, TOLERATED + balance.sent / 100)


class LossOfMostPackets(StreamFaults):
    def test_is_reported(self):
        self.expect_reported_loss("packet_loss", probability=0.6)


class PacketCounters(StreamFaults):
    """What the stream receiver writes to the log about packets is counted in the page's status and in the metrics."""

    COUNTERS = ("packets_resend_requested", "packets_resent", "packets_lost")

    def status(self, port):
        counts = json.loads(get(port, "/status.json")[1])["counts"]
        return {name: counts[name] for name in self.COUNTERS}

    def metrics(self, port):
        text = get(port, "/metrics")[1].decode()
        return {name: int(float(re.search(rf"^mediagrabber_{name}_total\{{.*\}} (\S+)$", text, re.MULTILINE).group(1)))
                for name in self.COUNTERS}

    def test_are_0_without_loss_and_rise_with_packet_loss(self):
        with FaultRecording(self, '[web]\naddress = "127.0.0.1:0"\n') as run:
            run.recording.wait_for_log("live page: ")
            port = int(re.search(r"live page: http://127.0.0.1:(\d+)/", run.recording.log).group(1))
            self.assertEqual(set(self.status(port).values()) | set(self.metrics(port).values()), {0})
            inject_for_frames(run, "packet_loss", probability=0.1)  # most packets are resent
            inject_for_frames(run, "packet_loss", probability=0.6)  # many are lost even if they are resent
            run.recording.wait_while_running(lambda: all(self.status(port).values()), "the counts in the status")
            status, metrics = self.status(port), self.metrics(port)
            for name in self.COUNTERS:
                self.assertGreaterEqual(metrics[name], status[name])
            self.assertGreaterEqual(status["packets_resend_requested"], status["packets_resent"])
            run.recover()
            run.finish().check(self)


class LossBurst(StreamFaults):
    def test_costs_no_frame(self):
        self.expect_no_loss("loss_burst", probability=1, packets=30)


class LossOfHalfAFrame(StreamFaults):
    def test_is_reported(self):
        # A burst that begins late in a frame is short, and its packets are resent.
        self.expect_reported_loss("loss_burst", probability=1, packets=PACKETS // 2)


class Reordering(StreamFaults):
    def test_costs_no_frame(self):
        self.expect_no_loss("packet_reordering", probability=0.1, distance=8)


class Duplication(StreamFaults):
    def test_costs_no_frame(self):
        self.expect_no_loss("packet_duplication", probability=0.2)


class HeaderCorruption(StreamFaults):
    def test_damages_no_frame_and_no_counter(self):
        with FaultRecording(self) as run:
            run.inject_until("header_corruption", hits=11, probability=0.002)
            run.recover()
            balance = run.finish()
        balance.check(self)
        self.assertLess(run.recovery, 10)


class PayloadCorruption(StreamFaults):
    def test_damages_the_frames_in_the_truth_file_and_no_other(self):
        with FaultRecording(self) as run:
            inject_for_frames(run, "payload_corruption", probability=0.001)
            run.recover()
            balance = run.finish()
        corrupted = {frame["ticks"] for frame in balance.truth if "payload_corruption" in frame.get("faults", {})}
        saved = {line["ticks"] for line in balance.frames}
        self.assertEqual(balance.corrupted, len(corrupted & saved))
        self.assertGreater(balance.corrupted, 0)
        balance.check(self)
        self.assertLessEqual(balance.missing, TOLERATED, balance.report + balance.log)


class LeaderLoss(StreamFaults):
    def test_once_costs_no_frame(self):
        self.expect_no_loss("leader_loss")


class LeaderLossIncludingResends(StreamFaults):
    def test_costs_every_frame(self):
        balance = self.expect_reported_loss("leader_loss", including_resends=True)
        self.assertGreaterEqual(balance.missing, FRAMES - 1)


class TrailerLoss(StreamFaults):
    def test_once_costs_no_frame(self):
        self.expect_no_loss("trailer_loss")


class TrailerLossIncludingResends(StreamFaults):
    def test_costs_every_frame(self):
        balance = self.expect_reported_loss("trailer_loss", including_resends=True)
        self.assertGreaterEqual(balance.missing, FRAMES - 1)


class BlockDrop(StreamFaults):
    def test_is_reported(self):
        with FaultRecording(self) as run:
            dropped = inject_for_frames(run, "block_drop", probability=0.2)
            run.recover()
            balance = run.finish()
        self.assertGreater(dropped, 0)
        self.assertEqual(balance.missing, 0)
        self.assertGreaterEqual(balance.dropped, dropped)
        self.assertEqual(balance.never_arrived, dropped, balance.report + balance.log)
        # A frame may arrive while the recording ends.
        self.assertIn(balance.reported - dropped, range(balance.begun_afterwards() + 1), balance.report + balance.log)


class Freeze(StreamFaults):
    def test_of_the_stream_does_not_end_the_run(self):
        with FaultRecording(self) as run:
            run.inject_for(3, "freeze")
            run.recover()
            balance = run.finish()
        balance.check(self)
        self.assertLessEqual(balance.missing, 1)  # the frame that it interrupted
        self.assertGreater(balance.empty, balance.failed)  # fetches that timed out
        self.assertNotIn("exit code", balance.log)
        self.assertLess(run.recovery, 10)


class LeaderSize(StreamFaults):
    camera = DESCRIBES_IMAGES

    def test_that_is_wrong_costs_the_frame_and_is_reported(self):
        for factor in (2, 0.5, 1e10):
            with self.subTest(factor=factor):
                self.expect_reported_loss("leader_size", factor=factor, count=30)

    def test_of_zero_costs_no_frame(self):
        self.expect_no_loss("leader_size", factor=0, count=30)


class LeaderFormat(StreamFaults):
    camera = DESCRIBES_IMAGES

    def test_that_is_wrong_costs_frames_that_are_reported(self):
        self.expect_reported_loss("leader_format", count=50)

    def test_with_smaller_pixels_costs_only_frames_that_are_reported(self):
        # Mono1p: the image would have fewer bytes than were received.
        with FaultRecording(self, camera=self.camera) as run:
            inject_for_frames(run, "leader_format", pixel_format_code=0x01010037, count=50)
            run.recover()
            balance = run.finish()
        balance.check(self)


class ChunkLength(StreamFaults):
    def test_that_is_wrong_costs_no_frame(self):
        for length in ("too_large", "zero", "odd"):
            with self.subTest(length=length):
                self.expect_no_loss("chunk_length", length=length, count=50)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
