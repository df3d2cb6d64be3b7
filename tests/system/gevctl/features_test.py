# SPDX-License-Identifier: MIT
"""gevctl get, set, execute, features, watch, xml, register, user-set and suits, against camsim and read back with Aravis."""

import json
import pathlib
import re
import subprocess
import tempfile
import unittest

from camera_process import CAMSIM, Camera, StandardCamera, arv_control, feature, features, run
from gevctl import DIFFERS, GEVCTL, NO_CAMERA, REFUSED, USAGE, get, gevctl, gevctl_json
from gvcp import Application, feature_addresses


class Get(unittest.TestCase):
    def test_reads_what_aravis_has_written(self):
        with Camera():
            arv_control("Width=640", "PixelFormat=Mono12", "ExposureTime=123.5", "DeviceUserID=eye")
            self.assertEqual(get("Width", "PixelFormat", "ExposureTime", "DeviceUserID"), ["640", "Mono12", "123.5", "eye"])
            self.assertEqual(gevctl_json("get", "Width", "PixelFormat", "GevSCPSDoNotFragment"),
                             {"Width": 640, "PixelFormat": "Mono12", "GevSCPSDoNotFragment": True})

    def test_chooses_a_camera_by_each_of_its_names(self):
        with Camera("--serial", "S1", "--user-name", "left", "--mac", "00:11:1c:00:00:01"), \
                Camera("--serial", "S2", "--address", "127.0.0.2"):
            for name in ("S1", "left", "00:11:1C:00:00:01", "127.0.0.1"):
                self.assertEqual(gevctl("get", name, "DeviceSerialNumber"), "DeviceSerialNumber=S1\n")
            message = gevctl("get", "Width", status=NO_CAMERA)
            self.assertIn("several cameras found", message)
            self.assertIn("S1 (127.0.0.1)", message)
            self.assertIn("S2 (127.0.0.2)", message)
            self.assertIn('"S3"', gevctl("dump", "S3", status=NO_CAMERA))
        self.assertIn("no camera found", gevctl("get", "Width", status=NO_CAMERA))

    def test_names_both_meanings_of_a_wrong_first_word(self):
        with Camera("--serial", "S1"):
            self.assertIn('"S9" is neither a camera that was found nor a feature of GO-5100M-PGE S1',
                          gevctl("get", "S9", "Width", status=USAGE))
            with Camera("--serial", "S2", "--address", "127.0.0.2"):
                self.assertIn('no camera has the name "S9", and several cameras found',
                              gevctl("get", "S9", "Width", status=NO_CAMERA))

    def test_checks_all_names_before_the_first_output(self):
        with Camera():
            for command in ("get", "watch"):
                done = subprocess.run([GEVCTL, command, "127.0.0.1", "Width", "Heightt"], capture_output=True, text=True,
                                      timeout=60)
                self.assertEqual((done.returncode, done.stdout), (USAGE, ""))

    def test_names_similar_features_for_an_unknown_one(self):
        with Camera():
            self.assertIn("Similar: Width", gevctl("get", "127.0.0.1", "Widht", status=USAGE))


class Set(unittest.TestCase):
    def test_writes_what_aravis_reads(self):
        with Camera():
            self.assertEqual(gevctl("set", "Width=640", "ExposureTime=123.5", "PixelFormat=Mono12", "DeviceUserID=left eye",
                                    "GevSCPSDoNotFragment=false"),
                             "Width=640\nExposureTime=123.5\nPixelFormat=Mono12\nDeviceUserID=left eye\n"
                             "GevSCPSDoNotFragment=false\n")
            self.assertEqual(features("Width", "ExposureTime", "PixelFormat", "GevSCPSDoNotFragment"),
                             {"Width": "640", "ExposureTime": "123.5", "PixelFormat": "Mono12",
                              "GevSCPSDoNotFragment": "false"})

    def test_writes_in_the_order_given(self):
        with Camera():
            gevctl("set", "GainSelector=DigitalAll", "Gain=2.5", "GainSelector=AnalogAll", "Gain=8")
            lines = arv_control("GainSelector=DigitalAll", "Gain", "GainSelector=AnalogAll", "Gain")
        self.assertRegex(lines[1], "Gain = 2.5 ")
        self.assertRegex(lines[3], "Gain = 8 ")

    def test_releases_control(self):
        with Camera():
            gevctl("set", "Width=640")
            self.assertIsNone(gevctl_json("list")[0]["control"])

    def test_names_the_limit_that_a_value_exceeds(self):
        with StandardCamera("--sensor", "1920x1200"):
            self.assertIn("OffsetX cannot be set to 8: it must be from 0 to 0", gevctl("set", "OffsetX=8", status=USAGE))
            self.assertIn("16 plus a multiple of 8", gevctl("set", "Width=641", status=USAGE))
            self.assertIn("must be one of Mono8, ", gevctl("set", "PixelFormat=RGB8", status=USAGE))
            self.assertIn('"wide" is not an integer', gevctl("set", "Width=wide", status=USAGE))
            self.assertEqual(feature("Width"), "1920")

    def test_checks_all_names_before_the_first_write(self):
        with Camera():
            gevctl("set", "Width=640", "Heightt=480", status=USAGE)
            self.assertEqual(feature("Width"), "2464")

    def test_reports_a_refusal_of_the_camera(self):
        with Camera("--refuse-write", "Width"):
            self.assertIn("Width cannot be set to 640: the camera refused", gevctl("set", "Width=640", status=REFUSED))

    def test_refuses_a_word_that_is_not_an_assignment(self):
        self.assertIn('"Width" is not an assignment', gevctl("set", "127.0.0.1", "Width", status=USAGE))


