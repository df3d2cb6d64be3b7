# SPDX-License-Identifier: MIT
"""gevctl list."""

import contextlib
import json
import os
import pathlib
import socket
import struct
import subprocess
import threading
import time
import unittest

from camera_process import Camera, Cameras, FaultyCamera
from gevctl import NO_CAMERA, USAGE, acknowledge, discovery_responder, gevctl, gevctl_json, identity
from gvcp import EXCLUSIVE, Application

MAX_SEARCH_SECONDS = 1.2  # the search takes 1 s, reading 64 cameras a few ms
MAX_SECONDS_WITH_SILENT_CAMERAS = 1.7  # cameras that do not respond are waited for
MAX_CAMERAS_OF_SENDER = 8


class List(unittest.TestCase):
    def test_describes_a_camera(self):
        with Camera("--model", "GO-2400M-PGE", "--serial", "S7", "--user-name", "left", "--mac", "00:11:1c:00:00:07"):
            one, = gevctl_json("list")
            text = gevctl("list")
        self.assertEqual({key: one[key] for key in ("model", "serial", "user_name", "mac", "address", "mask", "ip_mode",
                                                    "interface", "reachable", "control", "gev_version", "vendor")},
                         {"model": "GO-2400M-PGE", "serial": "S7", "user_name": "left", "mac": "00:11:1c:00:00:07",
                          "address": "127.0.0.1", "mask": "255.0.0.0", "ip_mode": "dhcp", "interface": "lo",
                          "reachable": True, "control": None, "gev_version": "2.0", "vendor": "JAI Corporation"})
        self.assertRegex(text.splitlines()[1], r"GO-2400M-PGE +S7 +left +00:11:1c:00:00:07 +127\.0\.0\.1/8 .* yes +- ")

    def test_names_the_program_that_has_control(self):
        with Camera(), Application() as other:
            other.take_control()
            address, port = other.socket.getsockname()
            one, = gevctl_json("list")
            self.assertEqual(one["control"], {"exclusive": False, "address": address, "port": port})
            self.assertIn(f"{address}:{port}", gevctl("list"))

    def test_lists_a_camera_under_exclusive_access(self):
        with Camera(), Application() as other:
            other.take_control(EXCLUSIVE)
            one, = gevctl_json("list")
        self.assertEqual(one["control"], {"exclusive": True})
        self.assertTrue(one["reachable"])

    def test_ends_with_a_status_of_its_own_without_a_camera(self):
        self.assertIn("no camera found", gevctl("list", status=NO_CAMERA))
        self.assertEqual(gevctl_json("list"), [])

    def test_searches_one_interface_if_it_is_named(self):
        subprocess.run(["ip", "link", "add", "near", "type", "veth", "peer", "name", "far"], check=True)
        subprocess.run(["ip", "address", "add", "10.1.0.1/24", "dev", "near"], check=True)
        subprocess.run(["ip", "link", "set", "near", "up"], check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "del", "near"], check=True)
        with Camera():
            self.assertEqual(gevctl_json("list", "--interface", "near"), [])
            self.assertEqual(len(gevctl_json("list", "--interface", "lo")), 1)
        self.assertIn('no network interface "eth9"', gevctl("list", "--interface", "eth9", status=USAGE))

    def test_is_sorted_by_address(self):
        with Cameras(12) as cameras:
            self.assertEqual([one["address"] for one in gevctl_json("list")], cameras.addresses)

    def test_waits_for_a_slow_camera(self):
        with FaultyCamera() as camera:
            fault = camera.start_fault("ack_delay", delay_ms=200)
            one, = gevctl_json("list")
            camera.stop_fault(fault)
        self.assertTrue(one["reachable"])

    def test_prints_no_control_characters_of_a_camera(self):
        def respond(sender, identifier, flags, source):
            sender.sendto(acknowledge(identifier, identity(1, "127.0.0.1", "\x1b[2J", "evil\nline")), source)

        with discovery_responder(respond):
            text = gevctl("list")
        self.assertNotIn("\x1b", text)
        self.assertIn("evil?line", text)


class Speed(unittest.TestCase):
    def test_finds_64_cameras_in_about_a_second(self):
        with Cameras(64) as cameras:
            begin = time.monotonic()
            found = gevctl_json("list")
            seconds = time.monotonic() - begin
        print(f"64 cameras in {seconds:.2f} s")
        self.assertEqual(sorted(one["address"] for one in found), sorted(cameras.addresses))
        self.assertTrue(all(one["reachable"] for one in found))
        self.assertLess(seconds, MAX_SEARCH_SECONDS)

    def test_finds_64_cameras_in_a_flood_of_answers(self):
        def flood(sender, identifier, flags, source):
            # At once, before the cameras, more strangers than the list holds; then a flood of them, of invalid answers, and of those to
            # other requests.
            for number in range(600):
                sender.sendto(acknowledge(identifier, identity(0x020000000000 + number, "127.0.0.99")), source)
            time.sleep(0.1)
            for number in range(4000):
                sender.sendto(acknowledge(identifier, identity(0x020000000000 + number, "127.0.0.99")), source)
                sender.sendto(acknowledge(identifier ^ 1, identity(0x030000000000 + number, "127.0.0.99")), source)
                sender.sendto(acknowledge(identifier, b"\xff" * (number % 248)), source)

        with Cameras(64) as cameras, discovery_responder(flood):
            begin = time.monotonic()
            found = gevctl_json("list")
            seconds = time.monotonic() - begin
        print(f"64 cameras and {len(found) - 64} strangers in {seconds:.2f} s")
        self.assertLessEqual(set(cameras.addresses), {one["address"] for one in found})
        self.assertFalse([one for one in found if one["mac"].startswith("03:")], "an answer to another request counts")
        self.assertEqual(len(found), len(cameras.addresses) + MAX_CAMERAS_OF_SENDER)
        self.assertEqual({one["reachable"] for one in found if one["model"] == "Stranger"}, {False})
        self.assertLess(seconds, MAX_SECONDS_WITH_SILENT_CAMERAS)


