# SPDX-License-Identifier: MIT
"""Aravis finds camsim and uses its features."""

import re
import unittest

from camera_process import Camera, StandardCamera, arv_control, arv_tool


def value_of(line):
    return re.match(r"\S+ = (\S+)", line).group(1)


class AravisFeatures(unittest.TestCase):
    def test_finds_the_camera_by_broadcast(self):
        with Camera("--model", "GO-2401C-PGE", "--serial", "A1234567") as camera:
            self.assertEqual(camera.ready_line, "camsim: ready, GO-2401C-PGE A1234567 on 127.0.0.1:3956\n")
            self.assertEqual(arv_tool().strip(), "JAI Corporation-GO-2401C-PGE-A1234567 (127.0.0.1)")

    def test_finds_two_cameras_side_by_side(self):
        with Camera("--serial", "FIRST"), Camera("--serial", "SECOND", "--address", "127.0.0.2"):
            found = sorted(arv_tool().splitlines())
            self.assertEqual(found, ["JAI Corporation-GO-5100M-PGE-FIRST (127.0.0.1)",
                                     "JAI Corporation-GO-5100M-PGE-SECOND (127.0.0.2)"])

    def test_reads_every_feature(self):
        with Camera("--user-name", "left eye"):
            listing = arv_tool("values")
        for text in ("[RO] 'DeviceModelName' = 'GO-5100M-PGE'", "[RW] 'DeviceUserID' = 'left eye'",
                     "[RO] 'WidthMax' = 2464 px", "[RW] 'PixelFormat' = 'Mono8'", "[RW] 'Gain' = 1",
                     "[RO] 'PayloadSize' = 5065984 B", "[RO] 'GevTimestampTickFrequency' = 1000000000 Hz",
                     "[RW] 'GevSCCFGUnconditionalStreaming' = false", "[RO] 'GevStreamChannelCount' = 1",
                     "[WO] 'AcquisitionStart'"):
            self.assertIn(text, listing)
        self.assertNotIn("rror", listing)

    def test_writes_features_and_sees_what_depends_on_them(self):
        with Camera():
            lines = arv_control("Width=1280", "Width", "Height=1024", "PixelFormat=Mono12Packed", "PixelFormat",
                                "PayloadSize", "ExposureTime=123.5", "ExposureTime", "AcquisitionFrameRate=450",
                                "AcquisitionFrameRate", "DeviceUserID=abc", "DeviceUserID")
        values = [value_of(line) for line in lines]
        self.assertEqual(values[1], "1280")
        self.assertEqual(values[4:6], ["Mono12Packed", str(1280 * 1024 * 3 // 2)])
        self.assertEqual(values[7], "123.5")
        self.assertEqual(values[9], "450")
        self.assertEqual(values[11], "abc")

    def test_knows_the_limits(self):
        with Camera("--sensor", "1920x1200"):
            lines = arv_control("Width", "OffsetX", "Height", "OffsetY", "Gain", "ExposureTime", "GevHeartbeatTimeout")
        self.assertEqual(lines[:4], ["Width = 1920 px min:16 max:1920 inc:8", "OffsetX = 0 px min:0 max:1904 inc:8",
                                     "Height = 1200 px min:16 max:1200 inc:2", "OffsetY = 0 px min:0 max:1184 inc:2"])
        self.assertEqual(lines[4], "Gain = 1 min:1 max:16")
        self.assertEqual(lines[5], "ExposureTime = 1000 us min:10 max:1e+06")
        self.assertIn("min:500 ", lines[6])

    def test_knows_limits_that_depend_on_each_other(self):
        with StandardCamera("--sensor", "1920x1200"):
            lines = arv_control("OffsetX", "Width=1280", "OffsetX=600", "OffsetX", "Width", "OffsetX=648",
                                "ExposureTime", "AcquisitionFrameRate=100", "ExposureTime=9981", "ExposureTime",
                                "AcquisitionFrameRate", "Height=600", "AcquisitionFrameRate")
        self.assertIn("max:0 ", lines[0])
        self.assertIn("max:640 ", lines[3])
        self.assertIn("max:1320 ", lines[4])
        self.assertIn("write error", lines[5])
        self.assertEqual(lines[6], "ExposureTime = 1000 us min:10 max:49980")
        self.assertIn("write error", lines[8])
        self.assertEqual(lines[9], "ExposureTime = 1000 us min:10 max:9980")
        maxima = [float(lines[index].split("max:")[1]) for index in (10, 12)]
        for maximum, height in zip(maxima, (1200, 600)):
            self.assertAlmostEqual(maximum, 1e6 / (1.75 * height + 40), places=2)

    def test_selects_a_gain_by_its_selector(self):
        with Camera():
            lines = arv_control("GainSelector=DigitalAll", "Gain=2.5", "GainSelector=AnalogAll", "Gain=8", "Gain",
                                "GainSelector=DigitalAll", "Gain")
        self.assertEqual(lines[4], "Gain = 8 min:1 max:16")
        self.assertEqual(lines[6], "Gain = 2.5 min:1 max:4")

    def test_gets_an_error_for_unsupported_values(self):
        with Camera():
            lines = arv_control("Width=17", "Gain=16.5", "ExposureTime=9", "AcquisitionFrameRate=100000",
                                "PixelFormat=RGB8", "Width", "Gain", "PixelFormat")
        for line in lines[:5]:
            self.assertIn("error", line)
        self.assertEqual([value_of(line) for line in lines[5:]], ["2464", "1", "Mono8"])

    def test_gets_an_error_for_a_region_outside_the_sensor_at_acquisition_start(self):
        with Camera():
            lines = arv_control("OffsetX=2448", "AcquisitionStart", "OffsetX=0", "AcquisitionStart", "AcquisitionStop")
        self.assertIn("error", lines[1])
        self.assertNotIn("error", "".join(lines[2:]))

    def test_is_refused_a_new_width_while_the_camera_acquires(self):
        with Camera():
            lines = arv_control("AcquisitionStart", "Width=1280", "AcquisitionStop", "Width=1280", "Width")
        self.assertIn("error", lines[1])
        self.assertEqual(value_of(lines[4]), "1280")

    def test_reads_the_timestamp_that_was_latched_last(self):
        with Camera():
            lines = arv_control("GevTimestampValue", "GevTimestampControlLatch", "GevTimestampValue", "GevTimestampValue",
                                "GevTimestampControlLatch", "GevTimestampValue")
        ticks = [int(value_of(lines[index])) for index in (0, 2, 3, 5)]
        self.assertEqual(ticks[0], 0)
        self.assertGreater(ticks[1], 0)
        self.assertEqual(ticks[2], ticks[1])
        self.assertGreater(ticks[3], ticks[1])

    def test_reads_a_timestamp_that_runs_and_a_temperature(self):
        with Camera("--tick-frequency", "125000000", "--timestamp", "running"):
            lines = arv_control("GevTimestampTickFrequency", "GevTimestampValue", "GevTimestampValue",
                                "DeviceTemperature", "GevTimestampControlReset", "GevTimestampValue")
        ticks = [int(value_of(lines[index])) for index in (1, 2, 5)]
        self.assertEqual(value_of(lines[0]), "125000000")
        self.assertGreater(ticks[1], ticks[0])
        self.assertLess(ticks[2], ticks[1])
        self.assertTrue(30 < float(value_of(lines[3])) < 50)

    def test_never_finds_its_register_cache_out_of_date(self):
        changes = ["Width=640", "Height=480", "PixelFormat=Mono12", "GainSelector=DigitalAll", "Gain=2",
                   "GainSelector=AnalogAll", "GevSCPSPacketSize=8900", "GevSCPSDoNotFragment=false",
                   "GevGVSPExtendedIDMode=On"]
        looks = ["PayloadSize", "Gain", "AcquisitionFrameRate", "GevSCPSPacketSize", "GevTimestampValue",
                 "DeviceTemperature", "GevSCPSDoNotFragment", "GevGVSPExtendedIDMode"]
        with Camera():
            everything = [step for change in changes for step in (change, *looks)]
            cached = arv_tool("--register-cache=enable", "control", *looks, *everything)
        with Camera():
            direct = arv_tool("--register-cache=disable", "control", *looks, *everything)

        def comparable(text):
            moving = ("GevTimestampValue", "DeviceTemperature")
            return [line for line in text.splitlines() if not line.startswith(moving)]
        self.assertEqual(comparable(cached), comparable(direct))


if __name__ == "__main__":
    unittest.main()