class Execute(unittest.TestCase):
    def test_executes_a_command(self):
        with Camera():
            gevctl("set", "127.0.0.1", "UserSetSelector=UserSet1", "Width=640")
            self.assertEqual(gevctl("execute", "127.0.0.1", "UserSetSave"), "UserSetSave executed\n")
            gevctl("set", "127.0.0.1", "Width=320")
            gevctl("execute", "UserSetLoad")
            self.assertEqual(feature("Width"), "640")

    def test_refuses_what_is_not_a_command(self):
        with Camera():
            self.assertIn("Use: gevctl set", gevctl("execute", "Width", status=USAGE))
            self.assertIn("Use: gevctl execute", gevctl("set", "UserSetLoad=1", status=USAGE))


class Features(unittest.TestCase):
    def test_lists_the_tree(self):
        with Camera("--sensor", "1920x1200"):
            text = gevctl("features", "127.0.0.1", "--visibility", "guru")
        self.assertRegex(text, r"(?m)^ImageFormatControl:$")
        self.assertRegex(text, r"(?m)^  Width +integer +rw +1920 +px +16 \.\. 1920 step 8$")
        self.assertRegex(text, r"(?m)^  AcquisitionStart +command +wo +")
        self.assertRegex(text, r"(?m)^  WidthMax +integer +ro +1920 ")

    def test_lists_what_every_reader_of_the_xml_finds(self):
        xml = run(CAMSIM, "--print-xml")
        named = set(re.findall(r"<pFeature>(\w+)</pFeature>", xml)) - set(re.findall(r'<Category Name="(\w+)"', xml))
        with Camera():
            found = gevctl("features", "127.0.0.1", "--visibility", "invisible", "--names").split()
        self.assertEqual(set(found), named)

    def test_hides_what_is_deeper_than_the_visibility(self):
        with Camera():
            beginner, expert, guru = (set(gevctl("features", "127.0.0.1", "--visibility", level, "--names").split())
                                      for level in ("beginner", "expert", "guru"))
        self.assertLess(beginner, expert)
        self.assertLess(expert, guru)
        self.assertIn("Width", beginner)
        self.assertNotIn("LUTValue", beginner)
        self.assertIn("LUTValue", expert)

    def test_limits_itself_to_a_category(self):
        with Camera():
            names = gevctl("features", "127.0.0.1", "ImageFormatControl", "--names").split()
        self.assertIn("PixelFormat", names)
        self.assertNotIn("Gain", names)

    def test_describes_one_feature(self):
        with Camera("--sensor", "1920x1200"):
            text = gevctl("features", "127.0.0.1", "Width")
            one, = gevctl_json("features", "127.0.0.1", "PixelFormat")
        self.assertRegex(text, r"(?s)^Width\n  tooltip: .*\n  range:       16 \.\. 1920 step 8\n")
        self.assertEqual((one["type"], one["value"], one["writable"]), ("enumeration", "Mono8", True))
        self.assertIn("Mono12Packed", one["entries"])

    def test_explains_a_lock(self):
        with Camera() as camera, Application() as other:
            self.assertNotIn("locked", gevctl("features", "127.0.0.1", "Width"))
            other.take_control()
            other.write(feature_addresses(camera.description())["TLParamsLocked"], 1)
            one, = gevctl_json("features", "127.0.0.1", "Width")
            self.assertRegex(gevctl("features", "127.0.0.1", "ImageFormatControl"), r"(?m)^  Width +integer +rw locked +")
        self.assertEqual((one["writable"], one["reason"]), (False, "locked now (TLParamsLocked = 1)"))

    def test_lists_entries_for_the_shell(self):
        with Camera():
            self.assertIn("Mono12Packed\n", gevctl("features", "127.0.0.1", "PixelFormat", "--entries"))


class Watch(unittest.TestCase):
    def test_prints_values_when_they_change(self):
        with Camera():
            command = [GEVCTL, "watch", "127.0.0.1", "Width", "Height", "--interval", "0.05", "--json"]
            with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as watch:
                try:
                    first = json.loads(watch.stdout.readline())
                    arv_control("Width=640")
                    second = json.loads(watch.stdout.readline())
                finally:
                    watch.terminate()
        self.assertEqual((first["Width"], first["Height"]), (2464, 2056))
        self.assertEqual(second["Width"], 640)
        self.assertNotIn("Height", second)


