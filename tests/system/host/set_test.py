# SPDX-License-Identifier: MIT
"""`mediagrabber set` changes values of a running recording over its control socket."""

import contextlib
import json
import os
import pathlib
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import unittest
from unittest import mock

from host_process import MEDIAGRABBER, Recording, command
from waiting import wait_for

SUCCESS, USAGE, NO_RECORDING, NOT_CHANGEABLE, TIMED_OUT, NOT_TAKEN, UNAVAILABLE = 0, 2, 6, 7, 8, 9, 11
MANUAL = "gain.auto = \"Off\"\nexposure.auto = \"Off\"\n"


class ControlledRecording:
    """A recording with a control socket."""

    def __init__(self, script="grab", configuration=MANUAL):
        self.directory = tempfile.TemporaryDirectory()
        self.socket = pathlib.Path(self.directory.name) / "control"
        self.recording = Recording(script, configuration=f"control.socket = \"{self.socket}\"\n" + configuration)

    def __enter__(self):
        self.recording.__enter__()
        self.recording.wait_for_log(f"control socket for `mediagrabber set`: {self.socket}\n")
        return self

    def __exit__(self, *exception):
        self.recording.__exit__(*exception)
        self.directory.cleanup()

    def set(self, *settings):
        return command("set", "--socket", self.socket, *settings)

    def send_raw(self, text):
        """The answer to a request that is sent unchanged."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(30)
            connection.connect(str(self.socket))
            answer = b""
            try:
                connection.sendall(text)
                while part := connection.recv(65536):
                    answer += part
            except (ConnectionResetError, BrokenPipeError):
                pass  # mediagrabber closed the connection before the end of the request
            return answer

    def stop(self):
        self.recording.signal(signal.SIGTERM)
        return self.recording.finish()


class Set(unittest.TestCase):
    def expect(self, done, status, *words):
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        for text in words:
            self.assertIn(text, done.stdout if status == SUCCESS else done.stderr)

    def expect_one_change(self, host):
        """The next change is the first one that reaches the plug-in."""
        self.expect(host.set("gain.db=1"), SUCCESS)
        self.assertEqual(host.stop(), SUCCESS, host.recording.log)
        self.assertEqual(host.recording.log.count("small change"), 1, host.recording.log)

    def test_answers_with_the_camera_values_once_they_are_active(self):
        with ControlledRecording() as host:
            host.recording.wait_for_frames(3)
            done = host.set("gain.db=6", "exposure.time_us=2000")
            self.expect(done, SUCCESS, "gain.db = 6\n", "exposure.time_us = 2000\n")
            host.recording.wait_for_log("small change: gain 6.0 exposure 2000.0")
            host.recording.wait_for_frames(len(host.recording.frame_index()) + 2)
            self.assertEqual(host.stop(), SUCCESS, host.recording.log)
            frames = host.recording.frame_index()
            self.assertEqual({(frame["gain_db"], frame["exposure_us"]) for frame in frames}, {(1.5, 250), (6, 2000)})
            self.assertEqual((frames[-1]["gain_db"], frames[-1]["exposure_us"]), (6, 2000))

    def test_of_the_frame_rate_reconfigures_the_plugin_without_a_restart(self):
        with ControlledRecording() as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("timing.frame_rate_hz=50", "gain.db=3"), SUCCESS, "timing.frame_rate_hz = 50\n", "gain.db = 3\n")
            host.recording.wait_for_log("reconfigured 0 exit 0")
            self.assertEqual(host.stop(), SUCCESS, host.recording.log)
            self.assertNotIn("run 1 ", host.recording.log)

    def test_accepts_strings_lists_and_booleans_with_and_without_quotes(self):
        with ControlledRecording(configuration="") as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.auto=Continuous", "gain.limits_db=[1, 6]", "auto.brightness=0.4", "auto.area=true"), SUCCESS,
                        "gain.auto = Continuous, applied; the camera does not report this value\n")
            host.recording.wait_for_log("bright 0.40")
            self.expect(host.set("gain.auto=\"Off\"", "gain.db=2"), SUCCESS, "gain.db = 2\n")
            self.expect(host.set("log.level=debug"), SUCCESS)
            host.recording.wait_for_log("level 4\n")

    def test_keeps_values_that_were_set_before(self):
        with ControlledRecording() as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.db=6"), SUCCESS)
            self.expect(host.set("exposure.time_us=2000"), SUCCESS)
            host.recording.wait_for_log("small change: gain 6.0 exposure 2000.0")

    def test_is_overridden_by_a_reload(self):
        with ControlledRecording(configuration=MANUAL + "gain.db = 1\n") as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.db=6"), SUCCESS)
            host.recording.signal(signal.SIGHUP)
            host.recording.wait_for_log("reload: changed gain.db\n")
            wait_for(lambda: host.recording.frame_index()[-1]["gain_db"] == 1, "the gain of the file")

    def test_reports_the_camera_value_if_the_camera_refuses(self):
        with ControlledRecording("stubborn; grab") as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.db=6", "exposure.time_us=2000"), NOT_TAKEN,
                        "gain.db: requested 6, but the camera has 1.5\n", "exposure.time_us: requested 2000, but the camera has 250\n")
            self.expect(host.set("timing.frame_rate_hz=50"), NOT_TAKEN, "timing.frame_rate_hz: requested 50, but the camera has 100\n")

    def test_refuses_unknown_keys_and_invalid_values(self):
        with ControlledRecording() as host:
            host.recording.wait_for_frames(3)
            for settings, error in (
                    (["gain.Bd=6"], "gain.Bd: unknown key; did you mean gain.db? `mediagrabber keys` lists all\n"),
                    (["gain.db=99"], "gain.db: 99 is not valid, expected a number from -60 to 60 (dB)\n"),
                    (["gain.db=six"], "gain.db: six is not valid, expected a number"),
                    (["gain.db="], "gain.db:  is not valid, expected a number"),
                    (["gain.db=6\nrun.frames=1"], "is not valid, expected a number"),
                    (["gain.db"], "\"gain.db\": expected KEY=VALUE\n"),
                    (["=6"], "\"=6\": expected KEY=VALUE\n"),
                    (["gain.db=1", "gain.db=2"], "gain.db: given twice\n"),
                    (["gain.db=1", "exposure.time_us=0"], "exposure.time_us: 0 is not valid"),
                    (["gain.limits_db=[1, 2]"], "gain.limits_db has no effect: it requires gain.auto = \"Continuous\"\n")):
                with self.subTest(settings):
                    self.expect(host.set(*settings), USAGE, error)
            self.expect_one_change(host)

    def test_refuses_keys_that_cannot_change_while_frames_arrive(self):
        with ControlledRecording() as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("image.width=320"), NOT_CHANGEABLE,
                        "image.width: cannot be changed while frames arrive; edit the configuration file and reload it")
            self.expect(host.set("gain.db=1", "output.directory=x"), NOT_CHANGEABLE, "and restart mediagrabber\n")
            self.expect_one_change(host)

    def test_reports_that_no_recording_is_running(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "control"
            self.expect(command("set", "--socket", path, "gain.db=6"), NO_RECORDING,
                        f"no mediagrabber listens at {path} (No such file or directory)")
            with socket.socket(socket.AF_UNIX) as closed:
                closed.bind(str(path))
            self.expect(command("set", "--socket", path, "gain.db=6"), NO_RECORDING, "(Connection refused)")
        self.expect(command("set", "--socket", "x" * 200, "gain.db=6"), USAGE, "too long for a socket")

    def test_times_out_without_frames_and_is_applied_with_the_next_one(self):
        with ControlledRecording("idle") as host:
            host.recording.wait_for_log("\nidle\n")
            self.expect(host.set("--timeout", "0.2", "gain.db=6"), TIMED_OUT, "not applied within 0.2 s: no frames arrive")
        with ControlledRecording("frames 3; await GATE; grab") as host:
            host.recording.wait_for_frames(2)
            self.expect(host.set("--timeout", "0.1", "gain.db=6"), TIMED_OUT)
            host.recording.open_gate()
            host.recording.wait_for_log("small change: gain 6.0")

    def test_is_answered_when_the_recording_ends(self):
        with ControlledRecording("idle", "run.grace_time_s = 0.1\n" + MANUAL) as host:
            host.recording.wait_for_log("\nidle\n")
            waiting = subprocess.Popen([MEDIAGRABBER, "set", "--socket", str(host.socket), "--timeout", "600", "gain.db=6"],
                                       stderr=subprocess.PIPE, text=True)
            host.recording.signal(signal.SIGTERM)
            self.assertEqual(host.recording.finish(), 5, host.recording.log)
            _, error = waiting.communicate(timeout=30)
            self.assertIn(waiting.returncode, (NO_RECORDING, TIMED_OUT), error)

    def test_needs_settings_and_a_valid_timeout(self):
        self.assertEqual(command("set").returncode, USAGE)
        self.assertEqual(command("set", "--timeout", "0", "gain.db=1").returncode, USAGE)


class ControlSocket(unittest.TestCase):
    def test_is_private_to_the_user_and_removed_at_the_end(self):
        with ControlledRecording() as host:
            mode = host.socket.stat().st_mode
            self.assertTrue(stat.S_ISSOCK(mode))
            self.assertEqual(stat.S_IMODE(mode), 0o600)
            host.recording.wait_for_frames(3)
            self.assertEqual(host.stop(), SUCCESS)
            self.assertFalse(host.socket.exists())

    def test_is_removed_when_a_recording_is_cut_short(self):
        with ControlledRecording("frames 3; hang") as host:
            host.recording.wait_for_log("\nhang\n")
            host.recording.signal(signal.SIGTERM)
            host.recording.signal(signal.SIGINT)
            self.assertEqual(host.recording.finish(), 5)
            self.assertFalse(host.socket.exists())

    def test_is_in_the_runtime_directory_by_default(self):
        with tempfile.TemporaryDirectory() as runtime:
            with mock.patch.dict(os.environ, XDG_RUNTIME_DIR=runtime), \
                    Recording("grab", configuration=MANUAL + "log.instance = 7") as recording:
                recording.wait_for_log(f"control socket for `mediagrabber set`: {runtime}/mediagrabber.7.sock\n")
                recording.wait_for_frames(3)
                self.assertEqual(command("set", "--name", "7", "gain.db=6").returncode, SUCCESS)

    def test_can_be_disabled(self):
        with Recording("grab", "--frames", 5, configuration="control.socket = \"none\"") as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertNotIn("mediagrabber set", recording.log)

    def test_replaces_the_socket_of_a_dead_process(self):
        with ControlledRecording() as host:
            host.recording.process.kill()
            host.recording.process.wait()
            self.assertTrue(host.socket.exists())
            with Recording("grab", "--frames", 5, configuration=f"control.socket = \"{host.socket}\"") as second:
                self.assertEqual(second.finish(), SUCCESS, second.log)
                self.assertIn(str(host.socket), second.log)

    def test_of_another_process_is_not_replaced(self):
        with ControlledRecording() as host:
            with Recording("grab", configuration=f"control.socket = \"{host.socket}\"") as second:
                self.assertEqual(second.finish(), UNAVAILABLE, second.log)
                self.assertIn("another mediagrabber listens there", second.log)
            host.recording.wait_for_frames(3)
            self.assertEqual(host.set("gain.db=6").returncode, SUCCESS)

    def test_that_cannot_be_created_is_an_error_only_if_configured(self):
        with tempfile.NamedTemporaryFile() as file:
            with Recording("grab", configuration=f"control.socket = \"{file.name}\"") as recording:
                self.assertEqual(recording.finish(), UNAVAILABLE, recording.log)
                self.assertIn("the path exists and is not a socket", recording.log)
        with mock.patch.dict(os.environ, XDG_RUNTIME_DIR="/nowhere"), Recording("grab", "--frames", 5) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertIn("recording without `mediagrabber set`", recording.log)

    def test_with_a_full_queue_blocks_neither_a_recording_nor_a_client(self):
        with tempfile.TemporaryDirectory() as directory, socket.socket(socket.AF_UNIX) as stuck:
            path = pathlib.Path(directory) / "control"
            stuck.bind(str(path))
            stuck.listen(0)
            with contextlib.ExitStack() as clients:
                with self.assertRaises(BlockingIOError):
                    while True:
                        client = clients.enter_context(socket.socket(socket.AF_UNIX))
                        client.setblocking(False)
                        client.connect(str(path))
                with Recording("grab", configuration=f"control.socket = \"{path}\"") as recording:
                    self.assertEqual(recording.finish(), UNAVAILABLE, recording.log)
                    self.assertIn("another mediagrabber listens there", recording.log)
                done = command("set", "--socket", path, "gain.db=6")
                self.assertEqual(done.returncode, TIMED_OUT, done.stderr)
                self.assertIn(f"the process at {path} does not accept connections", done.stderr)

    def test_is_open_to_a_group(self):
        # The only group of the namespace that this test has.
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "control"
            with Recording("grab", configuration=MANUAL + f"control.socket = \"{path}\"\ncontrol.group = \"root\"") as recording:
                recording.wait_for_frames(3)
                self.assertEqual(stat.S_IMODE(path.stat().st_mode), 0o660)
                self.assertEqual(command("set", "--socket", path, "gain.db=6").returncode, SUCCESS)

    def test_answers_malformed_requests_with_an_error(self):
        with ControlledRecording() as host:
            host.recording.wait_for_frames(3)
            for text in (b"\n", b"x\n", b"{}\n", b"[]\n", b"5\n", b"{\"set\": 5}\n", b"{\"set\": []}\n", b"{\"set\": [5]}\n",
                         b"{\"set\": [\"gain.db=1\"], \"timeout_s\": \"x\"}\n", b"{\"set\": [\"gain.db=1\"], \"timeout_s\": 1e9}\n",
                         b"{\"set\": [\"\\ud800=1\"]}\n", b"{\"set\": [\"\xff\xfe=1\"]}\n", b"[" * 60000 + b"\n",
                         b"{\"set\": [\"a\xc3\xa4=1\"]}\n"):
                with self.subTest(text[:40]):
                    answer = json.loads(host.send_raw(text))
                    self.assertEqual(answer["status"], USAGE)
                    self.assertTrue(answer["lines"])
            self.assertEqual(host.send_raw(b"x" * 200000), b"")
            self.assertEqual(host.set("gain.db=6").returncode, SUCCESS)
            self.assertEqual(host.stop(), SUCCESS, host.recording.log)

    def test_tolerates_idle_and_disconnecting_clients(self):
        with ControlledRecording() as host:
            host.recording.wait_for_frames(3)
            with socket.socket(socket.AF_UNIX) as silent:
                silent.connect(str(host.socket))
                with socket.socket(socket.AF_UNIX) as leaving:
                    leaving.connect(str(host.socket))
                    leaving.sendall(b"{\"set\": [\"gain.db=5\"]}\n")
                self.assertEqual(host.set("gain.db=6").returncode, SUCCESS)
                self.assertEqual(host.stop(), SUCCESS, host.recording.log)


class ServiceName(unittest.TestCase):
    """`--service NAME` finds the control socket of mediagrabber@NAME in its runtime directory."""

    def test_addresses_its_recording(self):
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run"], check=True)
        runtime = pathlib.Path("/run/mediagrabber-left")
        runtime.mkdir()
        with mock.patch.dict(os.environ, XDG_RUNTIME_DIR=str(runtime)), \
                Recording("grab", configuration=MANUAL + "log.instance = 7") as recording:
            recording.wait_for_frames(3)
            done = command("set", "--service", "left", "gain.db=6")
            self.assertEqual((done.returncode, done.stdout), (SUCCESS, "gain.db = 6\n"), done.stderr)
            for word, code in (("reload", 2), ("lut", 3), ("stop", 1)):
                done = command("signal", "--service", "left", word)
                self.assertEqual((done.returncode, done.stderr), (SUCCESS, ""))
                recording.wait_for_log(f"signal {code}\n")
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
        done = command("set", "--service", "left", "gain.db=6")
        self.assertEqual(done.returncode, NO_RECORDING)
        self.assertIn("the service mediagrabber@left has no control socket in /run/mediagrabber-left", done.stderr)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
