# SPDX-License-Identifier: MIT
"""Recordings that a test writes by itself, line by line."""

import json
import struct


def line(number, **values):
    """A line of the frame index, of a frame of 3 x 2 pixels, without its line end."""
    return json.dumps({
        "file": None, "frame": number, "timestamp_us": 1_000_000 + 10_000 * number, "handed_over_us": 1_002_000 + 10_000 * number,
        "announced_us": None, "ticks": 500 + number, "time_us": 999_000 + 10_000 * number,
        "time_uncertainty_us": 12, "time_source": "arrivals", "clock_drift_ppm": None, "gain_db": 6.0, "exposure_us": 250.5,
        "counter": 7 + number, "width": 3, "height": 2, "stride": 3, "pixel_format": "Mono8", "significant_bits": 8,
        "temperature_c": None, **values})


def raw_place(number, size):
    return {"file": "frames.raw", "offset": number * size, "bytes": size}


def write_index(directory, lines, end="\n"):
    directory.mkdir(parents=True, exist_ok=True)
    (directory / "frames.jsonl").write_text("\n".join(lines) + end)


def write_raw(directory, frames, first=1, pixel_format="Mono8", width=3, height=2):
    """A raw recording of frames that are given as bytes."""
    bits = 8 if pixel_format.endswith("8") else 12
    write_index(directory, [line(first + i, **raw_place(i, len(data)), pixel_format=pixel_format, significant_bits=bits, width=width,
                                 height=height) for i, data in enumerate(frames)])
    (directory / "frames.raw").write_bytes(b"".join(frames))


def mono8(value):
    """A frame of 3 x 2 pixels that counts from a value."""
    return bytes(range(value, value + 6))


def bigtiff(images, width=3, height=2):
    """The bytes of a BigTIFF file with a page for each image, and the places of the pointers to the pages."""
    data = bytearray(struct.pack("<2sHHHQ", b"II", 43, 8, 0, 0))
    pointers = [8]
    for image in images:
        strip = len(data)
        data += image + bytes(-len(image) % 8)
        struct.pack_into("<Q", data, pointers[-1], len(data))
        tags = ((256, 4, width), (257, 4, height), (258, 3, 8), (259, 3, 1), (273, 16, strip), (277, 3, 1), (279, 16, len(image)))
        data += struct.pack("<Q", len(tags)) + b"".join(struct.pack("<HHQQ", tag, kind, 1, value) for tag, kind, value in tags)
        pointers.append(len(data))
        data += bytes(8)
    return data, pointers
