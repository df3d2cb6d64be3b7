# SPDX-License-Identifier: MIT
"""gevctl force-ip and set-ip."""

import subprocess
import unittest

from camera_process import Camera, FaultyCamera, wait_for
from gevctl import GEVCTL, CONTROLLED, NO_CAMERA, REFUSED, USAGE, gevctl, gevctl_json
from gvcp import Application

MAC = "00:11:1c:00:00:07"


class ForceIp(unittest.TestCase):
    def test_moves_a_camera_and_finds_it_again(self):
        with Camera("--mac", MAC):
            text = gevctl("force-ip", MAC, "127.0.0.9/8")
            self.assertIn("(127.0.0.9) has address 127.0.0.9/8 until its power is switched off", text)
            one, = gevctl_json("list")
            self.assertEqual((one["address"], one["mask"], one["reachable"]), ("127.0.0.9", "255.0.0.0", True))

    def test_moves_only_the_camera_with_the_mac_address(self):
        with Camera("--mac", MAC), Camera("--address", "127.0.0.2", "--serial", "S2"):
            gevctl("force-ip", MAC, "127.0.0.9/8")
            self.assertEqual({one["address"] for one in gevctl_json("list")}, {"127.0.0.2", "127.0.0.9"})

    def test_fails_while_a_program_has_control(self):
        with Camera("--mac", MAC), Application() as other:
            other.take_control()
            self.assertIn("while a program has control", gevctl("force-ip", MAC, "127.0.0.9/8", status=CONTROLLED))

    def test_reports_a_camera_that_refuses_the_address(self):
        with Camera("--mac", MAC):
            self.assertIn("refuses the address: a parameter is not valid",
                          gevctl("force-ip", MAC, "10.9.9.9/24", status=REFUSED))

    def test_reports_a_camera_that_does_not_exist(self):
        with Camera():
            self.assertIn("did not appear", gevctl("force-ip", "00:00:00:00:00:01", "127.0.0.9/8", status=NO_CAMERA))

    def test_refuses_invalid_addresses(self):
        self.assertIn("not a valid MAC address", gevctl("force-ip", "CS000001", "127.0.0.9/8", status=USAGE))
        self.assertIn("use ADDRESS/PREFIX", gevctl("force-ip", MAC, "127.0.0.9", status=USAGE))
        self.assertIn("not a valid gateway", gevctl("force-ip", MAC, "10.0.0.9/24", "--gateway", "10.0.1.1", status=USAGE))


class SetIp(unittest.TestCase):
    def test_is_in_effect_after_the_next_power_up(self):
        with FaultyCamera("--mac", MAC) as camera:
            text = gevctl("set-ip", "127.0.0.1", "persistent", "127.0.0.9/8", "--gateway", "127.0.0.3")
            self.assertIn("uses persistent 127.0.0.9/8 from the next power-up on\n", text)
            fault = camera.start_fault("power_cycle")
            wait_for(lambda: gevctl_json("list") == [], "the power cut")
            camera.stop_fault(fault)
            one, = wait_for(lambda: gevctl_json("list"), "the camera")
            self.assertEqual((one["address"], one["ip_mode"]), ("127.0.0.9", "persistent"))

    def test_writes_the_registers_of_the_standard(self):
        with Camera(), Application() as reader:
            gevctl("set-ip", "127.0.0.1", "persistent", "127.0.0.9/8", "--gateway", "127.0.0.3")
            self.assertEqual(reader.read(0x064C)[1], (0x7F000009,))
            self.assertEqual(reader.read(0x065C)[1], (0xFF000000,))
            self.assertEqual(reader.read(0x066C)[1], (0x7F000003,))
            self.assertEqual(reader.read(0x0014)[1][0] & 7, 5)
            self.assertEqual(gevctl_json("list")[0]["ip_mode"], "persistent")
            gevctl("set-ip", "127.0.0.1", "dhcp")
            self.assertEqual(reader.read(0x0014)[1][0] & 7, 6)
            gevctl("set-ip", "link-local")
            self.assertEqual(reader.read(0x0014)[1][0] & 7, 4)

    def test_warns_if_this_machine_has_no_way_there(self):
        with Camera():
            done = subprocess.run([GEVCTL, "set-ip", "127.0.0.1", "persistent", "10.7.7.7/24"],
                                  capture_output=True, text=True, timeout=60)
            self.assertEqual(done.returncode, 0)
            self.assertIn("warning: no interface of this machine", done.stderr)
            self.assertNotIn("warning", gevctl("set-ip", "127.0.0.1", "persistent", "127.0.0.9/8"))

    def test_warns_if_another_camera_has_the_address(self):
        with Camera(), Camera("--address", "127.0.0.2", "--serial", "S2"):
            done = subprocess.run([GEVCTL, "set-ip", "127.0.0.1", "persistent", "127.0.0.2/8"],
                                  capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stderr, r"warning: camera \S+ S2 \(127\.0\.0\.2\), MAC address \S+, has this address now")

    def test_refuses_a_gateway_without_a_persistent_address(self):
        with Camera(), Application() as reader:
            before = reader.read(0x0014)
            self.assertIn("belongs to a persistent address",
                          gevctl("set-ip", "127.0.0.1", "dhcp", "--gateway", "127.0.0.3", status=USAGE))
            self.assertEqual(reader.read(0x0014), before)

    def test_refuses_a_wrong_command_line(self):
        for arguments in (("static",), ("persistent",), ("dhcp", "10.0.0.1/24"), ("CS1", "persistent", "10.0.0.1")):
            with self.subTest(arguments):
                gevctl("set-ip", *arguments, status=USAGE)


if __name__ == "__main__":
    unittest.main()
