# SPDX-License-Identifier: MIT
"""Wireshark decodes what camsim sends, without expert information and with the expected values."""

import pathlib
import tempfile
import unittest

import gvcp
from camera_process import DEADLINE_SECONDS, PROBE, Camera, arv_control, run
from gvcp import Application
from packet_capture import OBJECTIONS, Capture

PAYLOAD_TYPES = {"standard": "0x0004", "deprecated": "0x0005", "extended": "0x4001"}
CODES = {"Mono8": "0x01080001", "Mono12Packed": "0x010c0006", "Mono12": "0x01100005", "BayerRG8": "0x01080009"}


class Wireshark(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # Otherwise loopback carries a segmented send as one packet.
        run("ip", "link", "set", "lo", "gso_max_segs", "1")
        # Wireshark reports datagrams to ports from 33434 on as possible traceroutes.
        pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").write_text("40000 60999")

    def capture_a_grab(self, directory, pixel_format, camera_options, *probe_options):
        with Camera(*camera_options) as camera, Capture(directory) as capture:
            stream_port = int(arv_control("GevSCSP")[0].split()[2])
            arv_control("GevSCDA=2130706433", "GevSCPHostPort=9", "GevSCPSFireTestPacket", "Gain=99", "TLParamsLocked")
            run(PROBE, "--format", pixel_format, "--width", "640", "--height", "100", "--rate", "50", "--frames", "30",
                "--seconds", str(DEADLINE_SECONDS), "--packet-size", "1400", *probe_options)
        return camera, capture, stream_port

    def check(self, pixel_format, extended, chunks=None):
        """\\param chunks kind of the payload; none: without chunks"""
        with tempfile.TemporaryDirectory() as directory:
            options = (("--extended-ids",) if extended else ()) + (("--chunks",) if chunks else ())
            camera_options = ("--chunk-payload", chunks) if chunks else ()
            camera, capture, port = self.capture_a_grab(directory, pixel_format, camera_options, *options)
            self.assertEqual(capture.fields(port, OBJECTIONS, "frame.number", "_ws.expert.message"), [])
            from_camera = f"udp.srcport == {port} and not icmp"
            undecoded = capture.fields(port, f"{from_camera} and not gvsp", "frame.number")
            self.assertEqual(undecoded, [])
            self.assertGreater(len(capture.fields(port, "gvcp.cmd.command", "frame.number")), 20)
            block = "gvsp.blockid64" if extended else "gvsp.blockid16"
            leaders = capture.fields(port, f"{from_camera} and gvsp.format == {0x81 if extended else 1}", block,
                                     "gvsp.timestamp", "gvsp.pixel", "gvsp.sizex", "gvsp.sizey", "gvsp.payloadtype")
            payload_type = PAYLOAD_TYPES[chunks] if chunks else "0x0001"
            image = [CODES[pixel_format], "640", "100"] if chunks != "standard" else ["", "", ""]
            # A busy camera leaves out exposures. The stop may interrupt the last frame behind its leader.
            sent = [frame for frame in camera.truth_frames if frame["outcome"] != "dropped"]
            expected = [[str(frame["block_id"]), f"0x{frame['ticks']:016x}", *image, payload_type] for frame in sent]
            self.assertGreater(len(leaders), 20)
            self.assertEqual(leaders, expected[:len(leaders)])
            trailers = capture.fields(port, f"{from_camera} and gvsp.format == {0x82 if extended else 2}", block,
                                      "gvsp.payloadtype", "gvsp.sizey", "gvsp.chunkdatapayloadlengthhex", "gvsp.payloadlength")
            height = "" if chunks == "standard" else "100"
            long, short = f"0x{sent[0]['payload_bytes']:08x}", str(sent[0]["payload_bytes"])
            lengths = {None: ["", ""], "extended": [long, ""]}.get(chunks, ["", short])
            self.assertEqual(trailers[:20], [[leader[0], payload_type, height, *lengths] for leader in leaders[:20]])

    def test_reads_mono8(self):
        self.check("Mono8", extended=False)

    def test_reads_mono12_packed(self):
        self.check("Mono12Packed", extended=False)

    def test_reads_mono12(self):
        self.check("Mono12", extended=False)

    def test_reads_bayer_rg8(self):
        self.check("BayerRG8", extended=False)

    def test_reads_mono8_with_extended_ids(self):
        self.check("Mono8", extended=True)

    def test_reads_mono12_packed_with_extended_ids(self):
        self.check("Mono12Packed", extended=True)

    def test_reads_mono12_with_extended_ids(self):
        self.check("Mono12", extended=True)

    def test_reads_bayer_rg8_with_extended_ids(self):
        self.check("BayerRG8", extended=True)

    def test_reads_mono8_with_chunk_data(self):
        self.check("Mono8", extended=False, chunks="standard")

    def test_reads_mono12_with_deprecated_chunk_data(self):
        self.check("Mono12", extended=False, chunks="deprecated")

    def test_reads_mono12_packed_with_extended_ids_and_extended_chunk_data(self):
        self.check("Mono12Packed", extended=True, chunks="extended")

    def test_reads_the_registers_of_chunk_data_and_actions(self):
        names = ("gvcp.bootstrap.sccx.extendedchunkdatasupported", "gvcp.bootstrap.sccfgx.extendedchunkdataenabled",
                 "gvcp.bootstrap.capability.actioncommand", "gvcp.bootstrap.capability.scheduledactioncommand")
        for payload, expected in (("standard", ["1", "0", "1", "1"]), ("deprecated", ["0", "0", "1", "1"]),
                                  ("extended", ["1", "1", "1", "1"])):
            with self.subTest(payload=payload), tempfile.TemporaryDirectory() as directory:
                with Camera("--chunk-payload", payload), Capture(directory) as capture, Application() as application:
                    for address in (gvcp.STREAM_CAPABILITY, gvcp.STREAM_CONFIGURATION, gvcp.GVCP_CAPABILITY):
                        self.assertEqual(application.read(address)[0], gvcp.SUCCESS)
                # Wireshark 4.0 prints 1 and 0, 4.4 True and False.
                shown = [[{"True": "1", "False": "0"}.get(value, value)
                          for value, in capture.fields(9, f"gvcp.ack == 0x81 and {name}", name)] for name in names]
                self.assertEqual(shown, [[value] for value in expected])


if __name__ == "__main__":
    unittest.main()
