# SPDX-License-Identifier: MIT
"""The service under a booted systemd: what happens to a plant, and that the recording goes on afterwards.

Each test boots a bare Debian 12 with the package, records from camsim over a network, makes one thing happen, and ends with the same
checks: frames are saved again within 10 s of the end of the cause, each frame that the camera sent is saved or was lost while the
cause lasted, and each file opens in a program that is not of this project.
"""

import contextlib
import json
import os
import pathlib
import re
import struct
import sys
import time
import unittest
import urllib.error
import urllib.request

from PIL import Image

from camera_process import Camera
from machine import ADDRESS, CAMERA_ADDRESS, IMAGES, Machine, command, make_network
from waiting import wait_for

RECOVERY_SECONDS = 10
RATE = 20
# Frames on the way when the recorder is killed: in the socket, in assembly, in the queue.
ON_THE_WAY_SECONDS = 1
UNIT = "mediagrabber@left.service"
OUTPUT = "var/lib/mediagrabber/left"
CONFIGURATION = f"""
[image]
width = 160
height = 120
[timing]
frame_rate_hz = {RATE}.0
[memory]
export_buffers = 64
[run]
give_up_after = "never"
retry_interval_s = 0.5
"""


def setUpModule():
    make_network()


def lan_camera():
    return Camera("--address", CAMERA_ADDRESS, "--pacing", "burst")


def frame_lines(index):
    """The complete lines of a frame index. A power failure may leave a part of a line at the end."""
    return [json.loads(line) for line in index.read_text().split("\n")[:-1]]


