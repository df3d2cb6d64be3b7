"""Wireshark's dissectors, strangers too, read what camsim sends without a complaint, and read in it what was meant."""

import pathlib
import tempfile
import unittest

from camera_process import PROBE, Camera, arv_control, run
from packet_capture import Capture

CODES = {"Mono8": "0x01080001", "Mono12Packed": "0x010c0006", "Mono12": "0x01100005", "BayerRG8": "0x01080009"}


class Wireshark(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # One captured packet a UDP packet: without this, loopback carries segmented sends whole.
        run("ip", "link", "set", "lo", "gso_max_segs", "1")
        # Of a datagram to one of the ports from 33434 on Wireshark remarks that it may be a traceroute's.
        pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").write_text("40000 60999")

    def capture_a_grab(self, directory, pixel_format, *probe_options):
        with Camera() as camera, Capture(directory) as capture:
            stream_port = int(arv_control("GevSCSP")[0].split()[2])
            arv_control("GevSCDA=2130706433", "GevSCPHostPort=9", "GevSCPSFireTestPacket", "Gain=99", "TLParamsLocked")
            run(PROBE, "--format", pixel_format, "--width", "640", "--height", "100", "--rate", "50", "--seconds", "0.5",
                "--packet-size", "1400", *probe_options)
        return camera, capture, stream_port

    def check(self, pixel_format, extended, chunks=False):
        with tempfile.TemporaryDirectory() as directory:
            options = (("--extended-ids",) if extended else ()) + (("--chunks",) if chunks else ())
            camera, capture, port = self.capture_a_grab(directory, pixel_format, *options)
            self.assertEqual(capture.fields(port, "_ws.expert or _ws.malformed", "frame.number", "_ws.expert.message"), [])
            from_camera = f"udp.srcport == {port} and not icmp"
            undecoded = capture.fields(port, f"{from_camera} and not gvsp", "frame.number")
            self.assertEqual(undecoded, [])
            self.assertGreater(len(capture.fields(port, "gvcp.cmd.command", "frame.number")), 20)
            block = "gvsp.blockid64" if extended else "gvsp.blockid16"
            leaders = capture.fields(port, f"{from_camera} and gvsp.format == {0x81 if extended else 1}", block,
                                     "gvsp.timestamp", "gvsp.pixel", "gvsp.sizex", "gvsp.sizey", "gvsp.payloadtype")
            payload_type = "0x4001" if chunks else "0x0001"
            expected = [[str(frame["block_id"]), f"0x{frame['ticks']:016x}", CODES[pixel_format], "640", "100",
                         payload_type] for frame in camera.truth_frames]
            self.assertGreater(len(leaders), 20)
            self.assertEqual(leaders, expected[:len(leaders)])
            trailers = capture.fields(port, f"{from_camera} and gvsp.format == {0x82 if extended else 2}", block,
                                      "gvsp.sizey", "gvsp.payloadtype", "gvsp.chunkdatapayloadlengthhex")
            payload_bytes = f"0x{camera.truth_frames[0]['payload_bytes']:08x}" if chunks else ""
            self.assertEqual(trailers[:20],
                             [[leader[0], "100", payload_type, payload_bytes] for leader in leaders[:20]])

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

    def test_reads_mono8_with_chunks(self):
        self.check("Mono8", extended=False, chunks=True)

    def test_reads_mono12_packed_with_extended_ids_and_chunks(self):
        self.check("Mono12Packed", extended=True, chunks=True)


if __name__ == "__main__":
    unittest.main()
