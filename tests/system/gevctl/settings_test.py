# SPDX-License-Identifier: MIT
"""gevctl dump, apply and diff."""

import pathlib
import random
import subprocess
import tempfile
import tomllib
import unittest

from camera_process import Camera, FaultyCamera, StandardCamera, arv_control, features
from gevctl import DIFFERS, GEVCTL, INCOMPLETE, LOST, OUTPUT, USAGE, gevctl
from gvcp import Application

# In an order in which a camera with dependent limits accepts each at once.
SETTINGS = """
Width = 640
Height = 480
OffsetX = 1000
OffsetY = 600
PixelFormat = "Mono12"
ExposureTime = 2000.0
AcquisitionFrameRate = 100.0
DeviceUserID = "left"
GevSCPD = 500
GevSCPSPacketSize = 4000
UserSetDefault = "UserSet2"
"""
TABLES = """
[GainSelector.AnalogAll]
Gain = 4.0
[GainSelector.DigitalAll]
Gain = 2.0
[TriggerSelector.FrameStart]
TriggerMode = "On"
TriggerSource = "Line1"
TriggerActivation = "FallingEdge"
"""
EXPECTED = {"Width": "640", "Height": "480", "OffsetX": "1000", "OffsetY": "600", "PixelFormat": "Mono12",
            "ExposureTime": "2000", "AcquisitionFrameRate": "100", "DeviceUserID": "left"}


