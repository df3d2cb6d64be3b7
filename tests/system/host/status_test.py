# SPDX-License-Identifier: MIT
"""`mediagrabber status`, `get` and `list` ask running recordings over their control sockets; names of recordings."""

import contextlib
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from unittest import mock

from camera_process import FaultyCamera
from host_process import MEDIAGRABBER, Recording, command
from waiting import wait_for
from web_client import get as get_page

SUCCESS, USAGE, NO_RECORDING, TIMED_OUT = 0, 2, 6, 8
MANUAL = "gain.auto = \"Off\"\nexposure.auto = \"Off\"\n"
# More than the second that each recording is given, less than a client's usual timeout.
LIST_SECONDS = 4


def named(name, text=MANUAL):
    return f"camera.name = \"{name}\"\n{text}"


def status(*arguments):
    done = command("status", "--json", *arguments)
    if done.returncode != SUCCESS:
        raise AssertionError(done.stderr)
    return json.loads(done.stdout)


class Status(unittest.TestCase):
    def test_has_the_state_and_the_counts_of_the_only_recording(self):
        with Recording("devices 1; grab", configuration=named("left", MANUAL + "timing.frame_rate_hz = 100\n")) as recording:
            recording.wait_for_frames(5)
            found = status()
            self.assertEqual((found["name"], found["state"], found["waiting_reason"]), ("left", "recording", None))
            self.assertGreaterEqual(found["counts"]["saved"], 5)
            self.assertEqual((found["counts"]["dropped_queue_full"], found["counts"]["dropped_write_error"]), (0, 0))
            self.assertEqual(found["directory"], str(recording.output))
            self.assertGreater(found["free_bytes"], 0)
            self.assertEqual(found["plugin"], "fake 1.0")
            self.assertRegex(found["version"], r"^[0-9.]+$")
            self.assertGreaterEqual(found["newest"]["frame"], 5)
            self.assertGreater(found["uptime_s"], 0)
            self.assertIsNone(found["page"])
            self.assertEqual(dict(found["camera"])["DeviceModel"], "Fake 0")

    def test_is_readable_by_people(self):
        with Recording("grab", configuration=named("left")) as recording:
            recording.wait_for_frames(5)
            shown = command("status").stdout
            self.assertRegex(shown, r"\Aname      left\nstate     recording\n")
            self.assertRegex(shown, rf"(?m)^output    {recording.output}, [0-9.]+ GB free$")
            self.assertRegex(shown, r"(?m)^frames    \d+ saved, dropped: 0 \(queue full\), 0 \(write errors\); ")
            self.assertRegex(shown, r"(?m)^versions  mediagrabber [0-9.]+, plug-in fake 1\.0$")

    def test_has_the_terms_of_the_page(self):
        with Recording("grab", configuration=MANUAL + "web.address = \"127.0.0.1:0\"\n") as recording:
            recording.wait_for_frames(3)
            recording.wait_for_log("live page: http://")
            port = int(re.search(r"http://[^ ]*:(\d+)", recording.log)[1])
            page = json.loads(get_page(port, "/status.json")[1])
            self.assertEqual(page["page"], f"http://127.0.0.1:{port}/")
            self.assertEqual(status()["page"], f"http://127.0.0.1:{port}/")
            self.assertEqual(set(page) - {"histogram", "tone"}, set(status()))
            self.assertEqual(set(page["counts"]), set(status()["counts"]))

    def test_counts_packets_of_the_camera(self):
        region = "[image]\nwidth = 320\nheight = 240\n[timing]\nframe_rate_hz = 100\n[run]\ngive_up_after = \"never\"\n"
        with FaultyCamera() as camera, Recording("", plugin=os.environ["MGJAI"], configuration=region) as recording:
            recording.wait_for_frames(3)
            self.assertIn("GO-5100M-PGE", dict(status()["camera"]).values())
            camera.start_fault("packet_loss", probability=0.5)  # losses are reported after 10 s, resent packets alone after 60 s
            wait_for(lambda: status()["counts"]["packets_lost"] > 0, "lost packets")
            self.assertRegex(command("status").stdout, r"(?m)^packets   [1-9]\d* lost, ")

    def test_says_why_a_recording_waits(self):
        text = "run.give_up_after = \"never\"\nrun.retry_interval_s = 600\n"
        with Recording("exit -10", configuration=named("left", text)) as recording:
            wait_for(lambda: recording.log.count("frames stopped arriving"), "the first failure")
            wait_for(lambda: status()["state"] == "waiting", "the state")
            self.assertIn("frames stopped arriving", status()["waiting_reason"])
            self.assertIn("state     waiting: frames stopped arriving", command("status").stdout)

    def test_is_answered_while_a_change_waits_for_a_frame(self):
        with Recording("idle", configuration=MANUAL + "run.grace_time_s = 0.1\n") as recording:
            recording.wait_for_log("\nidle\n")
            with subprocess.Popen([MEDIAGRABBER, "set", "--timeout", "600", "gain.db=6"], stderr=subprocess.PIPE) as waiting:
                begun = time.monotonic()
                for _ in range(5):
                    self.assertEqual(status()["state"], "starting")
                self.assertLess(time.monotonic() - begun, LIST_SECONDS)
                self.assertIsNone(waiting.poll())
                recording.signal(signal.SIGTERM)
                waiting.communicate()

    def test_needs_exactly_one_recording_to_choose(self):
        done = command("status")
        self.assertEqual(done.returncode, NO_RECORDING)
        self.assertIn("no recording of this user is running", done.stderr)
        with Recording("grab", configuration=named("left")) as left, Recording("grab", configuration=named("right")) as right:
            left.wait_for_frames(1)
            right.wait_for_frames(1)
            done = command("status")
            self.assertEqual(done.returncode, NO_RECORDING)
            self.assertRegex(done.stderr, r"2 recordings of this user .* --name: .*mediagrabber\.left\.sock, .*mediagrabber\.right\.sock\n")
            self.assertEqual(status("--name", "right")["name"], "right")
            self.assertEqual(status("--socket", pathlib.Path(os.environ["XDG_RUNTIME_DIR"]) / "mediagrabber.left.sock")["name"], "left")