class ServiceCase(unittest.TestCase):
    """`cameras` are all camsim processes so far, `outages` the times (UTC, us) in which frames may be lost."""

    def setUp(self):
        self.machine = self.enterContext(Machine())
        self.addCleanup(self.print_journal)
        self.cameras = []
        self.outages = []
        self.output = self.machine.root / OUTPUT

    def print_journal(self):
        """What the service logged, for a test that fails."""
        if self.machine.leader:
            print(self.machine.journal(UNIT)[-6000:], flush=True)

    def start_camera(self):
        self.cameras.append(self.enterContext(lan_camera()))

    def configure(self, more="", drop_in=""):
        self.machine.write("etc/mediagrabber/left.toml", CONFIGURATION + more)
        if drop_in:
            self.machine.write(f"etc/systemd/system/{UNIT}.d/test.conf", drop_in)

    def start(self, more="", drop_in=""):
        """Boots with a camera and a network, and enables the service."""
        self.configure(more, drop_in)
        self.start_camera()
        self.machine.boot()
        begin = time.time()
        self.machine.systemctl("enable", "--now", "--no-block", UNIT)
        self.wait_for_frames_since(begin)
        wait_for(lambda: self.machine.show(UNIT, "ActiveState") == "active", "a service that is ready")

    def indexes(self):
        # Directories may be deleted meanwhile, which os.walk tolerates.
        return sorted(pathlib.Path(path) / "frames.jsonl" for path, _, files in os.walk(self.output) if "frames.jsonl" in files)

    def saved(self):
        """All saved frames in the order of their times."""
        return sorted((line for index in self.indexes() for line in frame_lines(index)), key=lambda line: line["handed_over_us"])

    def saved_since(self, seconds):
        """The number of frames that were handed over after this time."""
        return sum(line["handed_over_us"] > seconds * 1e6 for line in self.saved())

    def wait_for_frames_since(self, seconds, count=1):
        """Waits for frames that were handed over after this time. They must be on the disk within RECOVERY_SECONDS."""
        wait_for(lambda: self.saved_since(seconds) >= count, f"{count} frames within {RECOVERY_SECONDS} s", RECOVERY_SECONDS)

    def recover(self, begin, end=None):
        """Requires frames again after a cause that lasted from `begin` to `end` (by default, until now)."""
        end = end or time.time()
        self.wait_for_frames_since(end)
        recovered = next(line["handed_over_us"] for line in self.saved() if line["handed_over_us"] > end * 1e6)
        self.outages.append(((begin - ON_THE_WAY_SECONDS) * 1e6, recovered))
        print(f"{self.id()}: frames again {recovered / 1e6 - end:.1f} s after the end of the cause", flush=True)
        # Enough frames to see that the recording goes on.
        self.wait_for_frames_since(time.time(), RATE)

    def check(self):
        """The checks that end each test."""
        self.machine.systemctl("stop", UNIT)
        self.check_account()
        self.check_files()

    def check_account(self):
        """Each frame that a camera sent completely is saved once, unless an outage explains it. No saved frame is anything else."""
        saved = self.saved()
        first, last = saved[0]["handed_over_us"], saved[-1]["handed_over_us"]
        for before, after in zip(saved, saved[1:]):
            self.assertLess(before["handed_over_us"], after["handed_over_us"])
        unknown, sent_count, lost_count = list(saved), 0, 0
        for camera in self.cameras:
            for frame in camera.frames_so_far():
                if "send_end_ns" not in frame:
                    continue
                sent_us = (frame["send_end_ns"] + frame["utc_offset_ns"]) / 1000
                # Ticks begin again with each camera process, so the time selects the frame, too.
                matching = [line for line in unknown if line["ticks"] == frame["ticks"] and abs(line["handed_over_us"] - sent_us) < 5e6]
                sent_count += 1
                if matching:
                    self.assertEqual(len(matching), 1, f"saved twice: {matching}")
                    unknown.remove(matching[0])
                elif frame["outcome"] == "sent" and not frame["unsent_packets"] and first < sent_us < last:
                    lost_count += 1
                    self.assertTrue(any(begin <= sent_us <= end for begin, end in self.outages),
                                    f"lost without a cause, {(sent_us - first) / 1e6:.2f} s after the first frame: {frame}")
        self.assertEqual(unknown, [], "saved frames that no camera sent")
        self.assertGreaterEqual(len(saved), RATE)
        print(f"{self.id()}: {sent_count} sent, {len(saved)} saved, {lost_count} lost while the cause lasted", flush=True)
        self.lost = lost_count
        for index in self.indexes():
            numbers = [line["frame"] for line in frame_lines(index)]
            self.assertEqual(numbers, sorted(set(numbers)), index)

    def check_files(self):
        """Each file opens in Pillow, and belongs to a line of the index; a killed recorder may leave one that has none."""
        for index in self.indexes():
            lines = {line["file"]: line for line in frame_lines(index)}
            files = {path.name for path in index.parent.iterdir() if path.name not in ("frames.jsonl", "segment.json")}
            self.assertLessEqual(len(files - set(lines)), 1, files - set(lines))
            self.assertEqual(set(lines) - files, set())
            for name in files:
                with (index.parent / name).open("rb") as file, Image.open(file) as image:
                    image.load()
                    self.assertEqual((image.format, image.size, image.mode), ("TIFF", (160, 120), "L"), index.parent / name)


class PowerFailure(ServiceCase):
    def test_of_everything_at_once(self):
        self.start()
        before = self.indexes()
        self.wait_for_frames_since(time.time(), RATE)
        begin = time.time()
        self.machine.power_off()
        self.cameras[0].lose()
        self.start_camera()
        self.machine.boot()
        self.recover(begin)
        self.assertEqual(len(self.indexes()), len(before) + 1)  # a new directory for each start
        self.check()


class LateNetwork(ServiceCase):
    TOKEN = "a-token-of-the-test-0123456789"

    def test_the_recorder_waits_for_its_network(self):
        """Camera, and address of the page, appear after the recorder."""
        self.machine.write("etc/credstore/mediagrabber-left.web-token", f"{self.TOKEN}\n", 0o600)
        self.configure(f"[web]\naddress = \"{ADDRESS}:8080\"\ntoken_file = \"/run/credentials/{UNIT}/web-token\"\n")
        self.start_camera()
        command("systemctl", f"--root={self.machine.root}", "mask", "systemd-networkd-wait-online.service")
        command("systemctl", f"--root={self.machine.root}", "enable", UNIT)
        self.machine.boot(network=False)
        wait_for(lambda: "no camera" in self.machine.journal(UNIT).lower(), "an attempt without a network")
        begin = time.time()
        self.machine.connect()
        self.recover(begin)
        wait_for(lambda: self.page_status(), "the live page")
        self.assertEqual(self.page_status({"Authorization": f"Bearer {self.TOKEN}"}), 200)
        self.assertEqual(self.page_status(), 401)
        self.assertEqual(self.machine.show(UNIT, "NRestarts"), "0")
        self.check()

    def page_status(self, headers=None):
        request = urllib.request.Request(f"http://{ADDRESS}:8080/status.json", headers=headers or {})
        try:
            return urllib.request.urlopen(request, timeout=10).status
        except urllib.error.HTTPError as refused:
            return refused.code
        except OSError:
            return None


