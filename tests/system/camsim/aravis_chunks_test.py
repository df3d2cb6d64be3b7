# SPDX-License-Identifier: MIT
"""Aravis finds the chunks of a block, and their values match the truth file."""

import json
import struct
import unittest

from camera_process import ARAVIS_CHUNKS, Camera, arv_control, run

ALL = "GainAll,ExposureTime,Timestamp,ExposureStartCounter"
IMAGE, CHUNK_DATA, EXTENDED_CHUNK_DATA = 1, 4, 5  # Aravis reports 0x4001 as IMAGE with chunks


def grab(chunks, frames):
    return [json.loads(line) for line in run(ARAVIS_CHUNKS, chunks, str(frames)).splitlines()]


class AravisChunks(unittest.TestCase):
    def check(self, *settings, payload="standard", payload_type=CHUNK_DATA):
        with Camera("--chunk-payload", payload) as camera:
            arv_control("Width=320", "Height=200", "Gain=2.5", "ExposureTime=123.5", *settings)
            buffers = grab(ALL, 10)
        truth = {frame["block_id"]: frame for frame in camera.truth_frames}
        for buffer in buffers:
            frame = truth[buffer["block_id"]]
            self.assertEqual((buffer["status"], buffer["payload_type"], buffer["has_chunks"]), (0, payload_type, True))
            self.assertEqual(buffer["bytes"], frame["payload_bytes"])
            raw = [struct.pack(layout, value).hex() for layout, value in
                   (("<f", 2.5), ("<f", 123.5), ("<Q", frame["ticks"]), ("<I", frame["frame"]))]
            self.assertEqual(buffer["raw"], raw)
            self.assertEqual(buffer["parsed"], [2.5, 123.5, frame["ticks"], frame["frame"]])

    def test_reads_every_chunk_of_every_block(self):
        self.check()

    def test_reads_them_with_extended_ids(self):
        self.check("GevGVSPExtendedIDMode=On", "PixelFormat=Mono12Packed")

    def test_reads_extended_chunk_data(self):
        self.check(payload="extended", payload_type=IMAGE)

    def test_reads_extended_chunk_data_once_it_is_enabled(self):
        self.check("GevSCCFGExtendedChunkData=true", payload_type=IMAGE)

    def test_receives_deprecated_chunk_data(self):
        """Aravis 0.8.26 does not look for chunks in it, 0.8.34 does."""
        with Camera("--chunk-payload", "deprecated") as camera:
            arv_control("Width=320", "Height=200", "Gain=2.5", "ExposureTime=123.5")
            buffers = grab(ALL, 3)
        truth = {frame["block_id"]: frame for frame in camera.truth_frames}
        for buffer in buffers:
            self.assertEqual((buffer["status"], buffer["payload_type"], buffer["bytes"]), (0, EXTENDED_CHUNK_DATA, 64060))
            if buffer["has_chunks"]:
                frame = truth[buffer["block_id"]]
                self.assertEqual(buffer["parsed"], [2.5, 123.5, frame["ticks"], frame["frame"]])

    def test_gets_a_plain_image_when_no_chunk_is_enabled(self):
        with Camera() as camera:
            arv_control("Width=320", "Height=200", "ChunkModeActive=true", "ChunkSelector=Timestamp")
            self.assertEqual(arv_control("ChunkEnable")[0], "ChunkEnable = false")
            buffers = grab("", 3)
        for buffer in buffers:
            self.assertEqual((buffer["payload_type"], buffer["has_chunks"], buffer["bytes"]), (IMAGE, False, 64000))
        self.assertNotIn("chunks", camera.truth_frames[0])


if __name__ == "__main__":
    unittest.main()