class Get(unittest.TestCase):
    def test_prints_values_of_the_configuration_and_of_the_camera(self):
        with Recording("grab", configuration=MANUAL + "gain.db = 3\ncamera.model = \"M\"\n") as recording:
            recording.wait_for_frames(3)
            self.assertEqual(command("set", "gain.db=6").returncode, SUCCESS)
            recording.wait_for_frames(len(recording.frame_index()) + 2)
            done = command("get", "gain.db", "camera.model", "gain.limits_db")
            self.assertEqual(done.returncode, SUCCESS, done.stderr)
            self.assertEqual(done.stdout, "gain.db = 6  # the camera has 6\ncamera.model = \"M\"\n"
                                          "# gain.limits_db is not configured: as set in the camera\n")
            found = json.loads(command("get", "--json", "gain.db", "gain.limits_db", "line").stdout)
            self.assertEqual(found, {"gain.db": {"configured": 6, "actual": 6}, "gain.limits_db": {"configured": None},
                                     "line": {"configured": []}})

    def test_names_the_nearest_keys_of_an_unknown_one(self):
        with Recording("grab") as recording:
            recording.wait_for_frames(1)
            for words in (["get", "exposure.time"], ["set", "exposure.time=5"]):
                done = command(*words)
                self.assertEqual(done.returncode, USAGE)
                self.assertRegex(done.stderr, r"\Amediagrabber: exposure\.time: unknown key; did you mean exposure\.time_us.*\? "
                                              r"`mediagrabber keys` lists all\n\Z")


