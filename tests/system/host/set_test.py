"""`mediagrabber set`: values of a recording that goes on, changed over its socket."""

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

from host_process import MEDIAGRABBER, Recording, command, wait_for

SUCCESS, USAGE, NOBODY_THERE, NOT_CHANGEABLE, TIMED_OUT, NOT_TAKEN = 0, 2, 6, 7, 8, 9
MANUAL = "gain.mode = \"manual\"\nexposure.mode = \"manual\"\n"


class Listening:
    """A recording, and where it listens."""

    def __init__(self, script="grab", configuration=MANUAL):
        self.directory = tempfile.TemporaryDirectory()
        self.socket = pathlib.Path(self.directory.name) / "control"
        self.recording = Recording(script, configuration=f"control.socket = \"{self.socket}\"\n" + configuration)

    def __enter__(self):
        self.recording.__enter__()
        self.recording.wait_for_log(f"`mediagrabber set` reaches this recording at {self.socket}\n")
        return self

    def __exit__(self, *exception):
        self.recording.__exit__(*exception)
        self.directory.cleanup()

    def set(self, *settings):
        return command("set", "--socket", self.socket, *settings)

    def speak(self, text):
        """What is answered to a text that is sent as it is."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(30)
            connection.connect(str(self.socket))
            answer = b""
            try:
                connection.sendall(text)
                while part := connection.recv(65536):
                    answer += part
            except (ConnectionResetError, BrokenPipeError):
                pass  # hung up on, in the middle of the text
            return answer

    def stop(self):
        self.recording.signal(signal.SIGTERM)
        return self.recording.finish()


class Set(unittest.TestCase):
    def expect(self, done, status, *words):
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        for text in words:
            self.assertIn(text, done.stdout if status == SUCCESS else done.stderr)

    def test_is_answered_with_what_the_camera_has_when_it_has_it(self):
        with Listening() as host:
            host.recording.wait_for_frames(3)
            done = host.set("gain.db=6", "exposure.time_us=2000")
            self.expect(done, SUCCESS, "gain.db = 6\n", "exposure.time_us = 2000\n")
            self.assertIn("small change: gain 6.0 exposure 2000.0", host.recording.log)
            host.recording.wait_for_frames(len(host.recording.journal()) + 2)
            self.assertEqual(host.stop(), SUCCESS, host.recording.log)
            frames = host.recording.journal()
            self.assertEqual({(frame["gain_db"], frame["exposure_us"]) for frame in frames}, {(1.5, 250), (6, 2000)})
            self.assertEqual((frames[-1]["gain_db"], frames[-1]["exposure_us"]), (6, 2000))

    def test_of_the_frame_rate_reconfigures_the_plugin_and_begins_no_new_run(self):
        with Listening() as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("timing.frame_rate=50", "gain.db=3"), SUCCESS, "timing.frame_rate = 50\n", "gain.db = 3\n")
            self.assertIn("reconfigured 0 exit 0", host.recording.log)
            self.assertEqual(host.stop(), SUCCESS, host.recording.log)
            self.assertNotIn("run 1 ", host.recording.log)

    def test_takes_modes_lists_and_switches_with_and_without_quotes(self):
        with Listening(configuration="") as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.mode=auto", "gain.limits_db=[1, 6]", "auto.brightness=0.4", "auto.area=true"), SUCCESS,
                        "gain.mode = auto, applied; what the camera has is not reported\n")
            self.assertIn("bright 0.40", host.recording.log)
            self.expect(host.set("gain.mode=\"manual\"", "gain.db=2"), SUCCESS, "gain.db = 2\n")
            self.expect(host.set("log.level=debug"), SUCCESS)
            self.assertIn("level 4\n", host.recording.log)

    def test_adds_to_what_was_set_before(self):
        with Listening() as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.db=6"), SUCCESS)
            self.expect(host.set("exposure.time_us=2000"), SUCCESS)
            self.assertIn("small change: gain 6.0 exposure 2000.0", host.recording.log)

    def test_holds_until_the_file_is_reloaded(self):
        with Listening(configuration=MANUAL + "gain.db = 1\n") as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.db=6"), SUCCESS)
            host.recording.signal(signal.SIGHUP)
            host.recording.wait_for_log("reload: changed gain.db\n")
            wait_for(lambda: host.recording.journal()[-1]["gain_db"] == 1, "the gain of the file")

    def test_that_the_camera_does_not_take_is_told_with_what_it_has(self):
        with Listening("stubborn; grab") as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("gain.db=6", "exposure.time_us=2000"), NOT_TAKEN,
                        "gain.db: asked for 6, the camera has 1.5\n", "exposure.time_us: asked for 2000, the camera has 250\n")
            self.expect(host.set("timing.frame_rate=50"), NOT_TAKEN, "timing.frame_rate: asked for 50, the camera has 100\n")

    def test_refuses_what_it_does_not_know_or_what_is_out_of_range(self):
        with Listening() as host:
            host.recording.wait_for_frames(3)
            for settings, complaint in (
                    (["gain.dB=6"], "gain.dB: unknown, expected one of image.rotate, timing.frame_rate, "),
                    (["gain.db=99"], "gain.db: 99 is refused, expected a number from -60 to 60 (dB)\n"),
                    (["gain.db=six"], "gain.db: six is refused, expected a number"),
                    (["gain.db="], "gain.db:  is refused, expected a number"),
                    (["gain.db=6\nrun.frames=1"], "is refused, expected a number"),
                    (["gain.db"], "\"gain.db\": expected KEY=VALUE\n"),
                    (["=6"], "\"=6\": expected KEY=VALUE\n"),
                    (["gain.db=1", "gain.db=2"], "gain.db: given twice\n"),
                    (["gain.db=1", "exposure.time_us=0"], "exposure.time_us: 0 is refused"),
                    (["gain.limits_db=[1, 2]"], "gain.limits_db has no effect: it needs gain.mode = \"auto\"\n")):
                with self.subTest(settings):
                    self.expect(host.set(*settings), USAGE, complaint)
            self.assertNotIn("small change", host.recording.log)

    def test_refuses_what_cant_change_while_frames_arrive(self):
        with Listening() as host:
            host.recording.wait_for_frames(3)
            self.expect(host.set("image.width=320"), NOT_CHANGEABLE,
                        "image.width: can't be changed while frames arrive, change the configuration file and reload it")
            self.expect(host.set("gain.db=1", "output.directory=x"), NOT_CHANGEABLE, "and start mediagrabber again\n")
            self.assertNotIn("small change", host.recording.log)

    def test_that_nobody_listens_to_says_so(self):
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory) / "control"
            self.expect(command("set", "--socket", path, "gain.db=6"), NOBODY_THERE,
                        f"no mediagrabber listens at {path} (No such file or directory)")
            with socket.socket(socket.AF_UNIX) as dead:
                dead.bind(str(path))
            self.expect(command("set", "--socket", path, "gain.db=6"), NOBODY_THERE, "(Connection refused)")
        self.expect(command("set", "--socket", "x" * 200, "gain.db=6"), USAGE, "too long for a socket")

    def test_times_out_while_no_frames_arrive_and_is_applied_with_the_next_one(self):
        with Listening("idle") as host:
            host.recording.wait_for_log("idle")
            self.expect(host.set("--timeout", "0.2", "gain.db=6"), TIMED_OUT, "not applied within 0.2 s: no frames arrive")
        with Listening("frames 3; fetches 400 5; grab") as host:
            host.recording.wait_for_frames(2)
            self.expect(host.set("--timeout", "0.1", "gain.db=6"), TIMED_OUT)
            host.recording.wait_for_log("small change: gain 6.0")

    def test_that_waits_when_the_recording_ends_is_answered(self):
        with Listening("idle", "run.grace_time_s = 0.1\n" + MANUAL) as host:
            host.recording.wait_for_log("idle")
            waiting = subprocess.Popen([MEDIAGRABBER, "set", "--socket", str(host.socket), "--timeout", "600", "gain.db=6"],
                                       stderr=subprocess.PIPE, text=True)
            host.recording.signal(signal.SIGTERM)
            self.assertEqual(host.recording.finish(), 5, host.recording.log)
            _, complaint = waiting.communicate(timeout=30)
            self.assertIn(waiting.returncode, (NOBODY_THERE, TIMED_OUT), complaint)

    def test_wants_settings(self):
        self.assertEqual(command("set").returncode, USAGE)
        self.assertEqual(command("set", "--timeout", "0", "gain.db=1").returncode, USAGE)


class ControlSocket(unittest.TestCase):
    def test_is_the_users_own_and_gone_at_the_end(self):
        with Listening() as host:
            mode = host.socket.stat().st_mode
            self.assertTrue(stat.S_ISSOCK(mode))
            self.assertEqual(stat.S_IMODE(mode), 0o600)
            host.recording.wait_for_frames(3)
            self.assertEqual(host.stop(), SUCCESS)
            self.assertFalse(host.socket.exists())

    def test_is_gone_when_a_recording_is_cut_short(self):
        with Listening("frames 3; hang") as host:
            host.recording.wait_for_log("hang")
            host.recording.signal(signal.SIGTERM)
            host.recording.signal(signal.SIGINT)
            self.assertEqual(host.recording.finish(), 5)
            self.assertFalse(host.socket.exists())

    def test_has_its_place_in_the_runtime_directory_unless_it_is_configured(self):
        with tempfile.TemporaryDirectory() as runtime:
            os.environ["XDG_RUNTIME_DIR"] = runtime
            try:
                with Recording("grab", configuration=MANUAL + "log.instance = 7") as recording:
                    recording.wait_for_log(f"reaches this recording at {runtime}/mediagrabber.7.sock\n")
                    recording.wait_for_frames(3)
                    self.assertEqual(command("set", "--instance", "7", "gain.db=6").returncode, SUCCESS)
            finally:
                del os.environ["XDG_RUNTIME_DIR"]

    def test_can_be_done_without(self):
        with Recording("grab", "--frames", 5, configuration="control.socket = \"none\"") as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertNotIn("mediagrabber set", recording.log)

    def test_replaces_what_a_dead_process_left(self):
        with Listening() as host:
            host.recording.process.kill()
            host.recording.process.wait()
            self.assertTrue(host.socket.exists())
            with Recording("grab", "--frames", 5, configuration=f"control.socket = \"{host.socket}\"") as second:
                self.assertEqual(second.finish(), SUCCESS, second.log)
                self.assertIn(str(host.socket), second.log)

    def test_of_another_is_left_alone(self):
        with Listening() as host:
            with Recording("grab", configuration=f"control.socket = \"{host.socket}\"") as second:
                self.assertEqual(second.finish(), USAGE, second.log)
                self.assertIn("another mediagrabber listens there", second.log)
            host.recording.wait_for_frames(3)
            self.assertEqual(host.set("gain.db=6").returncode, SUCCESS)

    def test_that_cant_be_had_is_a_reason_to_end_only_where_it_was_asked_for(self):
        with tempfile.NamedTemporaryFile() as file:
            with Recording("grab", configuration=f"control.socket = \"{file.name}\"") as recording:
                self.assertEqual(recording.finish(), USAGE, recording.log)
                self.assertIn("there is something else", recording.log)
        os.environ["XDG_RUNTIME_DIR"] = "/nowhere"
        try:
            with Recording("grab", "--frames", 5) as recording:
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertIn("`mediagrabber set` can't reach this recording", recording.log)
        finally:
            del os.environ["XDG_RUNTIME_DIR"]

    def test_answers_nonsense_with_a_complaint(self):
        with Listening() as host:
            host.recording.wait_for_frames(3)
            for text in (b"\n", b"x\n", b"{}\n", b"[]\n", b"5\n", b"{\"set\": 5}\n", b"{\"set\": []}\n", b"{\"set\": [5]}\n",
                         b"{\"set\": [\"gain.db=1\"], \"timeout_s\": \"x\"}\n", b"{\"set\": [\"gain.db=1\"], \"timeout_s\": 1e9}\n",
                         b"{\"set\": [\"\\ud800=1\"]}\n", b"{\"set\": [\"\xff\xfe=1\"]}\n", b"[" * 60000 + b"\n",
                         b"{\"set\": [\"a\xc3\xa4=1\"]}\n"):
                with self.subTest(text[:40]):
                    answer = json.loads(host.speak(text))
                    self.assertEqual(answer["status"], USAGE)
                    self.assertTrue(answer["lines"])
            self.assertEqual(host.speak(b"x" * 200000), b"")
            self.assertEqual(host.set("gain.db=6").returncode, SUCCESS)
            self.assertEqual(host.stop(), SUCCESS, host.recording.log)

    def test_outlasts_those_who_say_nothing_or_leave(self):
        with Listening() as host:
            host.recording.wait_for_frames(3)
            with socket.socket(socket.AF_UNIX) as silent:
                silent.connect(str(host.socket))
                with socket.socket(socket.AF_UNIX) as leaving:
                    leaving.connect(str(host.socket))
                    leaving.sendall(b"{\"set\": [\"gain.db=5\"]}\n")
                self.assertEqual(host.set("gain.db=6").returncode, SUCCESS)
                self.assertEqual(host.stop(), SUCCESS, host.recording.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
