"""What comes out of a pipeline is what went into the files; and a pipeline in trouble costs no file."""

import pathlib
import re
import shlex
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

from camera_process import Camera, wait_for
from file_system import file_system
from recorder import Recording

FRAMES = 30
WIDTH, HEIGHT = 160, 120
FFV1 = "avenc_ffv1 ! matroskamux ! filesink location={}"


def configuration(pixel_format="mono8", width=WIDTH, more=""):
    return f"""
[image]
width = {width}
height = {HEIGHT}
format = "{pixel_format}"
[timing]
frame_rate = 50.0
[memory]
export_buffers = 200  # however slow the pipeline
[run]
retry_interval_s = 0.2
[output]
format = "raw"
{more}"""


class gst_launch:
    """A pipeline of another process, for the length of a context."""

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
        """What it prints until it ends by itself, or is asked to with stop()."""
        words, _ = self.process.communicate(timeout=60)
        assert self.process.returncode == 0, words
        return words

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        self.finish()


def play(file, text):
    """The words of a pipeline that reads a Matroska file."""
    with gst_launch(f"-v filesrc location={file} ! matroskademux ! {text}") as player:
        return player.finish()


def unpacked(packed):
    """GigE Vision's packed pairs as values of 16 bits."""
    values = bytearray()
    for first, low, second in zip(packed[::3], packed[1::3], packed[2::3]):
        values += (first << 4 | low & 15).to_bytes(2, "little") + (second << 4 | low >> 4).to_bytes(2, "little")
    return bytes(values)


def bound(port):
    """Whether a process of this namespace receives at a UDP port."""
    return f":{port:04X} " in pathlib.Path("/proc/net/udp").read_text()


