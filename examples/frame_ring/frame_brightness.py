# SPDX-License-Identifier: MIT
"""Prints number, timestamp and mean value of each frame of a running recording: frame_brightness.py SOCKET [FRAMES]

SOCKET is `ring.socket` of the recording. Needs the Debian package python3-mediagrabber, or PYTHONPATH=python in a clone.
"""

import sys

from mediagrabber import FrameRing


def main(path: str, frames: int = 0) -> None:
    read = 0
    with FrameRing(path) as ring:
        for frame in ring:
            mean = float(frame.pixels.mean())
            if ring.is_there(frame):
                print(frame.number, frame.timestamp_us, f"{mean:.3f}", flush=True)
                read += 1
            if read == frames and frames != 0:
                break
        print(read, "frames,", ring.overtaken, "overtaken", file=sys.stderr)


if __name__ == "__main__":
    main(sys.argv[1], *map(int, sys.argv[2:]))
