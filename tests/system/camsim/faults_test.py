"""Faults on the wire, as an application of our own meets them, from a file and over the control socket."""

import contextlib
import os
import pathlib
import stat
import struct
import subprocess
import tempfile
import unittest

import gvcp
from camera_application import ADDRESSES, small_images, start
from camera_process import CAMSIM, Camera, FaultyCamera, wait_for
from gvcp import Application, Stream

LEADER_TIMESTAMP, LEADER_WIDTH = 4, 16
PACKETS = 24  # of a small picture: a leader, 22 packets of up to 1,500 bytes, a trailer


@contextlib.contextmanager
def streaming(camera):
    """An application with control of the camera, and the stream of small pictures that it has started."""
    with camera, Application() as application, Stream() as stream:
        assert application.take_control() == gvcp.SUCCESS
        application.write(gvcp.HEARTBEAT_TIMEOUT, 60000)
        small_images(application)
        stream.open(application)
        start(application)
        yield application, stream


@contextlib.contextmanager
def fault_file(text):
    with tempfile.TemporaryDirectory() as directory:
        path = pathlib.Path(directory) / "faults.toml"
        path.write_text(text)
        yield str(path)


def packets_by_block(stream, blocks):
    """Packet IDs as they come, by block, of the next so many blocks but the first and the last."""
    found = {}
    while len(found) < blocks + 2:
        header, _ = stream.packet()
        found.setdefault(header["block"], []).append(header["packet"])
    whole = sorted(found)[1:-1]
    return {block: found[block] for block in whole}


def next_leader(stream):
    header, payload = stream.packet()
    while header["format"] != gvcp.LEADER:
        header, payload = stream.packet()
    return header, payload


