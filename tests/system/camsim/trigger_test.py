# SPDX-License-Identifier: MIT
"""Exposures that wait for a trigger: a command, an edge of the input line, or an action command for several cameras."""

import socket
import struct
import tempfile
import unittest

import gvcp
from camera_application import ADDRESSES, small_images, start
from camera_process import DEADLINE_SECONDS, Camera, Cameras, FaultyCamera, arv_control, run
from gvcp import Application, Stream, timestamp
from packet_capture import OBJECTIONS, Capture

SOFTWARE, LINE1, ACTION1 = 0, 1, 2
FALLING_EDGE = 1
ACKNOWLEDGE, SCHEDULED = 0x01, 0x80
ACTION_LATE = 0x8016
DEVICE_KEY, GROUP_KEY, GROUP_MASK = 0x11223344, 0x55667788, 0x0000F000
MILLISECOND = 1_000_000  # ticks


def wait_for_trigger(application, stream, source):
    """Starts an acquisition whose frames wait for a trigger."""
    assert application.take_control() == gvcp.SUCCESS
    small_images(application)
    for name, value in (("TriggerSource", source), ("TriggerMode", 1)):
        assert application.write(ADDRESSES[name], value) == gvcp.SUCCESS
    stream.open(application)
    start(application)


def accept_actions(application):
    for address, value in ((gvcp.ACTION_DEVICE_KEY, DEVICE_KEY), (gvcp.ACTION_GROUP_KEY, GROUP_KEY),
                           (gvcp.ACTION_GROUP_MASK, GROUP_MASK)):
        assert application.write(address, value) == gvcp.SUCCESS


def present_ticks(application):
    assert application.write(ADDRESSES["GevTimestampControlLatch"], 1) == gvcp.SUCCESS
    high, low = application.read(ADDRESSES["GevTimestampValue"], ADDRESSES["GevTimestampValue"] + 4)[1]
    return high << 32 | low


def broadcast_action(time=None, device_key=DEVICE_KEY, group_mask=GROUP_MASK, cameras=1):
    """Sends an action command to all cameras of the loopback network, as a program without control does. \\return their statuses"""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        sender.settimeout(DEADLINE_SECONDS)
        payload = struct.pack(">III", device_key, GROUP_KEY, group_mask)
        flags = ACKNOWLEDGE
        if time is not None:
            payload += struct.pack(">Q", time)
            flags |= SCHEDULED
        sender.sendto(struct.pack(">BBHHH", 0x42, flags, gvcp.ACTION, len(payload), 77) + payload,
                      ("127.255.255.255", gvcp.PORT))
        statuses = []
        for _ in range(cameras):
            status, number, length, identifier = struct.unpack(">HHHH", sender.recv(2048))
            assert (number, length, identifier) == (gvcp.ACTION + 1, 0, 77)
            statuses.append(status)
        return statuses


class SoftwareTrigger(unittest.TestCase):
    def test_exposes_one_frame_for_each_command(self):
        with Camera(), Application() as application, Stream() as stream:
            wait_for_trigger(application, stream, SOFTWARE)
            for number in (1, 2, 3):
                self.assertTrue(stream.is_silent())
                self.assertEqual(application.write(ADDRESSES["TriggerSoftware"], 1), gvcp.SUCCESS)
                self.assertEqual(stream.block()[0], number)
            self.assertTrue(stream.is_silent())

    def test_by_aravis(self):
        with Camera() as camera:
            arv_control("AcquisitionFrameRate=200", "Height=100")
            output = run("arv-camera-test-0.8", "-a", "--no-packet-socket", "-j", "never", "--software-trigger=5",
                         "--duration=3")
            self.assertEqual(arv_control("TriggerMode", "TriggerSource"), ["TriggerMode = On", "TriggerSource = Software"])
        complete = int(next(line for line in output.splitlines() if line.startswith("n_completed_buffers")).split("=")[1])
        self.assertGreater(complete, 2)
        self.assertLess(len(camera.truth_frames), 50)  # without the trigger, hundreds