class CameraAway(ServiceCase):
    AWAY_SECONDS = 120  # four times WatchdogSec

    def test_for_two_minutes_is_no_reason_to_end(self):
        self.start()
        process, directories = self.machine.show(UNIT, "MainPID"), self.indexes()
        begin = time.time()
        self.cameras[0].lose()
        # The time itself is what is tested: the watchdog must not end a recorder that waits on purpose.
        wait_for(lambda: time.time() > begin + self.AWAY_SECONDS, "the time without a camera", 2 * self.AWAY_SECONDS)
        self.start_camera()
        self.recover(begin)
        self.assertEqual(self.machine.show(UNIT, "MainPID"), process)
        self.assertEqual(self.machine.show(UNIT, "NRestarts"), "0")
        self.assertEqual(self.indexes(), directories)
        self.check()


class OtherDisk(ServiceCase):
    """Recordings on a disk of their own, with the example that the package brings."""

    EXAMPLE = "usr/share/doc/mediagrabber-jai/examples/service/other-disk.conf"

    def setUp(self):
        super().setUp()
        (self.machine.root / "srv/recordings").mkdir()
        self.configure(drop_in=(self.machine.root / self.EXAMPLE).read_text())

    def mount(self, options):
        self.machine.run("mount", "-t", "tmpfs", "-o", options, "tmpfs", "/srv/recordings")
        self.machine.run("install", "-d", "-o", "mediagrabber-left", "-g", "mediagrabber-left", "-m", "0750", "/srv/recordings/left")
        # Only the machine has mounted this disk, so its files are seen through a process of it.
        self.output = pathlib.Path(f"/proc/{self.machine.leader}/root/srv/recordings/left")


class FullDisk(OtherDisk):
    def test_and_space_again(self):
        self.start_camera()
        self.machine.boot()
        self.machine.systemctl("start", "mediagrabber-user@left.service")
        self.mount("size=64m")
        begin = time.time()
        self.machine.systemctl("enable", "--now", "--no-block", UNIT)
        self.wait_for_frames_since(begin)
        process = self.machine.show(UNIT, "MainPID")
        begin = time.time()
        self.machine.run("dd", "if=/dev/zero", "of=/srv/recordings/ballast", "bs=1M", check=False)
        wait_for(lambda: "No space left on device" in self.machine.journal(UNIT), "a message about the full disk")
        self.wait_until_nothing_is_saved()
        self.machine.run("rm", "/srv/recordings/ballast")
        self.recover(begin)
        self.assertEqual(self.machine.show(UNIT, "MainPID"), process)
        self.check()
        reported = re.search(r"dropped: 0 \(queue full\), (\d+) \(write errors\)", self.machine.journal(UNIT))
        self.assertEqual(int(reported[1]), self.lost)

    def wait_until_nothing_is_saved(self):
        """Waits until a second has passed without a saved frame."""
        seen = [len(self.saved()), time.time()]

        def unchanged():
            now = len(self.saved())
            if now != seen[0]:
                seen[:] = now, time.time()
            return time.time() > seen[1] + 1
        wait_for(unchanged, "a disk without space")


class MissingDisk(OtherDisk):
    def test_at_the_start(self):
        command("systemctl", f"--root={self.machine.root}", "enable", UNIT)
        self.start_camera()
        self.machine.boot()
        wait_for(lambda: int(self.machine.show(UNIT, "NRestarts")) >= 2, "two refused starts")
        self.assertEqual(list((self.machine.root / "srv/recordings").iterdir()), [])  # nothing on the disk below the place of the other one
        self.assertIn("status=11", self.machine.journal(UNIT))
        begin = time.time()
        self.mount("size=256m")
        self.recover(begin)
        self.check()


