"""A recording from a camera that something goes wrong with, and the account of what was sent, recorded and reported lost."""

import json
import re
import time

from camera_process import FaultyCamera
from recorder import Recording
from recording_process import DEADLINE_SECONDS, wait_for

CONFIGURATION = """
[image]
width = 640
height = 480
format = "mono8"
[transport]
packet_size = 1400
[timing]
frame_rate = {rate}
clock_correction = 1  # stamped by the camera's clock
[memory]
export_buffers = {export_buffers}
[run]
retry_interval_s = 0.2
give_up_after = "never"
[log]
level = "info"
"""
RATE = 50.0  # frames/s
EXPORT_BUFFERS = 200  # however slow the disk
PACKETS = 227  # of such a frame: a leader, 225 packets of 1,364 bytes or less, a trailer

FIGURES = re.compile(r"(?P<identical>\d+) frames identical, (?P<different>\d+) different, (?P<missing>\d+) missing, "
                     r"(?P<stray>\d+) stray files; (?P<skipped>\d+) left out by the camera, "
                     r"(?P<falsified>\d+) falsified on the way")
LOST = re.compile(r"lost: (?P<overrun>\d+) overrun, (?P<not_written>\d+) not written; "
                  r"(?P<empty>\d+) fetches without a frame")
READJUSTMENTS = ("readjusting", "init TS trigger", "bTS wrap is detected")


def configuration(rate=RATE, export_buffers=EXPORT_BUFFERS):
    return CONFIGURATION.format(rate=rate, export_buffers=export_buffers)


def told(log, what):
    """The sum of the numbers that stand before these words."""
    return sum(map(int, re.findall(rf"(\d+) {what}", log)))


class Account:
    """What came of a recording: of the frames sent between the first and the last one recorded, where each is."""

    def __init__(self, recording, camera):
        self.journal = recording.journal()
        last = self.journal[-1]["ticks"]
        wait_for(lambda: any(frame["ticks"] == last for frame in camera.frames_so_far()), "the truth of the last frame")
        self.camera = camera
        self.truth = camera.frames_so_far()
        self.log = recording.log
        self.words = recording.compare(camera.truth_path)[1]
        for name, figure in FIGURES.search(self.words).groupdict().items():
            setattr(self, name, int(figure))
        for name, figure in LOST.search(self.log).groupdict().items():
            setattr(self, name, int(figure))
        self.failed = told(self.log, "frames incomplete") + told(self.log, "frames larger than their buffers")
        self.nothing_came = told(self.log, "frames of which nothing came")
        self.without_buffer = told(self.log, "frames without a buffer for them")
        self.sent = len(self.journal) + self.missing

    @property
    def reported(self):
        """Frames that somebody has reported lost. Those that failed to come whole are fetches without a frame, too; others
        of these waited in vain."""
        return self.overrun + self.not_written + self.failed + self.nothing_came + self.without_buffer

    def sent_afterwards(self):
        """Frames that were sent after the last one recorded: what is lost of them is reported, and missed by nobody."""
        frames = [frame for frame in self.camera.frames_so_far() if frame["fate"] == "sent"]
        last = next(i for i, frame in enumerate(frames) if frame["ticks"] == self.journal[-1]["ticks"])
        return len(frames) - last - 1

    def check(self, test):
        """Every frame that is missing was reported lost, and no other but such as were sent after the last one recorded."""
        test.assertLessEqual(self.missing, self.reported, self.words + self.log)
        if self.reported > self.missing:
            wait_for(lambda: self.reported <= self.missing + self.sent_afterwards(),
                     f"{self.reported} frames were reported lost:\n{self.words}{self.log}")

    def places(self):
        """For each recorded frame its place in the truth."""
        place, found = -1, []
        for line in self.journal:
            place = next(i for i in range(place + 1, len(self.truth)) if self.truth[i]["ticks"] == line["ticks"])
            found.append(place)
        return found

    def wrong_times(self):
        """Frames that followed the one before and were not stamped when the camera took them, unless the log tells of a
        readjustment for each. One that follows a lost frame has the time that was announced for the lost one."""
        places, wrong, offset = self.places(), [], None
        for before, place, line in zip(places, places[1:], self.journal[1:]):
            if place != before + 1:
                continue
            now = line["timestamp_us"] - line["ticks"] / 1000
            if offset is not None and abs(now - offset) > 3:
                wrong.append(line)
            offset = now
        readjusted = sum(self.log.count(word) for word in READJUSTMENTS)
        return wrong if len(wrong) > 2 * readjusted else []

    def wrong_counters(self):
        """Frames whose exposure start counter is not the camera's."""
        return [line for place, line in zip(self.places(), self.journal) if line["counter"] != self.truth[place]["frame"]]

    def wrong_announcements(self):
        """Frames that came with another time than the one announced, but for the first of a run and readjusted ones."""
        wrong = [line for line in self.journal if line["announced_us"] not in (line["timestamp_us"], None)]
        return wrong if len(wrong) > self.log.count("init TS trigger") else []