class Pipelines(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.place = pathlib.Path(place.name)

    def record(self, pipeline, text, frames=FRAMES, judge=lambda recording: None):
        """Records, sees to it that the files have what the camera sent. \\return the journal and all pixels"""
        with Recording(text, "--frames", str(frames), "--pipeline", pipeline) as recording:
            with Camera() as camera:
                self.assertEqual(recording.finish(), 0, recording.log)
                wait_for(lambda: len(camera.frames_so_far()) >= frames, "the truth of all frames")
                status, words = recording.compare(camera.truth_path)
                self.assertEqual(status, 0, words)
            return recording.journal(), (recording.output / "frames.raw").read_bytes()


class Lossless(Pipelines):
    def test_ffv1_in_matroska_has_every_bit(self):
        for pixel_format in ("mono8", "mono12", "mono12p"):
            with self.subTest(pixel_format):
                file = self.place / f"{pixel_format}.mkv"
                _, pixels = self.record(FFV1.format(file), configuration(pixel_format))
                caps = play(file, f"avdec_ffv1 ! filesink location={self.place}/played")
                self.assertIn("GRAY8" if pixel_format == "mono8" else "GRAY16_LE", caps)
                played = (self.place / "played").read_bytes()
                self.assertEqual(len(played), FRAMES * WIDTH * HEIGHT * (1 if pixel_format == "mono8" else 2))
                self.assertEqual(played, unpacked(pixels) if pixel_format == "mono12p" else pixels)

    def test_a_mosaic_goes_on_as_one_and_gets_its_colours_from_bayer2rgb(self):
        text = ("tee name=both both. ! queue ! filesink location={0}/mosaic "
                "both. ! queue ! bayer2rgb ! video/x-raw,format=RGBx ! filesink location={0}/colours").format(self.place)
        _, pixels = self.record(text, configuration("bayer_rg8"))
        self.assertEqual((self.place / "mosaic").read_bytes(), pixels)
        colours = (self.place / "colours").read_bytes()
        self.assertEqual(len(colours), 4 * len(pixels))
        # Red, green and blue are where the camera has them: of each cell of the first frame the pixel itself.
        for y in range(0, HEIGHT, 2):
            for x in range(0, WIDTH, 2):
                at = y * WIDTH + x
                self.assertEqual((colours[4 * at], colours[4 * (at + 1) + 1], colours[4 * (at + WIDTH + 1) + 2]),
                                 (pixels[at], pixels[at + 1], pixels[at + WIDTH + 1]), (x, y))

    def test_frames_are_as_far_apart_as_the_journal_says(self):
        file = self.place / "frames.mkv"
        journal, _ = self.record(FFV1.format(file), configuration())
        words = play(file, "identity silent=false ! fakesink")
        times = [int(h) * 3600e3 + int(m) * 60e3 + float(s) * 1e3
                 for h, m, s in re.findall(r"chain.*?, pts: (\d+):(\d+):([\d.]+)", words)]
        expected = [(line["timestamp_us"] - journal[0]["timestamp_us"]) / 1e3 for line in journal]
        self.assertEqual(len(times), FRAMES)
        for one, wanted in zip(times, expected):
            self.assertLessEqual(abs(one - wanted), 1.0, "Matroska counts in milliseconds")

    def test_the_pipeline_can_be_the_only_recording(self):
        text = configuration().replace('"raw"', '"none"')
        file = self.place / "frames.mkv"
        with Recording(text, "--frames", str(FRAMES), "--pipeline", FFV1.format(file)) as recording:
            with Camera():
                self.assertEqual(recording.finish(), 0, recording.log)
            self.assertEqual({path.name for path in recording.output.iterdir()}, {"frames.jsonl"})
        play(file, f"avdec_ffv1 ! filesink location={self.place}/played")
        self.assertEqual((self.place / "played").stat().st_size, FRAMES * WIDTH * HEIGHT)

    def test_frames_of_another_size_begin_another_file(self):
        text = configuration(more=f"pipeline = \"{FFV1.format(f'{self.place}/{{n}}.mkv')}\"\n")
        with Camera(), Recording(text) as recording:
            recording.wait_for_frames(10)
            recording.configuration_path.write_text(text.replace(f"width = {WIDTH}", "width = 80"))
            recording.signal(signal.SIGHUP)
            recording.wait_while_running(lambda: recording.journal()[-1]["width"] == 80, "there was a frame of 80 pixels")
            self.assertEqual(recording.stop(), 0, recording.log)
            self.assertIn("the pipeline ends and begins again: frames have 80 x 120 pixels", recording.log)
            widths = [line["width"] for line in recording.journal()]
            pixels = (recording.output / "frames.raw").read_bytes()
        played = b""
        for number in ("1", "2"):
            play(self.place / f"{number}.mkv", f"avdec_ffv1 ! filesink location={self.place}/played{number}")
            played += (self.place / f"played{number}").read_bytes()
        self.assertEqual(set(widths), {WIDTH, 80})
        self.assertEqual(played, pixels)


class Streams(Pipelines):
    def test_rtp_over_udp_reaches_another_process(self):
        received = self.place / "received"
        caps = "application/x-rtp,media=application,payload=96,clock-rate=90000,encoding-name=X-GST"
        with gst_launch(f"udpsrc address=127.0.0.1 port=5004 buffer-size=4000000 caps={caps} ! rtpgstdepay"
                        f" ! filesink buffer-mode=unbuffered location={received}") as receiver:
            wait_for(lambda: bound(5004), "the receiver")
            _, pixels = self.record("rtpgstpay ! udpsink host=127.0.0.1 port=5004", configuration("mono12"))
            wait_for(lambda: received.stat().st_size >= len(pixels), "the last frame")
            receiver.stop()
        self.assertEqual(received.read_bytes(), pixels)

    def test_shared_memory_reaches_another_process_and_frames_wait_for_it(self):
        socket_path = self.place / "socket"
        text = f"shmsink socket-path={socket_path} shm-size=4000000 wait-for-connection=true"
        with Camera(), Recording(configuration(), "--pipeline", text) as recording:
            recording.wait_while_running(socket_path.exists, "the socket was there")
            with gst_launch(f"shmsrc socket-path={socket_path} num-buffers=20"
                            f" ! filesink location={self.place}/received") as reader:
                reader.finish()
            recording.wait_for_frames(20)
            recording.stop()
            pixels = (recording.output / "frames.raw").read_bytes()
        received = (self.place / "received").read_bytes()
        self.assertEqual(len(received), 20 * WIDTH * HEIGHT)
        # It gets those that come once it is there: here the first one waited for it.
        self.assertEqual(received, pixels[:len(received)])


class Trouble(Pipelines):
    def refused(self, pipeline, *words):
        with Recording(configuration(), "--pipeline", pipeline) as recording:
            self.assertEqual(recording.finish(), 2, recording.log)
            for word in words:
                self.assertIn(word, recording.log)
            self.assertFalse(recording.output.exists(), "a recording that did not begin left a directory")

    def test_a_text_that_is_no_pipeline_is_refused_at_the_start(self):
        self.refused("avenc_nosuch ! fakesink", 'no element "avenc_nosuch"',
                     "avenc_nosuch is in the Debian package gstreamer1.0-libav")
        self.refused("fakesink nosuch=1", 'no property "nosuch"')
        self.refused("queue ! ! fakesink", "the pipeline can't be put together: ")

    def test_a_file_that_is_there_is_refused_at_the_start(self):
        file = self.place / "precious"
        file.write_text("precious")
        self.refused(f"filesink location={file}", f"{file} is there already")
        self.assertEqual(file.read_text(), "precious")

    def test_a_full_disk_of_the_pipeline_costs_no_file(self):
        with file_system("size=100k") as disk, Camera() as camera:
            text = configuration()
            with Recording(text, "--pipeline", f"filesink buffer-mode=unbuffered location={disk}/{{n}}") as recording:
                recording.wait_for_log("No space left on the resource")
                recording.wait_for_frames(len(recording.journal()) + 20)
                self.assertEqual(recording.stop(), 1, recording.log)
                self.assertRegex(recording.log, r"error: pipeline: filesink\d+: No space left on the resource")
                self.assertRegex(recording.log, r"frame \d+ is not kept: pipeline: filesink")
                status, words = recording.compare(camera.truth_path)
                self.assertEqual(status, 0, words)

    def test_a_peer_that_is_not_there_yet_is_tried_again_and_reached(self):
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
                    # The peer is gone, and comes back.
                    peer, _ = server.accept()
                    peer.settimeout(60)
                    self.assertTrue(peer.recv(1))
                    self.assertEqual(recording.stop(), 1, recording.log)
                    peer.close()
                status, words = recording.compare(camera.truth_path)
                self.assertEqual(status, 0, words)
                self.assertIn(frame, (recording.output / "frames.raw").read_bytes())

    def test_a_pipeline_that_takes_nothing_ends_with_the_recording_and_costs_only_frames(self):
        text = configuration(more=f'pipeline = "shmsink socket-path={self.place}/s wait-for-connection=true"\n')
        text = text.replace("[run]", "[run]\ngrace_time_s = 1").replace("export_buffers = 200", "export_buffers = 2")
        with Camera() as camera, Recording(text) as recording:
            recording.wait_while_running((self.place / "s").exists, "the pipeline began")
            wait_for(lambda: len(camera.frames_so_far()) >= 30, "more frames than can wait")
            self.assertEqual(recording.stop(), 1, recording.log)
            self.assertIn("the pipeline has not come to its end within 1 s", recording.log)
            self.assertRegex(recording.log, r"lost: [1-9]\d* overrun")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
