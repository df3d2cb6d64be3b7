# SPDX-License-Identifier: MIT
"""User sets, addresses, and several cameras in one process, as Aravis sees them."""

import ipaddress
import struct
import tempfile
import unittest

import gvcp
from camera_process import Camera, Cameras, FaultyCamera, arv_control, arv_tool, feature
from gvcp import Application, Stream
from packet_capture import OBJECTIONS, Capture

MAC = 0x000CDF010203
MAC_OPTION = ("--mac", "00:0c:df:01:02:03")


def force_ip(address, mac=MAC):
    """\\return the payload of FORCEIP"""
    number = lambda text: int(ipaddress.ip_address(text))
    return struct.pack(">HHI12xI12xI12xI", 0, mac >> 32, mac & 0xFFFFFFFF, number(address), number("255.0.0.0"), 0)


def camera_addresses():
    return [line.split()[-1] for line in arv_tool().splitlines()]


class UserSets(unittest.TestCase):
    def test_are_saved_and_loaded(self):
        with Camera():
            arv_control("Width=640", "ExposureTime=123", "UserSetSelector=UserSet1", "UserSetSave", "Width=320",
                        "UserSetSelector=Default", "UserSetLoad")
            self.assertEqual(feature("Width"), "2464")
            arv_control("UserSetSelector=UserSet1", "UserSetLoad")
            self.assertEqual((feature("Width"), feature("ExposureTime")), ("640", "123"))

    def test_that_do_not_exist_or_are_in_use_are_refused(self):
        with Camera():
            lines = arv_control("UserSetSelector=UserSet2", "UserSetLoad", "UserSetSelector=Default", "UserSetSave")
            self.assertEqual(["rror" in line for line in lines], [False, True, False, True])
            lines = arv_control("UserSetSelector=Default", "AcquisitionStart", "UserSetLoad", "AcquisitionStop", "UserSetLoad")
            self.assertEqual(sum("rror" in line for line in lines), 1)

    def test_of_the_default_are_loaded_at_power_up(self):
        with FaultyCamera() as camera:
            arv_control("Width=640", "UserSetSelector=UserSet1", "UserSetSave", "UserSetDefault=UserSet1", "Width=320")
            camera.stop_fault(camera.start_fault("power_cycle"))
            self.assertEqual((feature("Width"), feature("UserSetDefault")), ("640", "UserSet1"))


class Addresses(unittest.TestCase):
    def force(self, address, expected):
        """Sends FORCEIP by unicast. Its acknowledge comes from the camera's new address."""
        with Application() as application:
            application.send(gvcp.FORCEIP, force_ip(address))
            if expected is not None:
                self.assertEqual(application.receive()[:2], (expected, gvcp.FORCEIP + 1))

    def test_can_be_forced(self):
        with Camera(*MAC_OPTION) as camera:
            self.force("127.0.0.9", None)
            self.assertEqual(camera_addresses(), ["(127.0.0.9)"])
            self.assertEqual(feature("GevCurrentIPAddress"), str(0x7F000009))
            with Application("127.0.0.9") as application, Stream() as stream:
                self.assertEqual(application.take_control(), gvcp.SUCCESS)
                stream.open(application)
                camera_side = ("127.0.0.9", application.read(gvcp.SOURCE_PORT)[1][0])
                self.assertEqual(application.write(gvcp.PACKET_SIZE, 0x80000000 | 1400), gvcp.SUCCESS)
                self.assertEqual(stream.socket.recvfrom(65536)[1], camera_side)

    def test_that_this_host_does_not_have_or_another_camera_uses_are_refused(self):
        with Camera(*MAC_OPTION), Camera("--address", "127.0.0.2", "--serial", "TWO"):
            self.force("192.0.2.1", gvcp.INVALID_PARAMETER)
            self.force("127.0.0.2", gvcp.INVALID_PARAMETER)
            self.force("127.0.0.1", gvcp.SUCCESS)
            self.assertEqual(sorted(camera_addresses()), ["(127.0.0.1)", "(127.0.0.2)"])

    def test_are_forgotten_at_power_up_unless_they_are_persistent(self):
        with FaultyCamera(*MAC_OPTION) as camera:
            power_cycle = lambda: camera.stop_fault(camera.start_fault("power_cycle"))
            self.force("127.0.0.9", None)
            self.assertEqual(camera_addresses(), ["(127.0.0.9)"])
            power_cycle()
            self.assertEqual(camera_addresses(), ["(127.0.0.1)"])
            arv_tool("network", "mode=PersistentIP", "ip=127.0.0.8", "mask=255.0.0.0", "gateway=0.0.0.0")
            self.assertEqual(camera_addresses(), ["(127.0.0.1)"])
            for _ in range(2):
                power_cycle()
                self.assertEqual(camera_addresses(), ["(127.0.0.8)"])
            arv_tool("network", "mode=LLA")
            power_cycle()
            self.assertEqual(camera_addresses(), ["(127.0.0.1)"])

    def test_that_are_forced_are_decoded_by_wireshark(self):
        with tempfile.TemporaryDirectory() as directory:
            with Camera(*MAC_OPTION), Capture(directory) as capture:
                self.force("127.0.0.9", None)
                self.assertEqual(camera_addresses(), ["(127.0.0.9)"])
            self.assertEqual(capture.fields(9, f"gvcp.cmd.command == {gvcp.FORCEIP}", "gvcp.cmd.forceip.macaddress",
                                            "gvcp.cmd.forceip.ip", "gvcp.cmd.forceip.subnetmask"),
                             [["00:0c:df:01:02:03", "127.0.0.9", "255.0.0.0"]])
            self.assertEqual(capture.fields(9, f"gvcp and {OBJECTIONS}", "frame.number"), [])
            self.assertEqual(capture.fields(9, f"gvcp.ack == {gvcp.FORCEIP + 1} and not icmp", "ip.src"), [["127.0.0.9"]])


class SeveralCameras(unittest.TestCase):
    def test_have_addresses_and_serial_numbers_that_count_up(self):
        with Cameras(8, "--serial", "A0098") as cameras:
            expected = [(f"A{98 + index:04}", address) for index, address in enumerate(cameras.addresses)]
            self.assertEqual(cameras.ready_lines,
                             [f"camsim: ready, GO-5100M-PGE {serial} on {address}:3956\n" for serial, address in expected])
            self.assertEqual(sorted(arv_tool().splitlines()),
                             [f"JAI Corporation-GO-5100M-PGE-{serial} ({address})" for serial, address in expected])

    def test_have_settings_of_their_own(self):
        with Cameras(2) as cameras, Application(cameras.addresses[0]) as one, Application(cameras.addresses[1]) as two:
            self.assertEqual(one.take_control(), gvcp.SUCCESS)
            self.assertEqual(one.write(gvcp.HEARTBEAT_TIMEOUT, 1234), gvcp.SUCCESS)
            self.assertEqual(two.read(gvcp.CCP, gvcp.HEARTBEAT_TIMEOUT)[1], (0, 3000))
            self.assertTrue(all(path.exists() for path in cameras.truth_paths))


if __name__ == "__main__":
    unittest.main()