class Grabbing:
    """A recording from a camera; the fault is put into force once frames arrive."""

    def __init__(self, test, more="", rate=RATE, export_buffers=EXPORT_BUFFERS, camera=(), output=None, troubles=None):
        self.test = test
        self.camera = FaultyCamera(*camera)
        self.recording = Recording(configuration(rate, export_buffers) + more, output=output,
                                   environment=troubles.environment if troubles else None)
        self.recovery = None

    def __enter__(self):
        self.recording.__enter__()
        self.camera.__enter__()
        self.recording.wait_for_frames(10)
        return self

    def __exit__(self, *exception):
        self.recording.__exit__(*exception)
        self.camera.__exit__(*exception)

    def frames(self):
        return len(self.recording.journal())

    def wait_for_more(self, count):
        self.recording.wait_for_frames(self.frames() + count)

    def exposures(self):
        """How many exposures the truth tells of so far, since the camera got power."""
        with self.camera.truth_path.open("rb") as truth:
            truth.seek(max(0, self.camera.truth_path.stat().st_size - 4096))
            return json.loads(truth.read().split(b"\n")[-2])["frame"] + 1

    def wait_for_exposures(self, count):
        """Until the camera has taken so many more."""
        end = self.exposures() + count
        self.recording.wait_while_running(lambda: time.sleep(0.05) or self.exposures() >= end, f"{count} exposures")

    def strike(self, kind, hits=None, until=None, seconds=DEADLINE_SECONDS, **parameters):
        """Has a fault in force until it has struck so often, or until() holds. \\return how often it struck"""
        number = self.camera.start_fault(kind, **parameters)
        enough = until or (lambda: self.camera.hits(number) >= hits)
        self.recording.wait_while_running(lambda: time.sleep(0.05) or enough(), f"{kind} had its way", seconds)
        return self.camera.stop_fault(number)

    def strike_for(self, seconds, kind, **parameters):
        """Has a fault in force for so long."""
        self.camera.start_fault(kind, for_s=seconds, **parameters)
        over = lambda: all(one["kind"] != kind for one in self.camera.ask("list = true")["faults"])
        self.recording.wait_while_running(lambda: time.sleep(0.05) or over(), f"{kind} was over")

    def recover(self, frames=10):
        """Waits for frames that were handed over from now on, and takes the time until the first."""
        now_us = time.time() * 1e6
        since = lambda: [line for line in self.recording.journal() if line["handed_over_us"] > now_us]
        self.recording.wait_while_running(lambda: len(since()) >= frames, "frames came again")
        self.recovery = (since()[0]["handed_over_us"] - now_us) / 1e6

    def finish(self):
        """Ends the recording in good order. \\return the account; nothing in it is torn or has a wrong time"""
        status = self.recording.stop()
        account = Account(self.recording, self.camera)
        self.test.assertEqual(status, 1 if account.overrun + account.not_written else 0, account.log)
        self.test.assertEqual((account.different, account.stray), (0, 0), account.words)
        self.test.assertGreaterEqual(account.empty, account.failed, account.log)
        self.test.assertEqual(account.wrong_times(), [], account.log)
        self.test.assertEqual(account.wrong_announcements(), [], account.log)
        self.test.assertEqual(account.wrong_counters(), [], account.log)
        recovery = "" if self.recovery is None else f"; frames again after {self.recovery:.2f} s"
        print(f"{self.test.id()}: {account.sent} sent, {len(account.journal)} exported, {account.missing} lost,"
              f" {account.reported} reported{recovery}", flush=True)
        return account
