# SPDX-License-Identifier: MIT
"""Optional parts of GigE Vision, from the camera to the saved frame: extended block IDs, both forms of resend requests, PENDING_ACK,
a compressed GenICam XML and one at the second URL. Wireshark decodes what the layer sends."""

import pathlib
import tempfile
import unittest

from camera_process import FaultyCamera, arv_control, run
from fault_recording import RATE, FrameBalance, configuration, stream_statistics
from packet_capture import OBJECTIONS, Capture
from recorder import Recording

LOSSES = 100  # packets dropped by the camera in a recording with loss


class ProtocolTest(unittest.TestCase):
    def record(self, *camera_options, extended_ids=False, losses=0, in_time=False, frames=30, rate=RATE):
        """Records, and checks that each frame was saved unchanged or its loss reported; if the machine gives every program time, that
        none was lost and packets were only resent if the camera dropped some. \\return the balance"""
        with FaultyCamera(*camera_options) as camera:
            if extended_ids:
                arv_control("GevGVSPExtendedIDMode=On")
            # A camera with slow writes takes long to restore.
            text = configuration(rate).replace("[run]", "[run]\ngrace_time_s = 60")
            with Recording(text) as recording:
                recording.wait_for_frames(2)
                if losses:
                    fault = camera.start_fault("packet_loss", probability=0.01)
                    recording.wait_while_running(lambda: camera.hits(fault) >= losses, "lost packets")
                    camera.stop_fault(fault)
                recording.wait_for_frames(len(recording.frame_index()) + frames)
                self.assertEqual(recording.stop(), 0, recording.log)
                balance = FrameBalance(recording, camera)
        self.assertEqual((balance.different, balance.stray), (0, 0), balance.report + balance.log)
        balance.check(self)
        resent = stream_statistics(balance.log, "packets_resent")
        if losses:
            self.assertGreater(resent, 0, balance.log)
        if in_time:
            self.assertEqual((balance.missing, resent > 0), (0, losses > 0), balance.report + balance.log)
        return balance


class ExtendedIds(ProtocolTest):
    def test_without_loss(self):
        self.record(extended_ids=True)


class ResentPackets(ProtocolTest):
    """These expect that no frame is lost, so the camera needs CPU time as soon as packets are requested again."""

    def test_with_extended_ids(self):
        self.record(extended_ids=True, losses=LOSSES, in_time=True)

    def test_of_a_camera_with_a_compressed_xml(self):
        self.record("--xml-zip", losses=LOSSES, in_time=True)

    def test_are_not_requested_without_loss(self):
        self.record(extended_ids=True, in_time=True)
        self.record("--xml-second-url", "--xml-zip", in_time=True)


class GenicamXml(ProtocolTest):
    def test_compressed(self):
        self.record("--xml-zip")

    def test_at_the_second_url(self):
        balance = self.record("--xml-second-url")
        self.assertIn("File:camsim.xml", balance.log)

    def test_compressed_at_the_second_url(self):
        self.record("--xml-second-url", "--xml-zip")

    def test_read_by_aravis_as_well(self):
        with FaultyCamera("--xml-zip"):
            self.assertTrue(arv_control("Width")[0].startswith("Width = "))


class Dissection(ProtocolTest):
    """Wireshark's dissectors decode each command, without expert information."""

    def setUp(self):
        # Otherwise loopback carries a segmented send as one packet.
        run("ip", "link", "set", "lo", "gso_max_segs", "1")
        # Wireshark reports datagrams to ports from 33434 on as possible traceroutes.
        pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").write_text("40000 60999")

    def capture(self, *arguments, **options):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        with Capture(directory.name) as capture:
            self.record(*arguments, **options)
        return capture

    def fields(self, capture, display_filter, *names):
        return capture.fields(9, display_filter, *names)

    def check_commands(self, capture):
        wrong = self.fields(capture, f"udp.dstport == 3956 and ({OBJECTIONS} or not gvcp)", "frame.number")
        self.assertEqual(wrong, [])
        commands = {int(command, 0) for command, in self.fields(capture, "gvcp.cmd.command", "gvcp.cmd.command")}
        self.assertLessEqual({0x0002, 0x0080, 0x0082, 0x0084}, commands, "DISCOVERY, READREG, WRITEREG, READMEM")

    def test_of_resend_requests_in_the_standard_form(self):
        capture = self.capture(losses=LOSSES)
        self.check_commands(capture)
        resends = self.fields(capture, "gvcp.cmd.command == 0x0040", "gvcp.cmd.resend.blockid",
                              "gvcp.cmd.resend.extendedblockid", "gvcp.cmd.resend.firstpacketid")
        self.assertGreater(len(resends), 10)
        for block, extended, packet in resends:
            self.assertGreater(int(block, 0), 0)
            self.assertEqual(extended, "")
            self.assertNotEqual(packet, "")

    def test_of_resend_requests_in_the_extended_form(self):
        capture = self.capture(extended_ids=True, losses=LOSSES)
        self.check_commands(capture)
        resends = self.fields(capture, "gvcp.cmd.command == 0x0040", "gvcp.cmd.resend.extendedblockid")
        self.assertGreater(len(resends), 10)
        for extended, in resends:
            self.assertGreater(int(extended, 0), 0)

    def test_of_slow_writes_that_the_camera_announces(self):
        # Above the timeout of an acknowledge: without PENDING_ACK each write would be sent twice.
        capture = self.capture("--write-time", "600", "--pacing", "118", frames=5, rate=1.0)  # a frame takes a write
        self.check_commands(capture)
        self.assertGreater(len(self.fields(capture, "gvcp.ack == 0x0089", "frame.number")), 10)
        # The first write after control is taken enables PENDING_ACK; those before are not announced.
        writes = [request for request, in self.fields(capture, "gvcp.cmd.command == 0x0082 or gvcp.cmd.command == 0x0086",
                                                      "gvcp.cmd.req_id")]
        repeated = len(writes) - len(set(writes))
        self.assertLessEqual(repeated, 3, "writes that were sent again")


if __name__ == "__main__":
    unittest.main()