class List(unittest.TestCase):
    def setUp(self):
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run"], check=True)
        self.user = tempfile.TemporaryDirectory()
        self.service = pathlib.Path("/run/mediagrabber-door")
        self.service.mkdir()
        self.enterContext(self.user)
        self.enterContext(mock.patch.dict(os.environ, XDG_RUNTIME_DIR=self.user.name))

    def start(self, runtime, name, configuration=MANUAL):
        with mock.patch.dict(os.environ, XDG_RUNTIME_DIR=str(runtime)):
            recording = self.enterContext(Recording("grab", configuration=configuration, environment={"MEDIAGRABBER_NAME": name}))
        recording.wait_for_frames(1)
        return recording

    def stuck(self, name):
        """A process that accepts connections and never answers."""
        listener = self.enterContext(socket.socket(socket.AF_UNIX))
        listener.bind(f"{self.user.name}/mediagrabber.{name}.sock")
        listener.listen()

    def test_has_recordings_of_this_user_and_services(self):
        self.start(self.user.name, "left")
        self.start(self.service, "door")
        done = command("list")
        self.assertEqual(done.returncode, SUCCESS, done.stderr)
        self.assertRegex(done.stdout, r"(?m)^left +recording +.*/mediagrabber\.left\.sock: \d+ frames saved, 0 dropped")
        self.assertRegex(done.stdout, r"(?m)^door +recording +mediagrabber@door: \d+ frames saved, 0 dropped")
        found = json.loads(command("list", "--json").stdout)
        self.assertEqual({(one["status"]["name"], one["service"]) for one in found}, {("left", None), ("door", "door")})

    def test_names_a_recording_once(self):
        with mock.patch.dict(os.environ, XDG_RUNTIME_DIR=str(self.service)):
            self.start(self.service, "door")
            self.assertEqual(len(json.loads(command("list", "--json").stdout)), 1)

    def test_does_not_hang_with_recordings_that_do_not_answer(self):
        self.start(self.user.name, "left")
        for i in range(8):
            self.stuck(f"stuck{i}")
        begun = time.monotonic()
        done = command("list")
        self.assertLess(time.monotonic() - begun, LIST_SECONDS)
        self.assertEqual(done.returncode, TIMED_OUT)
        self.assertIn("left ", done.stdout)
        self.assertEqual(len(re.findall(r"(?m)^\? +\? +.*/mediagrabber\.stuck\d\.sock: no answer", done.stdout)), 8, done.stdout)
        errors = [one for one in json.loads(command("list", "--json").stdout) if "error" in one]
        self.assertEqual(len(errors), 8)

    def test_leaves_out_sockets_of_dead_processes(self):
        recording = self.start(self.user.name, "left")
        recording.process.kill()
        recording.process.wait()
        self.assertTrue((pathlib.Path(self.user.name) / "mediagrabber.left.sock").exists())
        done = command("list")
        self.assertEqual((done.returncode, done.stdout), (SUCCESS, ""))
        self.assertIn("no recording of this user and no service is running", done.stderr)
        self.assertEqual(command("list", "--json").stdout, "[]\n")


class Name(unittest.TestCase):
    def test_is_in_directory_log_and_control_socket(self):
        with tempfile.TemporaryDirectory() as place:
            output = pathlib.Path(place) / "{name}"
            with Recording("grab", "--frames", 5, configuration=named("left"), output=output) as recording:
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertTrue((pathlib.Path(place) / "left/frames.jsonl").exists())
                self.assertIn(f"mediagrabber[left]: info: recording left to {place}/left with plug-in fake 1.0\n", recording.log)
                self.assertIn("/mediagrabber.left.sock\n", recording.log)

    def test_of_a_service_is_that_of_its_instance(self):
        with Recording("grab", environment={"MEDIAGRABBER_NAME": "door"}) as recording:
            recording.wait_for_frames(1)
            self.assertEqual(status()["name"], "door")

    def test_is_the_number_by_default(self):
        with Recording("grab", configuration="log.instance = 7") as recording:
            recording.wait_for_frames(1)
            self.assertEqual((status()["name"], status()["instance"]), ("7", 7))
            self.assertIn("mediagrabber: info: recording 7 to ", recording.log)

    def test_is_a_label_of_the_metrics(self):
        with Recording("grab", configuration=named("left", "web.address = \"127.0.0.1:0\"\n")) as recording:
            recording.wait_for_log("live page: http://")
            port = int(re.search(r"http://[^ ]*:(\d+)", recording.log)[1])
            lines = [line for line in get_page(port, "/metrics")[1].decode().splitlines() if not line.startswith("#")]
            self.assertGreater(len(lines), 20)
            for line in lines:
                self.assertIn('name="left"', line)

    def test_that_is_invalid_is_refused(self):
        with Recording("grab", configuration="camera.name = \"a/b\"") as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertIn(":2:15: camera.name: 'a/b' is not valid, expected a name of 1 to 32 bytes, printable, without / +", recording.log)
        with Recording("grab", environment={"MEDIAGRABBER_NAME": "a/b"}) as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertIn("$MEDIAGRABBER_NAME: \"a/b\" is not valid", recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