class Xml(unittest.TestCase):
    def test_prints_the_xml(self):
        for option in ((), ("--xml-zip",), ("--xml-second-url",)):
            with Camera(*option) as camera:
                self.assertEqual(gevctl("xml", "127.0.0.1"), camera.description())

    def test_writes_a_file(self):
        with Camera() as camera, tempfile.NamedTemporaryFile() as file:
            gevctl("xml", "127.0.0.1", "-o", file.name)
            self.assertEqual(open(file.name).read(), camera.description())
            self.assertIn("cannot be written", gevctl("xml", "127.0.0.1", "-o", "/nonexistent/x", status=USAGE))


class Register(unittest.TestCase):
    def test_reads_and_writes(self):
        with Camera():
            self.assertEqual(gevctl("register", "127.0.0.1", "0x0938"), "0x0938: 0x00000BB8 (3000)\n")
            self.assertEqual(gevctl("register", "127.0.0.1", "0x0938", "4000"), "0x0938: 0x00000FA0 (4000)\n")
            self.assertEqual(feature("GevHeartbeatTimeout"), "4000")
            self.assertEqual(gevctl("register", "0x0938"), "0x0938: 0x00000FA0 (4000)\n")

    def test_does_not_write_to_a_camera_that_is_not_named(self):
        with Camera():
            self.assertIn('"3336"', gevctl("register", "3336", "0x0938", status=NO_CAMERA))
            self.assertIn('"0x0938"', gevctl("register", "0x0938", "4000", status=NO_CAMERA))
            self.assertEqual(feature("GevHeartbeatTimeout"), "3000")
            self.assertEqual(gevctl("register", "0x0D08"), "0x0D08: 0x00000000 (0)\n")

    def test_reports_what_the_camera_refuses(self):
        with Camera():
            self.assertIn("0xFFF0 cannot be read: the camera refused: the address does not exist",
                          gevctl("register", "127.0.0.1", "0xFFF0", status=REFUSED))
            self.assertIn("write-protected", gevctl("register", "127.0.0.1", "0x0000", "1", status=REFUSED))
            self.assertIn("multiple of 4", gevctl("register", "127.0.0.1", "0x0001", status=USAGE))
            self.assertIn("not a valid register address", gevctl("register", "127.0.0.1", "first", status=USAGE))


class UserSet(unittest.TestCase):
    def test_saves_and_loads(self):
        with Camera():
            gevctl("set", "127.0.0.1", "Width=640")
            self.assertEqual(gevctl("user-set", "127.0.0.1", "save", "UserSet1", "--default"),
                             "user set UserSet1 saved\nthe camera loads user set UserSet1 at power-up\n")
            arv_control("Width=320")
            gevctl("user-set", "load", "UserSet1")
            self.assertEqual(features("Width", "UserSetDefault"), {"Width": "640", "UserSetDefault": "UserSet1"})

    def test_reports_what_the_camera_refuses(self):
        with Camera():
            self.assertIn("must be one of Default, ", gevctl("user-set", "127.0.0.1", "load", "Nine", status=USAGE))
            self.assertRegex(gevctl("user-set", "127.0.0.1", "save", "Default", status=REFUSED),
                             "refused: .*. Sets of the manufacturer, as Default, cannot be changed")
            self.assertIn("A set may have no content until it is saved",
                          gevctl("user-set", "127.0.0.1", "load", "UserSet2", status=REFUSED))
            self.assertIn("usage:", gevctl("user-set", "127.0.0.1", "delete", "UserSet1", status=USAGE))
        with Camera("--missing-feature", "UserSetSelector"):
            self.assertIn("UserSetSelector", gevctl("user-set", "127.0.0.1", "load", "UserSet1", status=USAGE))


class Suits(unittest.TestCase):
    def test_names_what_is_lost_without_a_feature(self):
        with Camera():
            self.assertIn("has all required features", gevctl("suits", "127.0.0.1"))
        with Camera("--missing-feature", "JAIGamma"):
            self.assertRegex(gevctl("suits", "127.0.0.1"), r"(?m)^JAIGamma +optional +no +no gamma$")
        with Camera("--missing-feature", "ExposureTime"):
            self.assertIn("lacks required features", gevctl("suits", "127.0.0.1", status=DIFFERS))

    def test_has_the_table_of_the_guide(self):
        with Camera():
            used = gevctl_json("suits", "127.0.0.1")
        rows = [f"| `{one['feature']}` | {'required' if one['required'] else 'optional'} | {one['lost_without_it']} |" for one in used]
        page = pathlib.Path(__file__).parents[3] / "docs/guide/supported-cameras.md"
        self.assertEqual([line for line in page.read_text().splitlines() if line.startswith("| `")], rows)


class CommandLine(unittest.TestCase):
    def test_has_help_and_version(self):
        self.assertIn("Exit status:", gevctl("--help"))
        self.assertRegex(gevctl("--version"), r"^gevctl \d+\.\d+\.\d+\n$")
        self.assertIn("force-ip", gevctl(status=USAGE))
        gevctl("lst", status=USAGE)


if __name__ == "__main__":
    unittest.main()
