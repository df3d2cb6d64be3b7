# SPDX-License-Identifier: MIT
"""Faults from a fault file and from the control socket, observed by an application on the network."""

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
from camera_process import CAMSIM, Camera, FaultyCamera, feature, run, wait_for
from gvcp import Application, Stream

MANUAL = pathlib.Path(__file__).parents[3] / "docs/manual/camsim-faults.md"
LEADER_TIMESTAMP, LEADER_WIDTH = 4, 16
PACKETS = 24  # of a small image: a leader, 22 packets of up to 1,500 bytes, a trailer


@contextlib.contextmanager
def streaming(camera):
    """An application with control of the camera, and a stream of small images that it has started."""
    with camera, Application() as application, Stream() as stream:
        assert application.take_control() == gvcp.SUCCESS
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
    """\\return packet IDs in the order of arrival, by block, of the next `blocks` complete blocks"""
    found = {}
    while len(found) < blocks + 2:
        header, _ = stream.packet()
        found.setdefault(header["block"], []).append(header["packet"])
    complete = sorted(found)[1:-1]
    return {block: found[block] for block in complete}


def start_fault(camera, stream, kind, **parameters):
    """Starts a fault and drops the packets until it had an effect. \\return its number"""
    number = camera.start_fault(kind, **parameters)
    wait_for(lambda: camera.hits(number) > 0, f"an effect of {kind}")
    stream.drain()
    return number


def next_leader(stream):
    header, payload = stream.packet()
    while header["format"] != gvcp.LEADER:
        header, payload = stream.packet()
    return header, payload


class FaultTable(unittest.TestCase):
    def test_is_the_one_in_the_manual(self):
        table = run(CAMSIM, "--print-faults")
        self.assertGreater(table.count("\n"), 24)
        self.assertIn(table, MANUAL.read_text())