class BadReload(ServiceCase):
    def test_keeps_the_recording(self):
        self.start()
        process, directories = self.machine.show(UNIT, "MainPID"), self.indexes()
        for bad in ("[web]\naddress = \"no address\"\n", "[mqtt]\nbroker = \"http://elsewhere\"\n", "[ring]\nsocket = 7\n",
                    "[web]\naddress = \"0.0.0.0:8080\"\n", "[mqtt]\npassword_file = \"none\"\n"):
            with self.subTest(bad):
                self.machine.write("etc/mediagrabber/left.toml", CONFIGURATION + bad)
                refused = self.machine.journal(UNIT).count("/etc/mediagrabber/left.toml:")
                self.machine.systemctl("reload", UNIT)
                wait_for(lambda: self.machine.journal(UNIT).count("/etc/mediagrabber/left.toml:") > refused, "the position of the error")
                self.wait_for_frames_since(time.time(), 3)
        self.machine.write("etc/mediagrabber/left.toml", CONFIGURATION)
        self.machine.systemctl("reload", UNIT)
        self.wait_for_frames_since(time.time(), RATE)
        self.assertEqual((self.machine.show(UNIT, "MainPID"), self.machine.show(UNIT, "NRestarts")), (process, "0"))
        self.assertEqual(self.indexes(), directories)
        self.check()  # without an outage: no frame is lost


class Isolation(ServiceCase):
    """One user an instance, secrets, limits, and the examples of drop-ins."""

    EXAMPLES = "usr/share/doc/mediagrabber-jai/examples/service"
    SECRET = "etc/credstore/mediagrabber-left.mqtt-password"

    def may_read(self, path, *identity):
        return self.machine.run("setpriv", "--clear-groups", *identity, "head", "-c", "1", f"/{path}", check=False).returncode == 0

    def test_of_users_and_secrets(self):
        self.machine.write(self.SECRET, "a password\n", 0o600)
        self.start("[control]\ngroup = \"mediagrabber-left\"\n")
        self.machine.systemctl("start", "mediagrabber-user@right.service")
        recorded = self.indexes()[0].relative_to(self.machine.root)
        credential = f"run/credentials/{UNIT}/mqtt-password"
        left, right = (("--reuid", f"mediagrabber-{name}", "--regid", f"mediagrabber-{name}") for name in ("left", "right"))
        stranger, member = (("--reuid", "nobody", "--regid", group) for group in ("nogroup", "mediagrabber-left"))
        for path, readers in ((recorded, [left, member]), (credential, [left]), (self.SECRET, [])):
            for reader in (left, right, stranger, member):
                self.assertEqual(self.may_read(path, *reader), reader in readers, (path, reader))
        for operator in (right, stranger, member):
            done = self.machine.run("setpriv", "--clear-groups", *operator, "mediagrabber", "set", "--service", "left", "log.level=info",
                                    check=False)
            self.assertEqual(done.returncode == 0, operator == member, done.stdout + done.stderr)
        self.check()

    def test_of_limits_and_addresses(self):
        examples = self.machine.root / self.EXAMPLES
        self.start(drop_in=(examples / "network.conf").read_text() + (examples / "limits.conf").read_text())
        self.assertEqual(self.machine.show(UNIT, "MemoryMax"), str(2 << 30))
        self.assertEqual(self.machine.show(UNIT, "TasksMax"), "512")
        self.assertEqual(set(self.machine.show(UNIT, "IPAddressDeny").split()), {"::/0", "0.0.0.0/0"})
        self.assertIn("192.168.77.0/24", self.machine.show(UNIT, "IPAddressAllow"))
        self.assertNotEqual(self.machine.show("mediagrabber@other.service", "MemoryMax"), "infinity")
        self.wait_for_frames_since(time.time(), RATE)
        self.check()

    def test_of_an_address_that_is_not_allowed(self):
        """The same example without the camera's network, so that a filter without effect is noticed."""
        example = (self.machine.root / self.EXAMPLES / "network.conf").read_text()
        self.configure(drop_in=re.sub(r"(?m)^IPAddressAllow=192.*$", "", example))
        self.start_camera()
        self.machine.boot()
        self.machine.systemctl("enable", "--now", "--no-block", UNIT)
        wait_for(lambda: self.machine.journal(UNIT).count("no camera was found") > 2, "attempts without the camera")
        self.assertEqual(self.indexes() and self.saved(), [])


