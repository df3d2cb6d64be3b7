# SPDX-License-Identifier: MIT
"""Finds the frames that a run lost: what the camera exposed, from its truth file, beside what a program received.

A program that waits for a number of frames makes up for each lost frame with a later one, so the number of received frames cannot
reveal a loss. The camera counts its exposures, from the first of a run, and its truth file has the ticks of each.
"""


class FrameAccount:
    """The balance of one run from its own camera, from the first exposure to the last received frame.

    `truth` are the frames of the truth file, `received` the ticks of the received frames. `skipped` is the number of frames at the start
    that the program does not deliver: 1 for the plug-in, which uses the first frame for calibration. Frames that were sent before
    `until_us`, in microseconds of UTC, are expected even if no later frame was received: for runs that end at a given time.

    - `exposed`: expected frames, by the camera's exposure counter
    - `received`: those of them that the program received
    - `lost`: frames that the camera sent completely and the program did not receive
    - `left_out`: frames that the camera exposed and did not send, or not completely
    - `unknown`: received frames that the camera has not exposed, and those received twice
    """

    def __init__(self, truth, received, skipped=0, until_us=None):
        truth = list(truth)
        known = {frame["ticks"] for frame in truth}
        there = set(received)
        self.unknown = len(there - known) + len(received) - len(there)
        last = max((position for position, frame in enumerate(truth) if frame["ticks"] in there or sent_before(frame, until_us)),
                   default=-1)
        run = truth[:last + 1]
        self.exposed = max(0, run[-1]["frame"] + 1 - skipped) if run else 0
        expected = [frame for frame in run if frame["frame"] >= skipped]
        self.received = sum(frame["ticks"] in there for frame in expected)
        self.lost = sum(frame["ticks"] not in there and completely_sent(frame) for frame in expected)
        self.left_out = self.exposed - self.received - self.lost

    @property
    def missing(self):
        """Frames that the program does not have, for any reason."""
        return self.exposed - self.received

    def problems(self, wanted):
        """\\return what is wrong with a run that was to receive `wanted` frames without a loss, one line each"""
        found = []
        if self.received < wanted:
            found.append(f"{self.received} of {wanted} frames received")
        if self.lost:
            found.append(f"{self.lost} of {self.exposed} frames lost")
        if self.left_out:
            found.append(f"{self.left_out} of {self.exposed} frames not sent by the camera")
        if self.unknown:
            found.append(f"{self.unknown} received frames are not the camera's")
        return found


def completely_sent(frame):
    return frame["outcome"] == "sent" and frame["unsent_packets"] == 0


def sent_before(frame, until_us):
    return until_us is not None and completely_sent(frame) and (frame["send_end_ns"] + frame["utc_offset_ns"]) / 1000 < until_us