class Settings(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def file(self, text, name="camera.toml"):
        path = self.directory / name
        path.write_text(text)
        return path

    def dump(self, *arguments):
        return gevctl("dump", "127.0.0.1", *arguments)


class Apply(Settings):
    def test_ends_in_the_same_state_from_each_order(self):
        lines = SETTINGS.strip().splitlines()
        dumps = set()
        for seed in range(4):
            random.Random(seed).shuffle(lines)
            with StandardCamera():
                text = gevctl("apply", "127.0.0.1", self.file("\n".join(lines) + "\n" + TABLES))
                self.assertIn("0 differ\n", text)
                self.assertEqual(features(*EXPECTED), EXPECTED)
                dumps.add(self.dump())
        self.assertEqual(len(dumps), 1)

    def test_ends_in_the_same_state_from_a_random_order_of_60_features(self):
        with StandardCamera():
            gevctl("apply", "127.0.0.1", self.file(SETTINGS + TABLES))
            in_order = self.dump("--all")
        tables = [[]]
        for line in in_order.splitlines():
            if line.startswith("["):
                tables.append([line])
            elif line and not line.startswith("#"):
                tables[-1].append(line)
        tables += [[f"[LUTIndex.{index}]", f"LUTValue = {4095 - index}"] for index in range(0, 256, 16)]  # dump leaves the LUT out
        self.assertGreaterEqual(sum(len(table) for table in tables) - len(tables) + 1, 60)
        for seed in range(3):
            order = random.Random(seed)
            order.shuffle(tables[0])
            selected = [[table[0], *order.sample(table[1:], len(table) - 1)] for table in tables[1:]]
            order.shuffle(selected)
            path = self.file("\n".join(line for table in (tables[0], *selected) for line in table))
            with StandardCamera():
                self.assertIn("0 differ\n", gevctl("apply", "127.0.0.1", path))
                self.assertEqual(self.dump("--all"), in_order)
                self.assertEqual(gevctl("diff", "127.0.0.1", path), "")

    def test_sets_features_under_their_selectors_and_restores_these(self):
        with Camera():
            gevctl("apply", "127.0.0.1", self.file(TABLES))
            lines = arv_control("GainSelector", "GainSelector=DigitalAll", "Gain", "GainSelector=AnalogAll", "Gain")
        self.assertEqual(lines[0], "GainSelector = AnalogAll")
        self.assertRegex(lines[2], "Gain = 2 ")
        self.assertRegex(lines[4], "Gain = 4 ")

    def test_writes_only_what_differs(self):
        path = self.file(SETTINGS + TABLES)
        with StandardCamera():
            first = gevctl("apply", "127.0.0.1", path)
            self.assertIn("Width: 2464 -> 640\n", first)
            second = gevctl("apply", "127.0.0.1", path)
            self.assertEqual(second, "16 of 16 settings are as in the file, 0 of them changed; 0 differ\n")
            # What has its value already needs no control.
            with Application() as other:
                other.take_control()
                self.assertIn("0 of them changed", gevctl("apply", "127.0.0.1", self.file("Width = 640\n")))

    def test_changes_nothing_in_a_dry_run(self):
        with Camera():
            text = gevctl("apply", "127.0.0.1", "--dry-run", self.file(SETTINGS), status=DIFFERS)
            self.assertRegex(text, r"Width: the camera has 2464, .*camera\.toml:2 has 640")
            self.assertEqual(features("Width", "PixelFormat"), {"Width": "2464", "PixelFormat": "Mono8"})

    def test_lists_what_the_camera_has_otherwise_with_the_limit(self):
        with Camera():
            text = gevctl("apply", "127.0.0.1", self.file("Width = 640\nExposureTime = 5.0\n"), status=DIFFERS)
            self.assertIn("1 of 2 settings are as in the file", text)
            self.assertRegex(text, r"ExposureTime: the camera has 1000, .*:2 has 5: ExposureTime cannot be set to 5: it must be"
                                   r" from 10 to ")
            self.assertEqual(features("Width"), {"Width": "640"})

    def test_checks_the_whole_file_before_the_first_write(self):
        with Camera():
            text = gevctl("apply", "127.0.0.1", self.file("Width = 640\nHeightt = 480\nGain = true\n"), status=USAGE)
            self.assertRegex(text, r"camera\.toml:2: the camera does not have the feature \"Heightt\". Similar: Height")
            self.assertRegex(text, r"camera\.toml:3: Gain: true is not a value")
            self.assertEqual(features("Width"), {"Width": "2464"})

    def test_uses_the_camera_that_the_file_names(self):
        with Camera("--serial", "S1"), Camera("--serial", "S2", "--address", "127.0.0.2"):
            gevctl("apply", self.file('camera = "S2"\nWidth = 640\n'))
            self.assertEqual(gevctl("get", "S2", "Width"), "Width=640\n")
            self.assertEqual(gevctl("get", "S1", "Width"), "Width=2464\n")

    def test_reports_an_invalid_file(self):
        self.assertRegex(gevctl("apply", self.file("Width 640\n"), status=USAGE), r"camera\.toml:1:")
        self.assertIn("cannot be read", gevctl("apply", self.directory / "none.toml", status=USAGE))

    def test_leaves_an_account_of_a_power_cut_that_a_second_run_completes(self):
        path = self.file(SETTINGS + TABLES)
        with FaultyCamera("--write-time", "100") as camera:
            arguments = [GEVCTL, "apply", "127.0.0.1", path]
            with subprocess.Popen(arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as apply:
                with Application() as reader:
                    while reader.read(0x0D08) != (0, (500,)):  # GevSCPD: the first nine settings are applied
                        self.assertIsNone(apply.poll(), "the power was to be cut while settings are applied")
                    fault = camera.start_fault("power_cycle")
                out, errors = apply.communicate(timeout=60)
            self.assertEqual(apply.returncode, LOST, out + errors)
            self.assertIn("the camera stopped responding", errors)
            self.assertIn("Width: written, not read back\n", out)
            self.assertIn("Gain[GainSelector=AnalogAll]: not applied\n", out)
            camera.stop_fault(fault)
            self.assertIn("0 differ\n", gevctl("apply", "127.0.0.1", path))
            self.assertEqual(features(*EXPECTED), EXPECTED)


class Dump(Settings):
    def test_can_be_applied_to_another_camera(self):
        with StandardCamera():
            gevctl("apply", "127.0.0.1", self.file(SETTINGS + TABLES))
            dumped = self.dump()
        table = tomllib.loads(dumped)
        self.assertEqual((table["Width"], table["PixelFormat"]), (640, "Mono12"))
        self.assertEqual(table["GainSelector"], {"AnalogAll": {"Gain": 4.0}, "DigitalAll": {"Gain": 2.0}})
        self.assertEqual(table["GevStreamChannelSelector"]["0"]["GevSCPSPacketSize"], 4000)
        for name in ("GevSCPHostPort", "GevSCDA", "WidthMax", "AcquisitionStart", "GevPersistentIPAddress", "DeviceUserID"):
            self.assertNotIn(name, dumped)
        with StandardCamera():
            self.assertIn("0 differ\n", gevctl("apply", "127.0.0.1", self.file(dumped, "dump.toml")))
            self.assertEqual(self.dump(), dumped)

    def test_reports_output_that_is_lost(self):
        with Camera(), open("/dev/full", "w") as full:
            done = subprocess.run([GEVCTL, "dump", "127.0.0.1"], stdout=full, stderr=subprocess.PIPE, text=True, timeout=60)
        self.assertEqual(done.returncode, OUTPUT)
        self.assertIn("the output cannot be written", done.stderr)

    def test_contains_the_identity_of_the_camera_if_all_is_wanted(self):
        with Camera():
            dumped = self.dump("--all")
        self.assertIn("GevPersistentIPAddress", dumped)
        self.assertIn("DeviceUserID", dumped)
        self.assertNotIn("GevSCDA", dumped)

    def test_works_while_another_program_has_control(self):
        with Camera(), Application() as other:
            other.take_control()
            done = subprocess.run([GEVCTL, "dump", "127.0.0.1"], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, INCOMPLETE)
        self.assertIn("Gain[GainSelector=DigitalAll]: camera GO-5100M-PGE", done.stderr)
        self.assertIn("the file is incomplete: ", done.stderr)
        table = tomllib.loads(done.stdout)
        self.assertEqual(table["Width"], 2464)
        self.assertEqual(table["GainSelector"], {"AnalogAll": {"Gain": 1.0}})


class Diff(Settings):
    def test_compares_a_camera_with_a_file(self):
        path = self.file("Width = 640\nHeight = 2056\n")
        with Camera():
            text = gevctl("diff", "127.0.0.1", path, status=DIFFERS)
            self.assertEqual(text, f"Width: the camera has 2464, {path}:1 has 640\n")
            gevctl("set", "Width=640")
            self.assertEqual(gevctl("diff", path), "")

    def test_compares_what_needs_no_control_while_another_program_has_it(self):
        path = self.file("Width = 2464\n[GainSelector.DigitalAll]\nGain = 2.0\n")
        with Camera(), Application() as other:
            other.take_control()
            text = gevctl("diff", "127.0.0.1", path, status=INCOMPLETE)
            self.assertRegex(text, r"^Gain\[GainSelector=DigitalAll\]: .*:3 has 2, not compared: .* is controlled by .*\n$")
            text = gevctl("apply", "--dry-run", "127.0.0.1", path, status=INCOMPLETE)
            self.assertIn("1 of 2 settings are as in the file, 0 of them changed; 1 not compared; 0 differ\n", text)
            path.write_text(path.read_text().replace("2464", "640"))
            self.assertIn("Width: the camera has 2464", gevctl("diff", "127.0.0.1", path, status=DIFFERS))

    def test_reads_pipes_and_the_standard_input(self):
        one = self.file("Width = 640\n")
        command = f"{GEVCTL} diff <(echo Width = 640) {one} && echo Width = 640 | {GEVCTL} diff - {one}"
        subprocess.run(["bash", "-c", f"set -o pipefail; {command}"], check=True, timeout=60)
        with Camera():
            done = subprocess.run([GEVCTL, "apply", "127.0.0.1", "-"], input="Width = 640\n", capture_output=True, text=True,
                                  timeout=60)
            self.assertEqual((done.returncode, features("Width")), (0, {"Width": "640"}))

    def test_reports_a_mistyped_file_name(self):
        one = self.file("Width = 640\n")
        for name in ("mistyped.toml", f"{self.directory}/mistyped"):
            self.assertIn(f"{name} cannot be read: No such file", gevctl("diff", name, one, status=USAGE))

    def test_compares_two_files(self):
        one, other = self.file("Width = 640\nA = 1\n", "one.toml"), self.file("Width = 320\nA = 1.0\nB = 2\n", "other.toml")
        self.assertEqual(gevctl("diff", one, other, status=DIFFERS),
                         f"Width: {one} has 640, {other} has 320\nB: {one} has no value, {other} has 2\n")
        self.assertEqual(gevctl("diff", one, one), "")


if __name__ == "__main__":
    unittest.main()
