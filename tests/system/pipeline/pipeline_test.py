# SPDX-License-Identifier: MIT
"""The output of a pipeline equals the saved frames, and a failing pipeline costs no saved frame."""

import pathlib
import re
import shlex
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera
from file_system import file_system
from recorder import Recording, verified_recording
from waiting import wait_for

FRAMES = 30
WIDTH, HEIGHT = 160, 120
FFV1 = "avenc_ffv1 ! matroskamux ! filesink location={}"


def configuration(pixel_format="Mono8", width=WIDTH, more=""):
    return f"""
[image]
width = {width}
height = {HEIGHT}
format = "{pixel_format}"
[timing]
frame_rate_hz = 25.0
[memory]
export_buffers = 200  # so that a slow pipeline drops no frame
[run]
retry_interval_s = 0.2
[output]
format = "raw"
{more}"""


class GstLaunch:
    """A pipeline in another process, which is killed when the context is left."""

    def __init__(self, text):
        self.process = subprocess.Popen(["gst-launch-1.0", "-e", *shlex.split(text)], stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.process.stdout.close()

    def finish(self):
        """Waits until the pipeline ends. \\return its output"""
        output, _ = self.process.communicate(timeout=60)
        assert self.process.returncode == 0, output
        return output

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        self.finish()


def play(file, text):
    """Runs a pipeline that reads a Matroska file. \\return its output"""
    with GstLaunch(f"-v filesrc location={file} ! matroskademux ! {text}") as player:
        return player.finish()


def unpacked(packed):
    """Mono12Packed (GigE Vision packing) as 16-bit little-endian values."""
    values = bytearray()
    for first, low, second in zip(packed[::3], packed[1::3], packed[2::3]):
        values += (first << 4 | low & 15).to_bytes(2, "little") + (second << 4 | low >> 4).to_bytes(2, "little")
    return bytes(values)


def bound(port):
    """Whether a process in this namespace has bound a UDP port."""
    return f":{port:04X} " in pathlib.Path("/proc/net/udp").read_text()


class Pipelines(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def record(self, pipeline, text):
        """Records FRAMES frames with a pipeline and verifies the saved ones. \\return the frame index and all saved pixels"""
        with verified_recording(self, text, FRAMES, "--pipeline", pipeline) as (recording, _):
            return recording.frame_index(), (recording.output / "frames.raw").read_bytes()


class Lossless(Pipelines):
    def test_ffv1_in_matroska_is_bit_exact(self):
        for pixel_format in ("Mono8", "Mono12", "Mono12Packed"):
            with self.subTest(pixel_format):
                file = self.directory / f"{pixel_format}.mkv"
                _, pixels = self.record(FFV1.format(file), configuration(pixel_format))
                caps = play(file, f"avdec_ffv1 ! filesink location={self.directory}/played")
                self.assertIn("GRAY8" if pixel_format == "Mono8" else "GRAY16_LE", caps)
                played = (self.directory / "played").read_bytes()
                self.assertEqual(len(played), FRAMES * WIDTH * HEIGHT * (1 if pixel_format == "Mono8" else 2))
                self.assertEqual(played, unpacked(pixels) if pixel_format == "Mono12Packed" else pixels)

    def test_a_bayer_pattern_is_preserved_and_bayer2rgb_converts_it(self):
        # The buffers of bayer2rgb 1.26 are too short; those of videoconvert are not.
        text = ("tee name=both both. ! queue ! filesink location={0}/bayer both. ! queue ! bayer2rgb ! "
                "videoconvert ! video/x-raw,format=RGB ! filesink location={0}/colours").format(self.directory)
        _, pixels = self.record(text, configuration("BayerRG8"))
        self.assertEqual((self.directory / "bayer").read_bytes(), pixels)
        colours = (self.directory / "colours").read_bytes()
        self.assertEqual(len(colours), 3 * len(pixels))
        # bayer2rgb keeps the measured colour of each pixel: check red, green and blue of each 2 x 2 cell of the first frame.
        for y in range(0, HEIGHT, 2):
            for x in range(0, WIDTH, 2):
                at = y * WIDTH + x
                self.assertEqual((colours[3 * at], colours[3 * (at + 1) + 1], colours[3 * (at + WIDTH + 1) + 2]),
                                 (pixels[at], pixels[at + 1], pixels[at + WIDTH + 1]), (x, y))

    def test_timestamps_have_the_intervals_of_the_frame_index(self):
        file = self.directory / "frames.mkv"
        frames, _ = self.record(FFV1.format(file), configuration())
        output = play(file, "identity silent=false ! fakesink")
        times = [int(h) * 3600e3 + int(m) * 60e3 + float(s) * 1e3
                 for h, m, s in re.findall(r"chain.*?, pts: (\d+):(\d+):([\d.]+)", output)]
        expected = [(line["timestamp_us"] - frames[0]["timestamp_us"]) / 1e3 for line in frames]
        self.assertEqual(len(times), FRAMES)
        for one, wanted in zip(times, expected):
            self.assertLessEqual(abs(one - wanted), 1.0)  # Matroska's resolution is 1 ms

    def test_the_pipeline_can_be_the_only_output(self):
        text = configuration().replace('"raw"', '"none"')
        file = self.directory / "frames.mkv"
        with Recording(text, "--frames", str(FRAMES), "--pipeline", FFV1.format(file)) as recording:
            with Camera():
                self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual({path.name for path in recording.output.iterdir()}, {"frames.jsonl"})
        play(file, f"avdec_ffv1 ! filesink location={self.directory}/played")
        self.assertEqual((self.directory / "played").stat().st_size, FRAMES * WIDTH * HEIGHT)

    def test_frames_of_another_size_start_another_file(self):
        text = configuration(more=f"pipeline = \"{FFV1.format(f'{self.directory}/{{n}}.mkv')}\"\n")
        with Camera(), Recording(text) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(text.replace(f"width = {WIDTH}", "width = 80"))
            recording.signal(signal.SIGHUP)
            recording.wait_while_running(lambda: recording.frame_index()[-1]["width"] == 80, "a frame with a width of 80 pixels")
            self.assertEqual(recording.stop(), 0, recording.log)
            self.assertIn("restarting the pipeline: frames are now 80 x 120 ", recording.log)
            widths = [line["width"] for line in recording.frame_index()]
            pixels = (recording.output / "frames.raw").read_bytes()
        played = b""
        for number in ("1", "2"):
            play(self.directory / f"{number}.mkv", f"avdec_ffv1 ! filesink location={self.directory}/played{number}")
            played += (self.directory / f"played{number}").read_bytes()
        self.assertEqual(set(widths), {WIDTH, 80})
        self.assertEqual(played, pixels)


class Streaming(Pipelines):
    def test_rtp_over_udp_reaches_another_process(self):
        received = self.directory / "received"
        caps = "application/x-rtp,media=application,payload=96,clock-rate=90000,encoding-name=X-GST"
        with GstLaunch(f"udpsrc address=127.0.0.1 port=5004 buffer-size=4000000 caps={caps} ! rtpgstdepay"
                        f" ! filesink buffer-mode=unbuffered location={received}") as receiver:
            wait_for(lambda: bound(5004), "the receiver")
            _, pixels = self.record("rtpgstpay ! udpsink host=127.0.0.1 port=5004", configuration("Mono12"))
            wait_for(lambda: received.stat().st_size >= len(pixels), "the last frame")
            receiver.stop()
        self.assertEqual(received.read_bytes(), pixels)

    def test_shared_memory_reaches_another_process_and_blocks_until_it_connects(self):
        socket_path = self.directory / "socket"
        text = f"shmsink socket-path={socket_path} shm-size=4000000 wait-for-connection=true"
        with Camera(), Recording(configuration(), "--pipeline", text) as recording:
            recording.wait_while_running(socket_path.exists, "the socket")
            with GstLaunch(f"shmsrc socket-path={socket_path} num-buffers=20"
                            f" ! filesink location={self.directory}/received") as reader:
                reader.finish()
            recording.wait_for_frames(20)
            recording.stop()
            pixels = (recording.output / "frames.raw").read_bytes()
        received = (self.directory / "received").read_bytes()
        self.assertEqual(len(received), 20 * WIDTH * HEIGHT)
        # A reader gets frames from its connection on. Here the first frame waited for it.
        self.assertEqual(received, pixels[:len(received)])


class Errors(Pipelines):
    def expect_error(self, pipeline, *messages, status=2):
        with Recording(configuration(), "--pipeline", pipeline) as recording:
            self.assertEqual(recording.finish(), status, recording.log)
            for message in messages:
                self.assertIn(message, recording.log)
            self.assertFalse(recording.output.exists(), "the output directory exists")

    def test_an_invalid_pipeline_is_an_error_at_startup(self):
        self.expect_error("avenc_nosuch ! fakesink", 'no element "avenc_nosuch"',
                     "avenc_nosuch is in the Debian package gstreamer1.0-libav")
        self.expect_error("fakesink nosuch=1", 'no property "nosuch"')
        self.expect_error("queue ! ! fakesink", "cannot construct the pipeline: ")

    def test_an_existing_file_is_an_error_at_startup(self):
        file = self.directory / "precious"
        file.write_text("precious")
        self.expect_error(f"filesink location={file}", f"{file} exists and the pipeline would overwrite it", status=11)
        self.assertEqual(file.read_text(), "precious")

    def test_a_full_disk_of_the_pipeline_costs_no_saved_frame(self):
        with file_system("size=100k") as disk, Camera() as camera:
            text = configuration()
            with Recording(text, "--pipeline", f"filesink buffer-mode=unbuffered location={disk}/{{n}}") as recording:
                recording.wait_for_log("No space left on the resource")
                recording.wait_for_frames(len(recording.frame_index()) + 20)
                self.assertEqual(recording.stop(), 1, recording.log)
                self.assertRegex(recording.log, r"error: pipeline: filesink\d+: No space left on the resource")
                self.assertRegex(recording.log, r"frame \d+ was not saved: pipeline: filesink")
                status, report = recording.verify(camera.truth_path)
                self.assertEqual(status, 0, report)

    def test_an_unreachable_peer_is_retried(self):
        with Camera() as camera:
            text = configuration()
            with Recording(text, "--pipeline", "tcpclientsink host=127.0.0.1 port=5005") as recording:
                recording.wait_for_log("Connection refused")
                with socket.create_server(("127.0.0.1", 5005)) as server:
                    server.settimeout(60)
                    peer, _ = server.accept()
                    peer.settimeout(60)
                    frame = b""
                    while len(frame) < WIDTH * HEIGHT:
                        frame += peer.recv(WIDTH * HEIGHT - len(frame))
                    peer.close()
                    # The peer disconnects and accepts a new connection.
                    peer, _ = server.accept()
                    peer.settimeout(60)
                    self.assertTrue(peer.recv(1))
                    self.assertEqual(recording.stop(), 1, recording.log)
                    peer.close()
                status, report = recording.verify(camera.truth_path)
                self.assertEqual(status, 0, report)
                self.assertIn(frame, (recording.output / "frames.raw").read_bytes())

    def test_a_blocked_pipeline_costs_frames_and_ends_with_the_recording(self):
        text = configuration(more=f'pipeline = "shmsink socket-path={self.directory}/s wait-for-connection=true"\n')
        text = text.replace("[run]", "[run]\ngrace_time_s = 1").replace("export_buffers = 200", "export_buffers = 2")
        with Camera() as camera, Recording(text) as recording:
            recording.wait_while_running((self.directory / "s").exists, "the start of the pipeline")
            wait_for(lambda: len(camera.frames_so_far()) >= 30, "more frames than the queue holds")
            self.assertEqual(recording.stop(), 1, recording.log)
            self.assertIn("the pipeline did not finish within 1 s", recording.log)
            self.assertRegex(recording.log, r"dropped: [1-9]\d* \(queue full\)")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
