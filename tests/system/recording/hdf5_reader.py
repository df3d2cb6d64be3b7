# SPDX-License-Identifier: MIT
"""Reads an HDF5 recording with h5py. Runs by Debian's interpreter, which has h5py.

    hdf5_reader.py count FILE            prints the number of frames
    hdf5_reader.py compare DIRECTORY     compares pixels and fields with the frame index, and prints the number of frames
    hdf5_reader.py follow FILE FRAMES    opens the growing file once, and prints each number of frames that it sees, until FRAMES
"""

import json
import pathlib
import sys
import time

import h5py
import numpy

DEADLINE_SECONDS = 60
WITHOUT_FIELD = {"file", "page", "offset", "bytes"}  # the place of a frame


def data_of(file):
    """The default plot of a NeXus file."""
    entry = file[file.attrs["default"]]
    data = entry[entry.attrs["default"]]
    return data, data[data.attrs["signal"]]


def check_frame(line, data, frames, raw):
    page = line["page"]
    raw.seek(line["offset"])
    assert frames[page].tobytes() == raw.read(line["bytes"]), line
    for name, value in line.items():
        if name in WITHOUT_FIELD:
            continue
        stored = data[name][page]
        assert "units" in data[name].attrs, name
        if value is None:
            assert numpy.isnan(stored) if stored.dtype.kind == "f" else stored == data[name].attrs["_FillValue"], (name, line)
        elif isinstance(value, str):
            assert stored.decode() == value, (name, line)
        elif stored.dtype.kind == "f":
            assert stored == numpy.float32(value), (name, line)
        else:
            assert stored == value, (name, line)


def compare(directory):
    index = [json.loads(line) for line in (directory / "frames.jsonl").read_text().splitlines()]
    with h5py.File(directory / "frames.h5") as file, open(directory / "frames.h5", "rb") as raw:
        data, frames = data_of(file)
        for line in index:
            check_frame(line, data, frames, raw)
        return len(index)


def follow(path, count):
    """The last frame is read whenever it is a new one: it is complete, and its fields are there."""
    seen = 0
    deadline = time.monotonic() + DEADLINE_SECONDS
    with h5py.File(path, swmr=True) as file:
        data, frames = data_of(file)
        while seen < count:
            assert time.monotonic() < deadline, f"{seen} frames after {DEADLINE_SECONDS} s"
            frames.refresh()
            if len(frames) == seen:
                time.sleep(0.005)
                continue
            seen = len(frames)
            data["frame"].refresh()
            assert data["frame"][seen - 1] >= seen and frames[seen - 1].any()
            print(seen, flush=True)


def main():
    action, path, *more = sys.argv[1:]
    if action == "count":
        with h5py.File(path) as file:
            print(len(data_of(file)[1]))
    elif action == "compare":
        print(compare(pathlib.Path(path)))
    else:
        follow(path, int(more[0]))


if __name__ == "__main__":
    main()