class LineTrigger(unittest.TestCase):
    def test_exposes_one_frame_for_each_rising_edge(self):
        with FaultyCamera() as camera, Application() as application, Stream() as stream:
            wait_for_trigger(application, stream, LINE1)
            for number in (1, 2):
                self.assertTrue(stream.is_silent())
                self.assertEqual(camera.request("line1 = true"), {"line1": True})
                self.assertEqual(stream.block()[0], number)
                self.assertEqual(camera.request("line1 = false"), {"line1": False})
            self.assertTrue(stream.is_silent())

    def test_can_be_the_falling_edge(self):
        with FaultyCamera() as camera, Application() as application, Stream() as stream:
            self.assertEqual(application.take_control(), gvcp.SUCCESS)
            self.assertEqual(application.write(ADDRESSES["TriggerActivation"], FALLING_EDGE), gvcp.SUCCESS)
            wait_for_trigger(application, stream, LINE1)
            camera.request("line1 = true")
            self.assertTrue(stream.is_silent())
            camera.request("line1 = false")
            self.assertEqual(stream.block()[0], 1)

    def test_keeps_the_level_of_the_line_over_a_power_cycle(self):
        with FaultyCamera() as camera:
            camera.request("line1 = true")
            camera.stop_fault(camera.start_fault("power_cycle"))
            with Application() as application, Stream() as stream:
                wait_for_trigger(application, stream, LINE1)
                camera.request("line1 = true")
                self.assertTrue(stream.is_silent())


class Action(unittest.TestCase):
    def test_triggers_the_cameras_that_its_keys_select(self):
        with Camera(), Application() as application, Stream() as stream:
            wait_for_trigger(application, stream, ACTION1)
            accept_actions(application)
            broadcast_action(device_key=1, cameras=0)
            broadcast_action(group_mask=0x0FFF, cameras=0)
            self.assertTrue(stream.is_silent())
            self.assertEqual(broadcast_action(), [gvcp.SUCCESS])
            self.assertEqual(stream.block()[0], 1)

    def test_is_denied_while_no_application_has_control(self):
        with Camera(), Application() as application, Stream() as stream:
            wait_for_trigger(application, stream, ACTION1)
            accept_actions(application)
            application.write(gvcp.CCP, 0)
            self.assertEqual(broadcast_action(), [gvcp.ACCESS_DENIED])

    def test_is_executed_at_its_time(self):
        with Camera(), Application() as application, Stream() as stream:
            wait_for_trigger(application, stream, ACTION1)
            accept_actions(application)
            time = present_ticks(application) + 1000 * MILLISECOND
            self.assertEqual(broadcast_action(time), [gvcp.SUCCESS])
            self.assertAlmostEqual(timestamp(stream.block()[1]), time, delta=2)  # ticks; times are rounded to nanoseconds

    def test_whose_time_has_passed_is_executed_at_once_and_reported(self):
        with Camera(), Application() as application, Stream() as stream:
            wait_for_trigger(application, stream, ACTION1)
            accept_actions(application)
            time = present_ticks(application)
            self.assertEqual(broadcast_action(time), [ACTION_LATE])
            self.assertGreater(timestamp(stream.block()[1]), time)

    def test_triggers_several_cameras_together(self):
        with Cameras(2) as cameras, Application(cameras.addresses[0]) as one, Application(cameras.addresses[1]) as two, \
                Stream() as first, Stream() as second:
            for application, stream in ((one, first), (two, second)):
                wait_for_trigger(application, stream, ACTION1)
                accept_actions(application)
            self.assertEqual(broadcast_action(cameras=2), [gvcp.SUCCESS] * 2)
            self.assertEqual((first.block()[0], second.block()[0]), (1, 1))

    def test_is_decoded_by_wireshark(self):
        with tempfile.TemporaryDirectory() as directory:
            with Camera(), Application() as application, Stream() as stream, Capture(directory) as capture:
                wait_for_trigger(application, stream, ACTION1)
                accept_actions(application)
                immediate = broadcast_action()
                stream.block()
                time = present_ticks(application) + 50 * MILLISECOND
                scheduled = broadcast_action(time)
                stream.block()
            commands = capture.fields(9, f"gvcp.cmd.command == {gvcp.ACTION}", "gvcp.cmd.action.devicekey",
                                      "gvcp.cmd.action.groupkey", "gvcp.cmd.action.groupmask", "gvcp.cmd.action.time")
            keys = [f"0x{value:08x}" for value in (DEVICE_KEY, GROUP_KEY, GROUP_MASK)]
            self.assertEqual([fields[:3] for fields in commands], [keys, keys])
            self.assertEqual(commands[0][3], "")
            self.assertEqual(int(commands[1][3], 0), time)
            acks = capture.fields(9, f"gvcp.ack == {gvcp.ACTION + 1}", "gvcp.cmd.status")
            self.assertEqual([int(status, 0) for status, in acks], immediate + scheduled)
            self.assertEqual(capture.fields(9, f"gvcp and {OBJECTIONS}", "frame.number"), [])


if __name__ == "__main__":
    unittest.main()