class FaultFile(unittest.TestCase):
    def test_is_followed_from_the_beginning_and_by_its_seed(self):
        def lost(seed):
            with fault_file(f'seed = {seed}\n[[fault]]\nkind = "packet_loss"\nshare = 0.2') as path:
                with streaming(Camera("--faults", path)) as (_, stream):
                    return packets_by_block(stream, 12)
        first, second, other = lost(1), lost(1), lost(2)
        both = first.keys() & second.keys()
        self.assertGreater(len(both), 5)
        self.assertEqual({block: first[block] for block in both}, {block: second[block] for block in both})
        both = first.keys() & other.keys()
        self.assertNotEqual({block: first[block] for block in both}, {block: other[block] for block in both})
        share = sum(map(len, first.values())) / (PACKETS * len(first))
        self.assertTrue(0.6 < share < 0.95, share)

    def test_has_faults_begin_and_end(self):
        with fault_file('[[fault]]\nkind = "freeze"\nat_s = 1\nfor_s = 1.5') as path, Camera("--faults", path) as camera:
            with Application() as application, Stream() as stream:
                application.take_control()
                small_images(application)
                stream.open(application)
                start(application)
                # The camera leaves frames out while it is frozen: the numbers of exposures jump, those of blocks do not.
                skipped = lambda: [frame for frame in camera.frames_so_far() if frame["fate"] == "skipped"]
                wait_for(lambda: len(skipped()) > 50, "frames left out during the freeze")
                wait_for(lambda: camera.frames_so_far()[-1]["fate"] == "sent", "frames after the freeze")

    def test_with_mistakes_is_refused_with_their_places(self):
        with fault_file('[[fault]]\nkind = "packet_loss"\nshare = 2\n\n[[fault]]\nkind = "rain"\n') as path:
            done = subprocess.run([CAMSIM, "--faults", path], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(f"{path}:3:9: packet_loss.share: 2.0 is refused, expected a number from 0 to 1",
                      done.stderr.replace("share: 2 is", "share: 2.0 is"))
        self.assertIn(f"{path}:6:8: kind: 'rain' is refused, expected one of packet_loss, loss_burst, ", done.stderr)

    def test_that_is_not_there_is_named(self):
        done = subprocess.run([CAMSIM, "--faults", "/nowhere.toml"], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("/nowhere.toml: can't be read: No such file or directory", done.stderr)


class ControlSocket(unittest.TestCase):
    def test_is_for_its_owner_and_goes_with_the_camera(self):
        with FaultyCamera() as camera:
            path = camera.control_path
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
            self.assertEqual(camera.ask("list = true"), {"faults": []})
        self.assertFalse(os.path.exists(path))

    def test_starts_lists_and_stops_faults(self):
        with FaultyCamera() as camera:
            first = camera.start_fault("packet_loss", share=0.5)
            second = camera.start_fault("freeze", control=True, for_s=3600)
            listed = camera.ask("list = true")["faults"]
            self.assertEqual([(one["fault"], one["kind"]) for one in listed],
                             [(first, "packet_loss"), (second, "freeze")])
            self.assertEqual(camera.stop_fault(first), 0)
            self.assertIn("there is no fault", camera.ask(f"stop = {first}")["error"])
            self.assertEqual(camera.stop_fault("all"), 0)
            self.assertEqual(camera.ask("list = true"), {"faults": []})

    def test_refuses_nonsense_and_goes_on(self):
        with FaultyCamera() as camera:
            self.assertIn("expected start = ", camera.ask("hello = 1")["error"])
            self.assertIn("read_failure.feature: 'Hight' is refused, expected a feature's name; the features are: "
                          "DeviceVendorName, ", camera.ask('start = { kind = "read_failure", feature = "Hight" }')["error"])
            self.assertIn("error", camera.ask("]["))
            self.assertEqual(camera.ask("list = true"), {"faults": []})

    def test_that_cannot_be_made_keeps_the_camera_from_starting(self):
        done = subprocess.run([CAMSIM, "--control", "/nowhere/control"], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("the control socket /nowhere/control can't be opened: No such file or directory", done.stderr)


class StreamFaults(unittest.TestCase):
    def test_take_packets_that_are_there_when_asked_for_again_and_the_truth_knows(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            fault = camera.start_fault("leader_loss")
            stream.drain()
            blocks = packets_by_block(stream, 3)
            newest = max(blocks)
            application.ask_again(newest, 0, 0)
            header, _ = next_leader(stream)
            self.assertEqual((header["block"], header["status"]), (newest, gvcp.PACKET_RESEND))
            self.assertGreater(camera.stop_fault(fault), 2)
            stream.drain()
            stream.block()
        for packets in blocks.values():
            self.assertEqual(packets, list(range(1, PACKETS)))
        told = {frame["block_id"]: frame for frame in camera.truth_frames}
        for block in blocks:
            self.assertEqual((told[block]["fate"], told[block]["faults"]), ("sent", {"leader_loss": 1}))

    def test_spend_the_ids_of_blocks_that_are_skipped(self):
        camera = FaultyCamera()
        with streaming(camera) as (_, stream):
            camera.start_fault("block_skip", share=0.5)
            stream.drain()
            seen = set(packets_by_block(stream, 20))
        told = {frame["block_id"]: frame["fate"] for frame in camera.truth_frames}
        for block in range(min(seen), max(seen) + 1):
            self.assertEqual(told[block], "sent" if block in seen else "skipped")
        self.assertLess(len(seen), max(seen) - min(seen) + 1)

    def test_reorder_and_double_packets(self):
        camera = FaultyCamera()
        with streaming(camera) as (_, stream):
            fault = camera.start_fault("packet_reordering", share=0.3, by=5)
            stream.drain()
            reordered = packets_by_block(stream, 3)
            camera.stop_fault(fault)
            camera.start_fault("packet_duplication", share=1)
            stream.drain()
            doubled = packets_by_block(stream, 5)
        for packets in list(reordered.values())[1:]:
            self.assertEqual(sorted(packets), list(range(PACKETS)))
            self.assertNotEqual(packets, list(range(PACKETS)))
        self.assertEqual(list(doubled.values())[-1], [packet for packet in range(PACKETS) for _ in range(2)])

    def test_falsify_leaders(self):
        camera = FaultyCamera()
        with streaming(camera) as (_, stream):
            camera.start_fault("leader_size", factor=3)
            stream.drain()
            next_leader(stream)
            _, leader = next_leader(stream)
        self.assertEqual(struct.unpack_from(">II", leader, LEADER_WIDTH), (960, 300))

    def test_move_the_camera_s_clock_wherever_it_shows(self):
        camera = FaultyCamera("--first-tick", "100000000000")
        with streaming(camera) as (application, stream):
            def timestamps():
                stream.drain()
                next_leader(stream)
                header, leader = next_leader(stream)
                register = application.read(ADDRESSES["GevTimestampValue"], ADDRESSES["GevTimestampValue"] + 4)[1]
                return header["block"], struct.unpack_from(">Q", leader, LEADER_TIMESTAMP)[0], register
            _, before, _ = timestamps()
            fault = camera.start_fault("timestamp_jump", by_s=-50)
            block, during, _ = timestamps()
            camera.stop_fault(fault)
            _, after, _ = timestamps()
            camera.start_fault("timestamp_wrap", bits=32)
            _, narrow, _ = timestamps()
        self.assertLess(during, before - 40e9)
        self.assertGreater(after, before)
        self.assertLess(narrow, 1 << 32)
        self.assertEqual(next(one["ticks"] for one in camera.truth_frames if one["block_id"] == block), during)


class Freeze(unittest.TestCase):
    def test_stops_the_stream_and_leaves_the_control_channel(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            fault = camera.start_fault("freeze")
            wait_for(stream.is_silent, "the end of the stream")
            self.assertEqual(application.read(gvcp.CCP), (gvcp.SUCCESS, (gvcp.CONTROL,)))
            camera.stop_fault(fault)
            stream.block()

    def test_can_take_the_control_channel_along(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            fault = camera.start_fault("freeze", control=True)
            wait_for(stream.is_silent, "the end of the stream")
            with self.assertRaises(TimeoutError):
                application.read(gvcp.CCP)
            camera.stop_fault(fault)
            self.assertEqual(application.read(gvcp.CCP), (gvcp.SUCCESS, (gvcp.CONTROL,)))
            stream.block()


class ControlChannelFaults(unittest.TestCase):
    def test_lose_answers(self):
        with FaultyCamera() as camera, Application() as application:
            camera.start_fault("answer_loss", share=1, to="reads")
            with self.assertRaises(TimeoutError):
                application.read(gvcp.CCP)
            self.assertEqual(application.take_control(), gvcp.SUCCESS)

    def test_double_answers_and_give_them_wrong_ids(self):
        with FaultyCamera() as camera, Application() as application:
            fault = camera.start_fault("answer_doubling", share=1)
            application.send(gvcp.READREG, struct.pack(">I", gvcp.CCP))
            self.assertEqual(application.receive(), application.receive())
            camera.stop_fault(fault)
            camera.start_fault("answer_wrong_id", share=1)
            application.send(gvcp.READREG, struct.pack(">I", gvcp.CCP))
            self.assertNotEqual(application.receive()[2], application.next_id)

    def test_tell_errors_and_refuse_control_reads_and_writes(self):
        with FaultyCamera() as camera, Application() as application:
            fault = camera.start_fault("answer_error", share=1, status=0x8007)
            self.assertEqual(application.read(gvcp.CCP), (0x8007, ()))
            camera.stop_fault(fault)
            fault = camera.start_fault("control_denied")
            self.assertEqual(application.take_control(), gvcp.ACCESS_DENIED)
            camera.stop_fault(fault)
            application.take_control()
            camera.start_fault("write_refusal", feature="Width")
            self.assertEqual(application.write(ADDRESSES["Width"], 320), gvcp.WRITE_PROTECT)
            self.assertEqual(application.write(ADDRESSES["Height"], 100), gvcp.SUCCESS)
            camera.start_fault("read_failure", feature="Width")
            self.assertEqual(application.read(ADDRESSES["Width"])[0], 0x8FFF)

    def test_make_answers_late(self):
        with FaultyCamera() as camera, Application() as application:
            fault = camera.start_fault("answer_delay", delay_ms=60000)
            with self.assertRaises(TimeoutError):
                application.read(gvcp.CCP)
            camera.stop_fault(fault)
            self.assertEqual(application.read(gvcp.CCP), (gvcp.SUCCESS, (0,)))


class PowerCut(unittest.TestCase):
    def test_silences_the_camera_and_brings_it_back_as_new(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            stream.block()
            cut = camera.start_fault("power_cut")
            stream.drain()
            self.assertTrue(stream.is_silent())
            with self.assertRaises(TimeoutError):  # and no refusal: nobody is there to refuse
                application.read(gvcp.CCP)
            before = camera.frames_so_far()
            camera.stop_fault(cut)
            self.assertEqual(application.read(gvcp.CCP, gvcp.HOST_PORT), (gvcp.SUCCESS, (0, 0)))
            self.assertEqual(application.read(ADDRESSES["Width"])[1][0], 2464)
            self.assertTrue(stream.is_silent())
            application.take_control()
            application.write(gvcp.HEARTBEAT_TIMEOUT, 60000)
            small_images(application)
            stream.open(application)
            start(application)
            self.assertEqual(stream.block()[0], 1)
            wait_for(lambda: len(camera.frames_so_far()) > len(before), "the truth of the second life")
        second = [frame for frame in camera.truth_frames if frame.get("boot") == 2]
        self.assertEqual((second[0]["frame"], second[0]["block_id"]), (0, 1))
        self.assertLess(second[0]["ticks"], 60e9)
        self.assertTrue(all("boot" not in frame for frame in camera.truth_frames[:len(before)]))

    def test_comes_and_goes_by_the_file(self):
        with fault_file('[[fault]]\nkind = "power_cut"\nfor_s = 0.5') as path:
            with Camera("--faults", path), Application() as application:
                wait_for(lambda: answers(application), "the camera's return")


def answers(application):
    try:
        return application.read(gvcp.CCP)[0] == gvcp.SUCCESS
    except TimeoutError:
        return False


if __name__ == "__main__":
    unittest.main()