class FaultFile(unittest.TestCase):
    def test_selects_the_same_packets_for_the_same_seed(self):
        def lost(seed):
            with fault_file(f'seed = {seed}\n[[fault]]\nkind = "packet_loss"\nprobability = 0.2') as path:
                with streaming(Camera("--faults", path)) as (_, stream):
                    return packets_by_block(stream, 12)
        first, second, other = lost(1), lost(1), lost(2)
        both = first.keys() & second.keys()
        self.assertGreater(len(both), 5)
        self.assertEqual({block: first[block] for block in both}, {block: second[block] for block in both})
        both = first.keys() & other.keys()
        self.assertNotEqual({block: first[block] for block in both}, {block: other[block] for block in both})
        arrived = sum(map(len, first.values())) / (PACKETS * len(first))
        self.assertTrue(0.6 < arrived < 0.95, arrived)

    def test_starts_and_ends_faults(self):
        with fault_file('[[fault]]\nkind = "freeze"\nat_s = 1\nfor_s = 4') as path, Camera("--faults", path) as camera:
            with Application() as application, Stream() as stream:
                application.take_control()
                small_images(application)
                stream.open(application)
                start(application)
                # The camera drops frames while it is frozen: frame numbers have a gap, block IDs do not.
                dropped = lambda: [frame for frame in camera.frames_so_far() if frame["outcome"] == "dropped"]
                wait_for(lambda: len(dropped()) > 50, "frames dropped during the freeze")
                wait_for(lambda: camera.frames_so_far()[-1]["outcome"] == "sent", "frames after the freeze")

    def test_with_errors_is_rejected_with_their_places(self):
        with fault_file('[[fault]]\nkind = "packet_loss"\nprobability = 2\n\n[[fault]]\nkind = "rain"\n') as path:
            done = subprocess.run([CAMSIM, "--faults", path], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(f"{path}:3:15: packet_loss.probability: 2.0 is not valid, expected a number from 0 to 1",
                      done.stderr.replace("probability: 2 is", "probability: 2.0 is"))
        self.assertIn(f"{path}:6:8: kind: 'rain' is not valid, expected one of packet_loss, loss_burst, ", done.stderr)

    def test_that_does_not_exist_is_reported(self):
        done = subprocess.run([CAMSIM, "--faults", "/nowhere.toml"], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("/nowhere.toml: cannot be read: No such file or directory", done.stderr)


class ControlSocket(unittest.TestCase):
    def test_is_accessible_by_its_owner_only_and_removed_at_the_end(self):
        with FaultyCamera() as camera:
            path = camera.control_path
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
            self.assertEqual(camera.request("list = true"), {"faults": []})
        self.assertFalse(os.path.exists(path))

    def test_starts_lists_and_stops_faults(self):
        with FaultyCamera() as camera:
            first = camera.start_fault("packet_loss", probability=0.5)
            second = camera.start_fault("freeze", control=True, for_s=3600)
            listed = camera.request("list = true")["faults"]
            self.assertEqual([(one["fault"], one["kind"]) for one in listed],
                             [(first, "packet_loss"), (second, "freeze")])
            self.assertEqual(camera.stop_fault(first), 0)
            self.assertIn("does not exist or has ended", camera.request(f"stop = {first}")["error"])
            self.assertEqual(camera.stop_fault("all"), 0)
            self.assertEqual(camera.request("list = true"), {"faults": []})

    def test_rejects_invalid_requests(self):
        with FaultyCamera() as camera:
            self.assertIn("expected start = ", camera.request("hello = 1")["error"])
            self.assertIn("read_failure.feature: 'Hight' is not valid, expected a feature's name; the features are: "
                          "DeviceVendorName, ", camera.request('start = { kind = "read_failure", feature = "Hight" }')["error"])
            self.assertIn("error", camera.request("]["))
            self.assertEqual(camera.request("list = true"), {"faults": []})

    def test_that_cannot_be_created_prevents_the_start(self):
        done = subprocess.run([CAMSIM, "--control", "/nowhere/control"], capture_output=True, text=True, timeout=20)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("the control socket /nowhere/control cannot be created: No such file or directory", done.stderr)


class StreamFaults(unittest.TestCase):
    def test_drop_leaders_whose_resend_arrives_and_are_in_the_truth_file(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            fault = start_fault(camera, stream, "leader_loss")
            blocks = packets_by_block(stream, 3)
            newest = max(blocks)
            application.request_resend(newest, 0, 0)
            header, _ = next_leader(stream)
            self.assertEqual((header["block"], header["status"]), (newest, gvcp.PACKET_RESEND))
            self.assertGreater(camera.stop_fault(fault), 2)
            stream.drain()
            stream.block()
        for packets in blocks.values():
            self.assertEqual(packets, list(range(1, PACKETS)))
        truth = {frame["block_id"]: frame for frame in camera.truth_frames}
        for block in blocks:
            self.assertEqual((truth[block]["outcome"], truth[block]["faults"]), ("sent", {"leader_loss": 1}))

    def test_use_up_the_ids_of_dropped_blocks(self):
        camera = FaultyCamera()
        with streaming(camera) as (_, stream):
            start_fault(camera, stream, "block_drop", probability=0.5)
            seen = set(packets_by_block(stream, 20))
        truth = {frame["block_id"]: frame["outcome"] for frame in camera.truth_frames}
        for block in range(min(seen), max(seen) + 1):
            self.assertEqual(truth[block], "sent" if block in seen else "dropped")
        self.assertLess(len(seen), max(seen) - min(seen) + 1)

    def test_reorder_and_duplicate_packets(self):
        camera = FaultyCamera()
        with streaming(camera) as (_, stream):
            fault = start_fault(camera, stream, "packet_reordering", probability=0.3, distance=5)
            reordered = packets_by_block(stream, 3)
            camera.stop_fault(fault)
            start_fault(camera, stream, "packet_duplication", probability=1)
            doubled = packets_by_block(stream, 5)
        for packets in list(reordered.values())[1:]:
            self.assertEqual(sorted(packets), list(range(PACKETS)))
            self.assertNotEqual(packets, list(range(PACKETS)))
        self.assertEqual(list(doubled.values())[-1], [packet for packet in range(PACKETS) for _ in range(2)])

    def test_change_the_size_in_leaders(self):
        camera = FaultyCamera()
        with streaming(camera) as (_, stream):
            start_fault(camera, stream, "leader_size", factor=3)
            _, leader = next_leader(stream)
        self.assertEqual(struct.unpack_from(">II", leader, LEADER_WIDTH), (960, 300))

    def test_change_the_timestamp_in_leaders_register_and_truth_file(self):
        camera = FaultyCamera("--first-tick", "100000000000")
        with streaming(camera) as (application, stream):
            def timestamp_if(condition):
                """Block ID and timestamp of the next leader whose timestamp meets the condition. Exposures before a change of the
                faults have other ones, and may be sent after it."""
                def next_timestamp():
                    header, leader = next_leader(stream)
                    timestamp, = struct.unpack_from(">Q", leader, LEADER_TIMESTAMP)
                    return (header["block"], timestamp) if condition(timestamp) else None
                return wait_for(next_timestamp, "a leader with the expected timestamp")
            _, before = timestamp_if(lambda _: True)
            fault = camera.start_fault("timestamp_jump", offset_s=-50)
            block, during = timestamp_if(lambda timestamp: timestamp < before - 40e9)
            camera.stop_fault(fault)
            timestamp_if(lambda timestamp: timestamp > before)
            camera.start_fault("timestamp_wrap", bits=32)
            timestamp_if(lambda timestamp: timestamp < 1 << 32)
            register = ADDRESSES["GevTimestampValue"]
            self.assertEqual(application.read(register, register + 4)[1][0], 0, "the upper half of the register")
        self.assertEqual(next(one["ticks"] for one in camera.truth_frames if one["block_id"] == block), during)


class Overheating(unittest.TestCase):
    def test_raises_the_temperature_until_it_ends(self):
        with FaultyCamera() as camera:
            celsius = lambda: float(feature("DeviceTemperature"))
            self.assertLess(celsius(), 50)
            fault = camera.start_fault("overheating", celsius=91.5)
            self.assertEqual(celsius(), 91.5)
            camera.stop_fault(fault)
            self.assertLess(celsius(), 50)


class Freeze(unittest.TestCase):
    def test_stops_the_stream_but_not_the_control_channel(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            fault = camera.start_fault("freeze")
            wait_for(stream.is_silent, "the end of the stream")
            self.assertEqual(application.read(gvcp.CCP), (gvcp.SUCCESS, (gvcp.CONTROL,)))
            camera.stop_fault(fault)
            stream.block()

    def test_can_include_the_control_channel(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            fault = camera.start_fault("freeze", control=True)
            wait_for(stream.is_silent, "the end of the stream")
            self.assertTrue(application.gets_no_acknowledge())
            camera.stop_fault(fault)
            self.assertEqual(application.read(gvcp.CCP), (gvcp.SUCCESS, (gvcp.CONTROL,)))
            stream.block()


class ControlChannelFaults(unittest.TestCase):
    def test_drop_acks(self):
        with FaultyCamera() as camera, Application() as application:
            camera.start_fault("ack_loss", probability=1, commands="reads")
            self.assertTrue(application.gets_no_acknowledge())
            self.assertEqual(application.take_control(), gvcp.SUCCESS)

    def test_duplicate_acks_and_change_their_ids(self):
        with FaultyCamera() as camera, Application() as application:
            fault = camera.start_fault("ack_duplication", probability=1)
            application.send(gvcp.READREG, struct.pack(">I", gvcp.CCP))
            self.assertEqual(application.receive(), application.receive())
            camera.stop_fault(fault)
            camera.start_fault("ack_wrong_id", probability=1)
            application.send(gvcp.READREG, struct.pack(">I", gvcp.CCP))
            self.assertNotEqual(application.receive()[2], application.next_id)

    def test_return_errors_and_deny_control_reads_and_writes(self):
        with FaultyCamera() as camera, Application() as application:
            fault = camera.start_fault("ack_error", probability=1, status=0x8007)
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

    def test_delay_acks(self):
        with FaultyCamera() as camera, Application() as application:
            fault = camera.start_fault("ack_delay", delay_ms=60000)
            self.assertTrue(application.gets_no_acknowledge())
            camera.stop_fault(fault)
            self.assertEqual(application.read(gvcp.CCP), (gvcp.SUCCESS, (0,)))


class PowerCycle(unittest.TestCase):
    def test_stops_the_camera_and_resets_its_settings(self):
        camera = FaultyCamera()
        with streaming(camera) as (application, stream):
            stream.block()
            power_cycle = camera.start_fault("power_cycle")
            wait_for(stream.is_silent, "the end of the stream")
            self.assertTrue(application.gets_no_acknowledge())  # and no ConnectionRefusedError
            before = camera.frames_so_far()
            camera.stop_fault(power_cycle)
            self.assertEqual(application.read(gvcp.CCP, gvcp.HOST_PORT), (gvcp.SUCCESS, (0, 0)))
            self.assertEqual(application.read(ADDRESSES["Width"])[1][0], 2464)
            self.assertTrue(stream.is_silent())
            application.take_control()
            small_images(application)
            stream.open(application)
            start(application)
            self.assertEqual(stream.block()[0], 1)
            wait_for(lambda: len(camera.frames_so_far()) > len(before), "frames after the power cycle")
        second = [frame for frame in camera.truth_frames if frame.get("power_cycle") == 2]
        self.assertEqual((second[0]["frame"], second[0]["block_id"]), (0, 1))
        self.assertLess(second[0]["ticks"], 60e9)
        self.assertTrue(all("power_cycle" not in frame for frame in camera.truth_frames[:len(before)]))

    def test_can_be_scheduled_by_a_file(self):
        with fault_file('[[fault]]\nkind = "power_cycle"\nfor_s = 0.5') as path:
            with Camera("--faults", path), Application() as application:
                wait_for(lambda: not application.gets_no_acknowledge(), "the camera's return")


if __name__ == "__main__":
    unittest.main()