COMMAND_TO_REACH = "gevctl force-ip 02:00:00:00:00:07 10.1.0.2/24"


class BroadcastAcknowledge(unittest.TestCase):
    """A camera in another subnet, to which this machine has no route, answers by broadcast."""

    def run_ip(self, *arguments):
        subprocess.run(["ip", *arguments], check=True)

    def setUp(self):
        self.run_ip("link", "add", "near", "type", "veth", "peer", "name", "far")
        self.addCleanup(subprocess.run, ["ip", "link", "del", "near"], check=True)
        self.run_ip("address", "add", "10.1.0.1/24", "dev", "near")
        self.run_ip("link", "set", "near", "up")
        self.run_ip("link", "set", "far", "up")
        for interface in ("all", "near"):  # strict filtering drops what comes from another subnet
            pathlib.Path(f"/proc/sys/net/ipv4/conf/{interface}/rp_filter").write_text("0")

    @contextlib.contextmanager
    def camera(self, *addresses):
        """Cameras with these addresses at the other end of the cable: what is written there arrives as a broadcast on `near`. Yields the
        flags of the discoveries."""
        raw = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x0800))
        raw.bind(("far", 0))
        raw.settimeout(0.05)

        def checksum(header):
            total = sum(struct.unpack(f">{len(header) // 2}H", header))
            total = (total & 0xFFFF) + (total >> 16)
            return ~(total + (total >> 16)) & 0xFFFF

        def broadcast(payload, port, address):
            udp = struct.pack(">HHHH", 3956, port, 8 + len(payload), 0) + payload
            source, destination = socket.inet_aton(address), b"\xff" * 4
            header = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 1, 0, 64, 17, 0, source, destination)
            header = header[:10] + struct.pack(">H", checksum(header)) + header[12:]
            raw.send(b"\xff" * 6 + b"\x02\x00\x00\x00\x00\x07" + b"\x08\x00" + header + udp)

        flags = []
        ended = threading.Event()

        def respond():
            while not ended.is_set():
                try:
                    frame = raw.recv(2048)
                except TimeoutError:
                    continue
                if frame[23] != 17 or frame[36:38] != struct.pack(">H", 3956):
                    continue
                port = struct.unpack(">H", frame[34:36])[0]
                identifier = struct.unpack(">H", frame[48:50])[0]
                flags.append(frame[43])
                for number, address in enumerate(addresses or ("192.168.55.7",)):
                    broadcast(acknowledge(identifier, identity(0x020000000007 + number, address, f"FAR{1 + number}", "Far")), port,
                              address)

        responder = threading.Thread(target=respond)
        responder.start()
        try:
            yield flags
        finally:
            ended.set()
            responder.join()
            raw.close()

    def test_shows_the_camera_and_the_command_that_reaches_it(self):
        with self.camera() as flags:
            one, = gevctl_json("list", "--interface", "near")
        self.assertEqual(set(flags), {0x11})
        self.assertEqual((one["serial"], one["address"], one["reachable"]), ("FAR1", "192.168.55.7", False))
        self.assertEqual(one["command_to_reach"], COMMAND_TO_REACH)

    def test_suggests_an_address_of_its_own_for_each_camera_and_none_that_is_known(self):
        self.run_ip("route", "add", "10.2.0.0/24", "via", "10.1.0.2", "dev", "near")
        self.run_ip("neigh", "add", "10.1.0.3", "lladdr", "02:00:00:00:00:99", "dev", "near")
        with self.camera("192.168.55.7", "192.168.55.8"):
            commands = [one["command_to_reach"].split()[-1] for one in gevctl_json("list", "--interface", "near")]
        self.assertEqual(commands, ["10.1.0.4/24", "10.1.0.5/24"])

    def test_suggests_no_address_to_a_camera_that_has_one_in_the_subnet(self):
        with self.camera("10.1.0.9"):
            one, = gevctl_json("list", "--interface", "near")
            text = gevctl("list", "--interface", "near")
        self.assertFalse(one["reachable"])
        self.assertNotIn("command_to_reach", one)
        self.assertIn("does not respond at its address. Check that it is ready", text)

    def test_is_a_finding_of_the_machine_check(self):
        with self.camera():
            done = subprocess.run([os.environ["MEDIAGRABBER"], "doctor", "--interface", "near", "--json"], capture_output=True,
                                  text=True, timeout=60)
        one, = (each for each in json.loads(done.stdout) if "camera" in each["what"])
        self.assertEqual((one["level"], one["what"], one["command"]), ("bad", "near: camera Far FAR1", COMMAND_TO_REACH))
        self.assertEqual(done.returncode, 10)


if __name__ == "__main__":
    unittest.main()