class Upgrade(ServiceCase):
    RESTART = "systemctl restart mediagrabber@left.service"

    def test_restarts_nothing_and_names_what_runs_the_old_version(self):
        self.start()
        process = self.machine.show(UNIT, "MainPID")
        self.machine.write("root/newer.deb", "")
        (self.machine.root / "root/newer.deb").write_bytes((IMAGES / "newer.deb").read_bytes())
        upgraded = self.machine.run("dpkg", "--install", "/root/newer.deb")
        self.assertIn("+newer", self.machine.run("dpkg-query", "--show", "mediagrabber-jai").stdout)
        self.assertIn(self.RESTART, upgraded.stdout)
        self.wait_for_frames_since(time.time(), RATE)
        self.assertEqual((self.machine.show(UNIT, "MainPID"), self.machine.show(UNIT, "NRestarts")), (process, "0"))
        begin = time.time()
        self.machine.run(*self.RESTART.split())
        self.recover(begin)
        configured = self.machine.run("/var/lib/dpkg/info/mediagrabber-jai.postinst", "configure", "0")
        self.assertNotIn("restart", configured.stdout)
        self.check()

    def test_removal_stops_the_service_and_keeps_its_files(self):
        self.start()
        self.wait_for_frames_since(time.time(), RATE)
        self.machine.run("dpkg", "--purge", "mediagrabber-jai")
        self.assertEqual(self.machine.show(UNIT, "ActiveState"), "inactive")
        self.check_account()
        self.check_files()
        self.assertTrue((self.machine.root / "etc/mediagrabber/left.toml").exists())


class Week(ServiceCase):
    """A week of clock time, in steps of an hour: the preloaded library moves the service's clock."""

    HOURS = 7 * 24
    KEEP_DAYS = 2

    def advance(self, hours):
        with (self.machine.root / "var/lib/troubles").open("r+b") as file:
            file.write(struct.pack("=q", hours * 3600))

    def test_with_segments_and_retention(self):
        import host_troubles
        library = pathlib.Path(host_troubles.LIBRARY)
        (self.machine.root / "opt/host_troubles.so").write_bytes(library.read_bytes())
        (self.machine.root / "var/lib/troubles").write_bytes(bytes(8 * len(host_troubles.FIELDS)))
        self.start(f"[output]\nformat = \"tiff\"\nsegment_s = 3600\nkeep_days = {self.KEEP_DAYS}\n",
                   "[Service]\nEnvironment=LD_PRELOAD=/opt/host_troubles.so HOST_TROUBLES=/var/lib/troubles\n")
        process = self.machine.show(UNIT, "MainPID")
        seen = {}
        for hour in range(1, self.HOURS + 1):
            known = set(self.indexes())
            self.advance(hour)
            wait_for(lambda: set(self.indexes()) - known, f"the segment of hour {hour}", RECOVERY_SECONDS)
            for index in known:
                if (index.parent / "segment.json").exists():
                    with contextlib.suppress(FileNotFoundError):  # the retention thread was faster
                        seen[index] = [line["frame"] for line in frame_lines(index)]
        self.assertEqual(self.machine.show(UNIT, "MainPID"), process)
        end_us = (time.time() + self.HOURS * 3600) * 1e6
        oldest = lambda: min(line["timestamp_us"] for line in self.saved())
        wait_for(lambda: end_us - oldest() < (self.KEEP_DAYS + 0.1) * 86400e6, "the deletion of old segments")
        left = self.indexes()
        self.assertLess(len(left), 24 * self.KEEP_DAYS + 5)
        self.assertGreater(len(left), 24 * self.KEEP_DAYS - 5)
        self.machine.systemctl("stop", UNIT)
        for index in left:
            seen[index] = [line["frame"] for line in frame_lines(index)]
        self.assertGreater(len(seen), self.HOURS - 3)
        numbers = sorted(number for one in seen.values() for number in one)
        self.assertEqual(len(numbers), len(set(numbers)))
        self.assertEqual(numbers[-1] - numbers[0] + 1, len(numbers), "frames between segments")
        self.assertLess(max(len(list(path.iterdir())) for path in (self.output, *self.output.glob("*"))), 100)
        self.check_files()


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
