# SPDX-License-Identifier: MIT
"""mediagrabber.Recorder and mediagrabber.Camsim with the programs of this build."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import tomllib
import unittest
import unittest.mock

import numpy
from mediagrabber import Camsim, CamsimError, FrameRing, Recorder, RecorderError, open_recording
from mediagrabber._configuration import toml_text

from waiting import wait_for

MEDIAGRABBER, CAMSIM = os.environ["MEDIAGRABBER"], os.environ["CAMSIM"]
DEADLINE_SECONDS = 60
REGION = {"image": {"width": 320, "height": 240}, "timing.frame_rate_hz": 50, "memory.export_buffers": 200}
MANUAL = {**REGION, "gain": {"auto": "Off", "db": 0.0}, "exposure.auto": "Off"}


class RecorderTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = pathlib.Path(temporary.name)
        self.output = self.root / "frames"

    def camera(self, *options):
        camera = Camsim(*options, program=CAMSIM)
        camera.start()
        self.addCleanup(camera.close)
        self.addCleanup(lambda: camera._process and camera.stop())
        return camera

    def recorder(self, camera, configuration=None, **options):
        return camera.recorder(REGION if configuration is None else configuration, program=MEDIAGRABBER,
                               **{"output": self.output, "start_timeout": DEADLINE_SECONDS, **options})


class Recording(RecorderTest):
    def test_ends_with_a_summary(self):
        with self.recorder(self.camera(), {**REGION, "camera.name": "left"}, frames=20) as recorder:
            summary = recorder.wait(DEADLINE_SECONDS)
        self.assertEqual((summary.status, summary.saved, summary.dropped_queue_full, summary.dropped_write_error), (0, 20, 0, 0))
        self.assertTrue(summary.is_complete)
        self.assertEqual(summary.meaning, "everything requested was recorded")
        self.assertRegex(summary.text, rf"^20 frames saved, .* in {self.output}\ndropped: 0 \(queue full\)")
        self.assertEqual(len(open_recording(self.output)), 20)
        self.assertFalse(recorder.is_running)

    def test_that_ends_before_its_status_is_read_has_started(self):
        with unittest.mock.patch.object(Recorder, "_has_frame", return_value=False):
            with self.recorder(self.camera(), {**REGION, "camera.name": "left"}, frames=3) as recorder:
                self.assertEqual((recorder.directory, recorder.wait(DEADLINE_SECONDS).saved), (self.output, 3))

    def test_is_stopped(self):
        with self.recorder(self.camera()) as recorder:
            self.assertTrue(recorder.is_running)
            self.assertEqual(recorder.directory, self.output)
            summary = recorder.stop()
        self.assertEqual((summary.status, summary.saved), (0, len(open_recording(self.output))))
        self.assertGreaterEqual(summary.saved, 1)

    def test_is_stopped_at_the_end_of_the_context(self):
        with self.recorder(self.camera()) as recorder:
            process_id = recorder.process_id
        self.assertFalse(pathlib.Path(f"/proc/{process_id}").exists())
        self.assertIn("frames saved", recorder.log)

    def test_that_is_not_complete_raises_at_the_end_of_the_context(self):
        with self.assertRaisesRegex(RecorderError, "not complete .status 1: frames were lost") as caught:
            with self.recorder(self.camera(), frames=100_000):
                pass
        self.assertEqual(caught.exception.status, 1)
        self.assertIn("frames saved", caught.exception.log)

    def test_that_ended_meanwhile_raises_at_the_end_of_the_context(self):
        with self.assertRaisesRegex(RecorderError, "ended by SIGKILL"):
            with self.recorder(self.camera()) as recorder:
                os.kill(recorder.process_id, 9)
                wait_for(lambda: not recorder.is_running, "the end")

    def test_is_stopped_by_an_error_in_the_context(self):
        with self.assertRaisesRegex(KeyError, "mine"):
            with self.recorder(self.camera(), frames=100_000) as recorder:
                raise KeyError("mine")
        self.assertFalse(recorder.is_running)

    def test_that_does_not_end_is_killed(self):
        with self.assertRaisesRegex(RecorderError, "did not end within 0.2 s"):
            with self.recorder(self.camera()) as recorder:
                recorder.wait(0.2)
        self.assertFalse(recorder.is_running)

    def test_takes_a_configuration_file(self):
        file = self.root / "run.toml"
        file.write_text(f"control.socket = \"{self.root}/control\"\nimage.width = 160\n")
        with self.recorder(self.camera(), configuration=file, frames=5) as recorder:
            self.assertEqual(recorder.control_socket, self.root / "control")
            self.assertEqual(recorder.status()["newest"]["width"], 160)
            recorder.wait(DEADLINE_SECONDS)

    def test_is_read_while_it_is_made(self):
        with self.recorder(self.camera(), {**REGION, "output.format": "raw"}, frames=30) as recorder:
            frames = sum(len(new.load()) for new in open_recording(recorder.directory).follow(timeout=DEADLINE_SECONDS))
            recorder.wait(DEADLINE_SECONDS)
        self.assertEqual(frames, 30)

    def test_publishes_frames_in_shared_memory(self):
        with self.recorder(self.camera(), {**REGION, "ring.socket": self.root / "ring"}) as recorder:
            with FrameRing(self.root / "ring", timeout=DEADLINE_SECONDS) as ring:
                frame = ring.next()
                self.assertEqual(frame.pixels.shape, (240, 320))
                pixels = frame.unpacked()
                self.assertTrue(ring.is_there(frame))
            recorder.stop()
        frames = open_recording(self.output)
        saved, = frames[frames.index["frame"] == frame.number]
        self.assertTrue(numpy.array_equal(saved, pixels))


class Requests(RecorderTest):
    def wait_for_newest(self, recorder, **values):
        """Waits for a frame with these values. The status follows the plug-in, which confirms a change, after a frame or two."""
        def found():
            newest = recorder.status()["newest"]
            return all(abs(newest[name] - value) <= 0.01 * value for name, value in values.items())
        wait_for(found, f"a frame with {values}")

    def test_report_the_status(self):
        with self.recorder(self.camera()) as recorder:
            status = wait_for(lambda: (now := recorder.status())["counts"]["saved"] >= 5 and now, "five frames")
            self.assertEqual((status["state"], status["directory"]), ("recording", str(self.output)))
            self.assertEqual((status["newest"]["width"], status["newest"]["height"]), (320, 240))

    def test_change_values(self):
        with self.recorder(self.camera(), MANUAL) as recorder:
            recorder.set("gain.db", 6)
            self.wait_for_newest(recorder, gain_db=6)
            recorder.set_all({"gain.db": 3, "exposure": {"time_us": 500.0}})
            self.wait_for_newest(recorder, gain_db=3, exposure_us=500)

    def test_change_the_region_with_a_restart(self):
        with self.recorder(self.camera()) as recorder:
            with self.assertRaisesRegex(RecorderError, "cannot be changed while recording: .*image.width") as caught:
                recorder.set("image.width", 160)
            self.assertEqual(caught.exception.status, 7)
            recorder.set("image.width", 160, restart=True, timeout=30)
            self.wait_for_newest(recorder, width=160)

    def test_are_refused_with_the_reason(self):
        with self.recorder(self.camera(), MANUAL) as recorder:
            for key, value, what in (("gain.db", 1000, "gain.db: 1000 is not valid"), ("gain.dbb", 1, "gain.dbb")):
                with self.assertRaisesRegex(RecorderError, what):
                    recorder.set(key, value)
            with self.assertRaises(RecorderError):
                recorder.set_all({"gain.db": 6, "exposure.time_us": -1})
            self.assertAlmostEqual(recorder.status()["newest"]["gain_db"], 0, places=1)
            with self.assertRaisesRegex(RecorderError, "nothing"):
                recorder.signal("nothing")

    def test_trigger_the_pre_trigger_buffer(self):
        with self.recorder(self.camera(), {**REGION, "pretrigger.seconds": 10}) as recorder:
            with self.assertRaisesRegex(RecorderError, "event"):
                recorder.signal("trigger", event="door")
            recorder.signal("trigger", event="20261121T173318.123Z-door")
            wait_for((self.output / "pretrigger/20261121T173318.123Z-door/frames.jsonl").exists, "a recording of the buffer")
            summary = recorder.stop()
        frames = open_recording(self.output)  # there is none above it
        self.assertGreaterEqual(len(frames), 1)
        self.assertEqual(summary.saved, len(frames))

    def test_after_the_end_are_refused(self):
        with self.recorder(self.camera(), frames=2) as recorder:
            recorder.wait(DEADLINE_SECONDS)
            with self.assertRaisesRegex(RecorderError, "does not answer"):
                recorder.status()


class Start(RecorderTest):
    def check(self, recorder, *parts, status):
        with self.assertRaises(RecorderError) as caught:
            recorder.start()
        self.assertRegex(str(caught.exception), "(?s)" + ".*".join(parts))
        self.assertEqual(caught.exception.status, status)
        self.assertFalse(recorder.is_running)

    def test_without_a_camera_raises_the_message_of_the_program(self):
        recorder = Recorder(REGION, output=self.output, program=MEDIAGRABBER, start_timeout=DEADLINE_SECONDS)
        self.check(recorder, "could not start .status 3: the plug-in found no camera", "warning: no camera was found", status=3)

    def test_with_an_invalid_configuration_raises_its_error(self):
        self.check(self.recorder(self.camera(), {"image.width": 0, "colour": "green"}), "status 2", "image.width: 0 is not valid",
                   "colour: unknown key", status=2)

    def test_over_another_recording_raises(self):
        camera = self.camera()
        with self.recorder(camera, frames=1) as recorder:
            recorder.wait(DEADLINE_SECONDS)
        self.check(self.recorder(camera), "status 11", "already contains a recording", status=11)

    def test_without_the_program_raises(self):
        self.check(Recorder({}, program="/nowhere/mediagrabber"), "/nowhere/mediagrabber cannot be run: No such file", "install",
                   status=None)

    def test_that_waits_for_a_camera_times_out(self):
        recorder = Recorder({"run.give_up_after": "never"}, output=self.output, program=MEDIAGRABBER, start_timeout=3)
        self.check(recorder, "no frame arrived within 3 s", "no camera was found", status=None)
        self.assertFalse(pathlib.Path(f"/proc/{recorder.process_id}").exists())

    def test_without_a_control_socket_times_out(self):
        recorder = self.recorder(self.camera(), {"control.socket": "none"}, start_timeout=1)
        self.check(recorder, "no control socket .control.socket. within 1 s", status=None)

    def test_happens_once(self):
        with self.recorder(self.camera(), frames=1) as recorder:
            with self.assertRaisesRegex(RecorderError, "started already"):
                recorder.start()
            recorder.wait(DEADLINE_SECONDS)
        with self.assertRaisesRegex(RecorderError, "call start"):
            Recorder({}).stop()

    def test_writes_dictionaries_as_toml(self):
        text = toml_text({"gain": {"auto": "Off", "limits_db": [0, 6.5]}, "run.frames": numpy.int64(3), "tone.enable": True,
                          "output.directory": pathlib.Path("/a \"b\"\\c\n\x7f\u00e4"), "line": [{"pin": "Out1", "source": "Low"}]})
        self.assertEqual(tomllib.loads(text), {
            "gain": {"auto": "Off", "limits_db": [0, 6.5]}, "run": {"frames": 3}, "tone": {"enable": True},
            "output": {"directory": "/a \"b\"\\c\n\x7f\u00e4"}, "line": [{"pin": "Out1", "source": "Low"}]})
        with self.assertRaisesRegex(TypeError, "None is not a value"):
            toml_text({"run.frames": None})


class Camera(RecorderTest):
    def test_is_alone_in_its_network(self):
        first, second = self.camera(), self.camera()  # at the same address and port
        shown = subprocess.run(first.command("ip", "-json", "link"), capture_output=True, text=True, check=True)
        self.assertEqual([one["ifname"] for one in json.loads(shown.stdout)], ["lo"])
        with self.recorder(first, frames=10, output=self.root / "first") as one, \
                self.recorder(second, frames=10, output=self.root / "second") as other:
            one.wait(DEADLINE_SECONDS)
            other.wait(DEADLINE_SECONDS)
        for camera, name in ((first, "first"), (second, "second")):
            ticks = set(open_recording(self.root / name).index["ticks"].tolist())
            wait_for(lambda: ticks <= {frame["ticks"] for frame in camera.truth()}, "the frames in the truth file")

    def test_comes_back_after_it_was_unplugged(self):
        camera = self.camera()
        with self.recorder(camera, {**REGION, "run": {"give_up_after": "never", "retry_interval_s": 0.2}}) as recorder:
            camera.kill()
            wait_for(lambda: recorder.status()["state"] == "waiting", "the loss")
            saved = recorder.status()["counts"]["saved"]
            camera.start()
            wait_for(lambda: recorder.status()["counts"]["saved"] > saved, "frames of the camera")

    def test_has_the_given_options(self):
        camera = self.camera("--limits", "dependent", "--serial", "CS4711")
        self.assertEqual(camera.options, ["--limits", "dependent", "--serial", "CS4711"])
        with self.recorder(camera, {"camera": {"model": "GO-5100M-PGE", "serial": "CS4711"}}, frames=1) as recorder:
            recorder.wait(DEADLINE_SECONDS)

    def test_that_cannot_start_raises_the_message_of_the_program(self):
        for camera, what in ((Camsim("--colour", program=CAMSIM), "--colour"),
                             (Camsim(program="/nowhere/camsim"), "/nowhere/camsim.*not found; install")):
            with self.assertRaisesRegex(CamsimError, f"(?s)the camera did not become ready: .*{what}"):
                camera.start()
            camera.close()

    def test_that_failed_raises_at_its_end(self):
        with self.assertRaisesRegex(CamsimError, "ended with status -9"):
            with Camsim(program=CAMSIM) as camera:
                os.kill(camera._process.pid, 9)
                camera._process.wait()

    def test_leaves_nothing(self):
        descriptors = len(os.listdir("/proc/self/fd"))
        with Camsim(program=CAMSIM) as camera:
            process, directory = camera._process.pid, camera.truth_path.parent
        self.assertFalse(directory.exists() or pathlib.Path(f"/proc/{process}").exists())
        self.assertEqual(len(os.listdir("/proc/self/fd")), descriptors)

    def test_is_a_fixture_of_pytest(self):
        (self.root / "conftest.py").write_text("pytest_plugins = [\"mediagrabber.pytest_plugin\"]\n")
        (self.root / "test_camera.py").write_text("""
import pytest
from mediagrabber import open_recording

def test_recording(camsim, tmp_path):
    with camsim.recorder({"image.width": 320}, output=tmp_path / "frames", frames=3) as recorder:
        recorder.wait(60)
    assert open_recording(tmp_path / "frames").index["width"].tolist() == [320] * 3
    assert "--serial" not in camsim.options

@pytest.mark.camsim("--serial", "CS4711")
def test_options(camsim):
    assert camsim.options[-2:] == ["--serial", "CS4711"]
""")
        path = f"{pathlib.Path(MEDIAGRABBER).parent}:{os.environ['PATH']}"
        done = subprocess.run([sys.executable, "-m", "pytest", "--strict-markers", "-p", "no:cacheprovider", self.root], text=True,
                              capture_output=True, env=os.environ | {"PATH": path}, cwd=self.root)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("2 passed", done.stdout)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
