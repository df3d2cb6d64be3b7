# SPDX-License-Identifier: MIT
"""Look-up tables and gamma, set by Aravis and checked on received images."""

import struct
import unittest

import gvcp
from camera_process import CAMSIM, Camera, arv_control, arv_tool, run
from gvcp import Application, Stream

ADDRESSES = gvcp.feature_addresses(run(CAMSIM, "--print-xml"))
MONO8, MONO12, BAYER_RG8 = 0x01080001, 0x01100005, 0x01080009
WIDTH, HEIGHT = 128, 32


def put(application, name, value):
    assert application.write(ADDRESSES[name], value) == gvcp.SUCCESS, name


def put_float(application, name, value):
    assert application.execute(gvcp.WRITEMEM, struct.pack(">Id", ADDRESSES[name], value))[0] == gvcp.SUCCESS, name


def write_table(application, values):
    for index, value in enumerate(values):
        put(application, "LUTIndex", index)
        put(application, "LUTValue", value)


def prepare(application, stream, pixel_format):
    application.take_control()
    for name, value in (("Width", WIDTH), ("Height", HEIGHT), ("PixelFormat", pixel_format)):
        put(application, name, value)
    put_float(application, "AcquisitionFrameRate", 100.0)
    stream.open(application)


def image(application, stream):
    """\\return the bytes of a frame from a single-frame acquisition"""
    put(application, "AcquisitionMode", 1)
    put(application, "AcquisitionStart", 1)
    _, packets = stream.block()
    return b"".join(packets[number][1] for number in range(1, len(packets) - 1))


class Tone(unittest.TestCase):
    def test_is_off_and_linear_at_power_up(self):
        with Camera():
            lines = arv_control("JAILUTMode", "JAIGamma", "LUTIndex=255", "LUTValue", "LUTSelector")
        self.assertEqual([line for line in lines if "=" in line][:2], ["JAILUTMode = Off", "JAIGamma = Gamma100"])
        self.assertIn("LUTValue = 4080 min:0 max:4095", lines)
        self.assertEqual(lines[-1], "LUTSelector = R")

    def test_is_read_back_with_and_without_a_register_cache(self):
        steps = ["PixelFormat=BayerRG8", "LUTSelector=G", "LUTIndex=7", "LUTValue=1234", "LUTValue", "LUTSelector=B",
                 "LUTValue", "LUTSelector=G", "LUTValue", "LUTIndex=8", "LUTValue", "LUTIndex=7", "LUTValue",
                 "PixelFormat=Mono8", "LUTValue"]
        for cache in ("enable", "disable"):
            with self.subTest(cache=cache), Camera():
                lines = arv_tool(f"--register-cache={cache}", "control", *steps).splitlines()
                read = [line.split()[2] for line in lines if line.startswith("LUTValue = ")]
                self.assertEqual(read[-6:], ["1234", "112", "1234", "128", "1234", "112"])

    def test_of_a_monochrome_image_follows_the_lut(self):
        with Camera(), Application() as application, Stream() as stream:
            prepare(application, stream, MONO8)
            put(application, "JAILUTMode", 1)
            write_table(application, [1600] * 256)
            self.assertEqual(image(application, stream), bytes([100]) * (WIDTH * HEIGHT))

    def test_of_a_bayer_image_follows_a_lut_for_each_colour(self):
        with Camera(), Application() as application, Stream() as stream:
            prepare(application, stream, BAYER_RG8)
            put(application, "JAILUTMode", 1)
            for colour, level in enumerate((1600, 800, 400)):
                put(application, "LUTSelector", colour)
                write_table(application, [level] * 256)
            received = image(application, stream)
        self.assertEqual(received[:WIDTH], bytes([100, 50]) * (WIDTH // 2))
        self.assertEqual(received[WIDTH:2 * WIDTH], bytes([50, 25]) * (WIDTH // 2))

    def test_by_gamma_brightens(self):
        with Camera("--noise", "0"), Application() as application, Stream() as stream:
            prepare(application, stream, MONO12)
            put(application, "OffsetX", 1024)  # beside the moving square
            put(application, "OffsetY", 64)    # edges, of two brightnesses
            linear = image(application, stream)
            put(application, "JAILUTMode", 2)
            put(application, "JAIGamma", 0)
            mapped = image(application, stream)
        before, after = (struct.unpack(f"<{WIDTH * HEIGHT}H", one) for one in (linear, mapped))
        self.assertEqual(set(before), {64 + 200, 64 + 3400})
        self.assertEqual(set(after), {round(4095 * (value / 4095) ** 0.45) for value in set(before)})

    def test_can_be_changed_during_an_acquisition_unless_locked(self):
        steps = ("AcquisitionStart", "LUTIndex=3", "LUTValue=99", "LUTValue", "JAILUTMode=LUT", "JAILUTMode")
        with Camera():
            lines = arv_control(*steps)
        self.assertNotIn("rror", "".join(lines))
        self.assertEqual(lines[-1], "JAILUTMode = LUT")
        with Camera("--lut-locked-while-grabbing"):
            lines = arv_control(*steps, "AcquisitionStop", "LUTValue=99", "LUTValue")
        self.assertEqual(sum("write error" in line for line in lines), 2)
        self.assertIn("JAILUTMode = Off", lines)
        self.assertTrue(lines[-1].startswith("LUTValue = 99 "))

    def test_can_be_missing(self):
        with Camera("--missing-feature", "JAILUTMode", "--missing-entry", "JAIGamma=Gamma045"):
            lines = arv_control("JAILUTMode", "JAIGamma=Gamma045", "JAIGamma=Gamma050", "JAIGamma")
        self.assertIn("not found", lines[0])
        self.assertIn("rror", lines[1])
        self.assertEqual(lines[-1], "JAIGamma = Gamma050")


if __name__ == "__main__":
    unittest.main()
