# SPDX-License-Identifier: MIT
"""GenICam XMLs of hostile cameras: no crash, no endless wait, no control character on the terminal."""

import subprocess
import time
import unittest

from gevctl import DIFFERS, GEVCTL, NO_CAMERA, REFUSED, USAGE, gevctl, gevctl_json
from hostile_camera import OPERAND, WIDTH, XML, HostileCamera

CATEGORY = '<Category Name="{}"><pFeature>{}</pFeature></Category>'
TICK_FREQUENCY = 0x093C
MAX_SECONDS = 20  # what the camera sends costs seconds at most


def hostile_camera(nodes, *root_features):
    """A camera with `nodes` in its XML, and features in its root category besides Width"""
    listed = "".join(f"<pFeature>{name}</pFeature>" for name in ("Width", *root_features))
    return HostileCamera(xml=XML.replace("<pFeature>Width</pFeature>", listed).format(nodes=nodes).encode())


class Hostile(unittest.TestCase):
    def setUp(self):
        self.begin = time.monotonic()

    def tearDown(self):
        self.assertLess(time.monotonic() - self.begin, MAX_SECONDS)

    def test_categories_that_are_nested_without_end(self):
        nodes = "".join(CATEGORY.format(f"C{i}", f"C{(i + 1) % 5000}") for i in range(5000))
        with hostile_camera(nodes, "C0"):
            self.assertEqual(gevctl("features", "127.0.0.1", "--names"), "Width\n")

    def test_conditions_with_countless_paths(self):
        knives = "".join(f'<IntSwissKnife Name="K{i}"><pVariable Name="A">K{i + 1}</pVariable>'
                         f'<pVariable Name="B">K{i + 1}</pVariable><Formula>0</Formula></IntSwissKnife>' for i in range(18))
        nodes = knives + '<IntSwissKnife Name="K18"><Formula>0</Formula></IntSwissKnife>' \
            + '<Integer Name="Odd"><pIsAvailable>K0</pIsAvailable><Value>1</Value></Integer>'
        with hostile_camera(nodes):
            self.assertIn("not available now", gevctl("features", "127.0.0.1", "Odd"))

    def test_selectors_with_countless_combinations(self):
        selectors = "".join(f'<Integer Name="S{i}"><Value>0</Value><Min>0</Min><Max>50</Max>'
                            f'<pSelected>Width</pSelected></Integer>' for i in range(12))
        with hostile_camera(selectors, *(f"S{i}" for i in range(12))):
            text = gevctl("dump", "127.0.0.1")
        self.assertIn("Missing: Width: its selectors have more than 256 combinations", text)

    def test_names_and_tooltips_with_control_characters(self):
        nodes = '<Integer Name="W&#27;[2J"><ToolTip>a&#27;]0;b&#7;\x9b31m</ToolTip><Value>1</Value></Integer>'
        with hostile_camera(nodes, "W&#27;[2J"):
            for arguments in (("features",), ("features", "--json"), ("xml",)):
                text = gevctl(*arguments, "127.0.0.1")
                self.assertFalse([one for one in text if ord(one) < 32 and one != "\n" or 127 <= ord(one) < 160], arguments)

    def test_a_text_that_is_not_a_text(self):
        with HostileCamera() as camera:
            camera.put(0x10010, bytes([0xFF, 0x1B, 0x22, 0x0A]).ljust(16, b"\0"))
            self.assertEqual(gevctl("get", "127.0.0.1", "DeviceSerialNumber"), 'DeviceSerialNumber=??"?\n')
            gevctl_json("features", "127.0.0.1", "DeviceSerialNumber")

    def test_features_of_another_type_or_access_do_not_suit(self):
        nodes = '<Integer Name="ExposureTime"><Value>1</Value></Integer><Integer Name="Height"><pValue>Operand</pValue></Integer>'
        nodes += '<Enumeration Name="PixelFormat"><EnumEntry Name="RGB8"><Value>640</Value></EnumEntry><pValue>WidthReg</pValue>' \
            + '</Enumeration>'
        with hostile_camera(nodes, "ExposureTime", "Height", "PixelFormat"):
            text = gevctl("suits", "127.0.0.1", status=DIFFERS)
        self.assertRegex(text, "(?m)^ExposureTime +required +of type integer instead of float +")
        self.assertRegex(text, "(?m)^PixelFormat +required +none of Mono8, Mono12Packed, Mono12, BayerRG8 +")
        self.assertRegex(text, "(?m)^Height +required +read-only +")
        self.assertRegex(text, "(?m)^Width +required +yes +")

    def test_a_feature_that_can_only_be_written_is_applied(self):
        nodes = '<Integer Name="Secret"><ImposedAccessMode>WO</ImposedAccessMode><pValue>WidthReg</pValue></Integer>'
        with hostile_camera(nodes, "Secret") as camera:
            done = subprocess.run([GEVCTL, "apply", "127.0.0.1", "-"], input="Secret = 5\n", capture_output=True, text=True,
                                  timeout=60)
            self.assertEqual(camera.get(WIDTH, 4), (5).to_bytes(4, "big"))
        self.assertEqual((done.returncode, done.stdout.splitlines()), (0, [
            "Secret: 5 written, cannot be read back",
            "0 of 1 settings are as in the file, 0 of them changed; 1 written that cannot be read back; 0 differ"]))

    def test_a_user_set_selector_that_is_an_integer(self):
        nodes = '<Integer Name="UserSetSelector"><pValue>WidthReg</pValue></Integer>' \
            + '<Command Name="UserSetLoad"><pValue>WidthReg</pValue><CommandValue>1</CommandValue></Command>'
        with hostile_camera(nodes, "UserSetSelector"):
            self.assertEqual(gevctl("user-set", "127.0.0.1", "load", "2"), "user set 2 loaded\n")
            self.assertIn("is not an integer", gevctl("user-set", "127.0.0.1", "load", "Two", status=USAGE))

    def test_a_feature_that_is_available_at_times(self):
        nodes = '<Integer Name="Odd"><pIsAvailable>Operand</pIsAvailable><Value>7</Value></Integer>'
        with hostile_camera(nodes, "Odd") as camera:
            command = [GEVCTL, "watch", "127.0.0.1", "Odd", "--interval", "0.02"]
            with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as watch:
                try:
                    self.assertIn("Odd cannot be read: ", watch.stdout.readline())
                    camera.put(0x10040, (1).to_bytes(8, "big"))
                    self.assertIn("Odd=7", watch.stdout.readline())
                finally:
                    watch.terminate()

    def test_a_timestamp_in_ns_beside_a_tick_frequency(self):
        def run_clock(*_):
            camera.put(OPERAND, time.monotonic_ns().to_bytes(8, "big"))

        with hostile_camera('<Integer Name="Timestamp"><pValue>Operand</pValue></Integer>', "Timestamp") as camera:
            camera.put(TICK_FREQUENCY, (1000).to_bytes(8, "big"))
            camera.on_command = run_clock
            found = gevctl_json("clock", "127.0.0.1", "--seconds", "0.3")
        self.assertEqual((found["tick_frequency_hz"], found["latched"]), (1_000_000_000, False))
        self.assertLess(abs(found["drift_ppb"]), 500_000_000)

    def test_an_xml_that_is_not_xml(self):
        with HostileCamera(xml=b"\0\xff<" * 100):
            self.assertIn("GenICam XML", gevctl("get", "127.0.0.1", "Width", status=REFUSED))

    def test_another_camera_at_the_address_is_noticed(self):
        with HostileCamera() as camera:
            found, = gevctl_json("list")
            camera.put(0x0008, bytes.fromhex("0000001100119999"))
            self.assertIn("has taken over address", gevctl("get", found["serial"], "Width", status=NO_CAMERA))


if __name__ == "__main__":
    unittest.main()
