# SPDX-License-Identifier: MIT
"""A recording during which faults are injected, and the balance of frames sent, saved and reported lost."""

import contextlib
import re
import time

from camera_process import FaultyCamera
from recorder import Recording, wait_for_truth
from waiting import DEADLINE_SECONDS, wait_for

CONFIGURATION = """
[image]
width = 640
height = 480
format = "Mono8"
[transport]
packet_size_bytes = 1400
[timing]
frame_rate_hz = {rate}
clock_correction_ppb = 1  # timestamps of the camera's clock
[memory]
export_buffers = {export_buffers}
[run]
retry_interval_s = 0.2
give_up_after = "never"
[log]
level = "info"
"""
RATE = 50.0  # frames/s
INTERRUPTED = RATE / 2  # frames that may be lost at the end of a run that fails: those of half a second
EXPORT_BUFFERS = 200  # so that a slow disk drops no frame
PACKETS = 227  # per frame: the leader, 225 packets with up to 1,364 bytes of payload, the trailer

FIGURES = re.compile(r"(?P<identical>\d+) frames identical, (?P<different>\d+) different, (?P<missing>\d+) missing, "
                     r"(?P<stray>\d+) stray files; (?P<dropped>\d+) dropped by the camera, "
                     r"(?P<corrupted>\d+) corrupted by faults")
LOST = re.compile(r"dropped: (?P<dropped_queue_full>\d+) \(queue full\), (?P<dropped_write_error>\d+) \(write errors\); "
                  r"(?P<empty>\d+) fetches without a frame")
# Log messages of the plug-in about a step of the timestamps.
READJUSTMENTS = ("readjusting", "init TS trigger", "bTS wrap is detected")


def configuration(rate=RATE, export_buffers=EXPORT_BUFFERS):
    return CONFIGURATION.format(rate=rate, export_buffers=export_buffers)


def stream_statistics(log, key):
    """The sum of a count in all log records of openpv's stream statistics."""
    return sum(map(int, re.findall(rf"\b{key}=(\d+)", log)))


class FrameBalance:
    """The outcome of the frames that the camera sent between the first and the last saved frame.

    `missing` frames were sent and not saved. `reported` frames were logged as lost, for one reason each: `failed`,
    `never_arrived`, `without_buffer`, `dropped_queue_full` or `dropped_write_error`. `report` is the output of verify_recording.
    """

    def __init__(self, recording, camera):
        self.frames = recording.frame_index()
        wait_for_truth(recording.output, camera.truth_path)
        self.camera = camera
        self.truth = camera.frames_so_far()
        self.log = recording.log
        self.report = recording.verify(camera.truth_path)[1]
        for name, figure in FIGURES.search(self.report).groupdict().items():
            setattr(self, name, int(figure))
        for name, figure in LOST.search(self.log).groupdict().items():
            setattr(self, name, int(figure))
        self.failed = stream_statistics(self.log, "frames_incomplete") + stream_statistics(self.log, "frames_too_large")
        self.never_arrived = stream_statistics(self.log, "frames_missing")
        self.without_buffer = stream_statistics(self.log, "frames_without_buffer")
        self.sent = len(self.frames) + self.missing

    @property
    def reported(self):
        """The number of frames that openpv or the host logged as lost."""
        return self.dropped_queue_full + self.dropped_write_error + self.failed + self.never_arrived + self.without_buffer

    def begun_afterwards(self):
        """The number of frames of which a part or all was sent after the last saved one. Their loss is reported, but they do not
        count as missing."""
        frames = [frame for frame in self.camera.frames_so_far() if frame["outcome"] in ("sent", "aborted")]
        last = next(i for i, frame in enumerate(frames) if frame["ticks"] == self.frames[-1]["ticks"])
        return len(frames) - last - 1

    def restarts(self):
        """For each gap between saved frames in which the camera started again: the number of frames sent before the last start
        and since then."""
        positions, found = self.truth_positions(), []
        for before, position in zip(positions, positions[1:]):
            blocks = [frame for frame in self.truth[before:position + 1] if frame["block_id"]]
            starts = [i for i in range(1, len(blocks)) if blocks[i]["block_id"] < blocks[i - 1]["block_id"]]
            if starts:
                sent = lambda frames: sum(frame["outcome"] == "sent" for frame in frames)
                found.append((sent(blocks[1:starts[-1]]), sent(blocks[starts[-1]:-1])))
        return found

    def check(self, test, interrupted=None):
        """Asserts that each missing frame was reported lost, and no other frame except those begun after the last saved one.

        Without `interrupted`, the camera must not have started again. Otherwise it must have, each time after a reported end of
        a run. Up to `interrupted` frames that it sent before are lost with the run, and the first one afterwards initialises the
        clocks and is not exported.
        """
        restarts = self.restarts()
        if interrupted is None:
            test.assertEqual(restarts, [], self.log)
        else:
            test.assertTrue(1 <= len(restarts) <= self.log.count("(exit code -"), f"{restarts}\n{self.log}")
            test.assertLessEqual(max(lost for lost, _ in restarts), interrupted, self.report + self.log)
        explained = sum(lost + min(unsaved, 1) for lost, unsaved in restarts)
        test.assertLessEqual(self.missing, self.reported + explained, self.report + self.log)
        # A frame that a power cycle interrupts is reported, but was not sent.
        if self.reported > self.missing + len(restarts):
            wait_for(lambda: self.reported <= self.missing + len(restarts) + self.begun_afterwards(),
                     f"{self.reported} frames were reported lost:\n{self.report}{self.log}")

    def truth_positions(self):
        """The position of each saved frame in the truth file."""
        position, found = -1, []
        for line in self.frames:
            position = next(i for i in range(position + 1, len(self.truth)) if self.truth[i]["ticks"] == line["ticks"])
            found.append(position)
        return found

    def wrong_times(self):
        """Frames whose timestamp differs from the camera's by another offset than the frame before, unless the log explains it
        with a readjustment. Frames after a lost frame are skipped: they have the time that was announced for the lost one."""
        positions, wrong, offset = self.truth_positions(), [], None
        for before, position, line in zip(positions, positions[1:], self.frames[1:]):
            if position != before + 1:
                continue
            now = line["timestamp_us"] - line["ticks"] / 1000
            if offset is not None and abs(now - offset) > 3:
                wrong.append(line)
            offset = now
        readjusted = sum(self.log.count(word) for word in READJUSTMENTS)
        return wrong if len(wrong) > 2 * readjusted else []

    def wrong_counters(self):
        """Frames whose exposure start counter differs from the camera's."""
        return [line for position, line in zip(self.truth_positions(), self.frames)
                if line["counter"] != self.truth[position]["frame"]]

    def wrong_announcements(self):
        """Frames whose timestamp differs from the announced one, except the first of a run and readjusted ones."""
        wrong = [line for line in self.frames if line["announced_us"] not in (line["timestamp_us"], None)]
        return wrong if len(wrong) > self.log.count("init TS trigger") else []


class FaultRecording:
    """A camera and a recording from it, into which a test injects faults once frames arrive."""

    def __init__(self, test, more="", rate=RATE, export_buffers=EXPORT_BUFFERS, camera=(), output=None, troubles=None):
        self.test = test
        self.camera = FaultyCamera(*camera)
        self.recording = Recording(configuration(rate, export_buffers) + more, output=output,
                                   environment=troubles.environment if troubles else None)
        self.recovery = None

    def __enter__(self):
        with contextlib.ExitStack() as entered:
            entered.enter_context(self.recording)
            entered.enter_context(self.camera)
            self.recording.wait_for_frames(10)
            self.entered = entered.pop_all()
        return self

    def __exit__(self, *exception):
        return self.entered.__exit__(*exception)

    def frames(self):
        return len(self.recording.frame_index())

    def wait_for_more(self, count):
        self.recording.wait_for_frames(self.frames() + count)

    def sent(self):
        """The number of frames that the camera has sent. On a busy machine it leaves out exposures."""
        return sum(frame["outcome"] == "sent" for frame in self.camera.frames_so_far())

    def wait_for_sent(self, count):
        """Waits until the camera has sent this many more frames."""
        end = self.sent() + count
        self.recording.wait_while_running(lambda: time.sleep(0.05) or self.sent() >= end, f"{count} frames of the camera")

    def inject_until(self, kind, hits=None, until=None, seconds=DEADLINE_SECONDS, **parameters):
        """Keeps a fault active until it has had this many hits, or until() is true. \\return the number of hits"""
        number = self.camera.start_fault(kind, **parameters)
        enough = until or (lambda: self.camera.hits(number) >= hits)
        self.recording.wait_while_running(lambda: time.sleep(0.05) or enough(), f"enough hits of {kind}", seconds)
        return self.camera.stop_fault(number)

    def inject_for(self, seconds, kind, **parameters):
        """Keeps a fault active for this time."""
        self.camera.start_fault(kind, for_s=seconds, **parameters)
        over = lambda: all(one["kind"] != kind for one in self.camera.request("list = true")["faults"])
        self.recording.wait_while_running(lambda: time.sleep(0.05) or over(), f"the end of {kind}")

    def recover(self, frames=10):
        """Waits for frames handed over from now on. `recovery` is the time until the first of them, in seconds."""
        now_us = time.time() * 1e6
        since = lambda: [line for line in self.recording.frame_index() if line["handed_over_us"] > now_us]
        self.recording.wait_while_running(lambda: len(since()) >= frames, "new frames")
        self.recovery = (since()[0]["handed_over_us"] - now_us) / 1e6

    def finish(self):
        """Stops the recording and asserts that no saved frame is damaged or has a wrong time. \\return the balance"""
        status = self.recording.stop()
        balance = FrameBalance(self.recording, self.camera)
        self.test.assertEqual(status, 1 if balance.dropped_queue_full + balance.dropped_write_error else 0, balance.log)
        self.test.assertEqual((balance.different, balance.stray), (0, 0), balance.report)
        # A frame that the end of a run interrupts is reported, but not fetched.
        self.test.assertGreaterEqual(balance.empty, balance.failed - len(balance.restarts()), balance.log)
        self.test.assertEqual(balance.wrong_times(), [], balance.log)
        self.test.assertEqual(balance.wrong_announcements(), [], balance.log)
        self.test.assertEqual(balance.wrong_counters(), [], balance.log)
        recovery = "" if self.recovery is None else f"; frames again after {self.recovery:.2f} s"
        print(f"{self.test.id()}: {balance.sent} sent, {len(balance.frames)} exported, {balance.missing} lost,"
              f" {balance.reported} reported{recovery}", flush=True)
        return balance
