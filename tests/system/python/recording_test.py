# SPDX-License-Identifier: MIT
"""mediagrabber.open_recording() with recordings that the tests write themselves."""

import fcntl
import json
import pathlib
import pickle
import random
import sys
import tempfile
import threading
import tracemalloc
import unittest
import unittest.mock

import numpy
from mediagrabber import INDEX_DTYPE, RecordingError, open_recording, unpack_mono12packed
from mediagrabber._index import GrowingIndex, IndexFile

from made_recording import bigtiff, line, mono8, raw_place, write_index, write_raw
from tiff_strip import write_strip
from waiting import DEADLINE_SECONDS


class RecordingTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = pathlib.Path(temporary.name)

    def check_refused(self, *parts, what=None):
        """\\param parts  of the message, in order
        \\param what  that is called; default: opens the recording and reads its first frame"""
        with self.assertRaises(RecordingError) as caught:
            (what or (lambda: open_recording(self.directory)[0]))()
        self.assertRegex(str(caught.exception), "(?s)" + ".*".join(parts))
        return caught.exception


class Opening(RecordingTest):
    def test_selects_frames_without_reading_them(self):
        write_raw(self.directory, [mono8(10 * i) for i in range(20)])
        (self.directory / "frames.raw").rename(self.directory / "elsewhere")
        frames = open_recording(self.directory)
        some = frames[4:16:4][1:]
        last = frames[-1:]
        chosen = frames[frames.index["frame"] > 18]
        listed = frames[numpy.array([3, 1, -1])]
        backwards = frames[::-1]
        (self.directory / "elsewhere").rename(self.directory / "frames.raw")
        self.assertEqual([len(one) for one in (frames, some, last, chosen, listed, backwards)], [20, 2, 1, 2, 3, 20])
        self.assertEqual([image[0, 0] for image in some], [80, 120])
        self.assertEqual([image[0, 0] for image in chosen], [180, 190])
        self.assertEqual([image[0, 0] for image in listed], [30, 10, 190])
        self.assertEqual((last[0][0, 0], backwards[0][0, 0], frames[-20][0, 0]), (190, 190, 0))
        self.assertEqual(some.index["frame"].tolist(), [9, 13])

    def test_accepts_numpy_integers_and_refuses_the_rest(self):
        write_raw(self.directory, [mono8(1), mono8(2)])
        frames = open_recording(self.directory)
        self.assertEqual(frames[numpy.int64(1)][0, 0], 2)
        for position in (2, -3):
            with self.assertRaisesRegex(IndexError, "of 2"):
                frames[position]
        with self.assertRaisesRegex(TypeError, "not by str"):
            frames["1"]

    def test_reads_one_image_at_a_time(self):
        side = 1000
        write_raw(self.directory, [bytes(side * side)] * 20, width=side, height=side)
        frames = open_recording(self.directory)
        tracemalloc.start()
        self.addCleanup(tracemalloc.stop)
        for image in frames:
            self.assertEqual(image.shape, (side, side))
        self.assertLess(tracemalloc.get_traced_memory()[1], 5 * side * side)

    def test_gives_images_that_can_be_changed(self):
        write_raw(self.directory, [mono8(1)])
        frames = open_recording(self.directory)
        frames[0][:] = 0
        self.assertEqual(frames[0].tolist(), [[1, 2, 3], [4, 5, 6]])

    def test_loads_a_selection_into_one_array(self):
        write_raw(self.directory, [mono8(1), mono8(2), mono8(3)])
        frames = open_recording(self.directory)
        self.assertEqual(frames[1:].load().tolist(), [[[2, 3, 4], [5, 6, 7]], [[3, 4, 5], [6, 7, 8]]])
        self.assertEqual(numpy.asarray(frames).shape, (3, 2, 3))
        self.check_refused("no frames", what=frames[3:].load)

    def test_does_not_load_frames_of_different_sizes_into_one_array(self):
        write_index(self.directory, [line(1, **raw_place(0, 6)), line(2, **raw_place(1, 6), width=2, height=3)])
        (self.directory / "frames.raw").write_bytes(mono8(1) * 2)
        frames = open_recording(self.directory)
        self.check_refused("different width", r"frames\[frames.index\[\"width\"\] == 3\]", what=frames.load)
        self.assertEqual((frames[0].shape, frames[1].shape), ((2, 3), (3, 2)))

    def test_takes_the_name_of_the_index_and_text(self):
        write_raw(self.directory, [mono8(1)])
        self.assertEqual(len(open_recording(str(self.directory / "frames.jsonl"))), 1)

    def test_refuses_what_is_no_recording(self):
        file = self.directory / "file"
        file.touch()
        for path, what in ((self.directory, "no frames.jsonl"), (self.directory / "none", "does not exist"), (file, "not a directory")):
            error = self.check_refused(str(path), what, "name the directory", what=lambda: open_recording(path))
            self.assertEqual(error.path, path)

    def test_error_survives_pickling(self):
        error = pickle.loads(pickle.dumps(RecordingError("/a", "is bad", "mend it")))
        self.assertEqual((str(error), error.problem), ("/a: is bad; mend it", "is bad"))

    def test_reads_in_several_threads(self):
        data, _ = bigtiff([bytes([i] * 6) for i in range(200)])
        write_index(self.directory, [line(i + 1, file="frames.tif", page=i) for i in range(200)])
        (self.directory / "frames.tif").write_bytes(data)
        wrong = []

        def read(frames, seed):
            for position in random.Random(seed).sample(range(100, 200), 3):
                together.wait()
                if frames[position][0, 0] != position:
                    wrong.append(position)

        for seed in range(10):
            frames = open_recording(self.directory)  # which has not looked for pages yet
            together = threading.Barrier(4)
            threads = [threading.Thread(target=read, args=(frames, 4 * seed + i)) for i in range(4)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(wrong, [])


class Pixels(RecordingTest):
    def test_of_mono12packed_are_unpacked(self):
        # 0x123, 0x456 and, in the bytes of an odd last pixel, 0x789; then the largest values and zero.
        data = bytes([0x12, 0x63, 0x45, 0x78, 0x09]) + bytes([0xFF, 0xFF, 0xFF, 0x00, 0xF0])
        write_raw(self.directory, [data], pixel_format="Mono12Packed")
        image = open_recording(self.directory)[0]
        self.assertEqual(image.dtype, numpy.uint16)
        self.assertEqual(image.tolist(), [[0x123, 0x456, 0x789], [0xFFF, 0xFFF, 0x000]])

    def test_of_mono12packed_are_unpacked_as_by_hand_in_each_width(self):
        random.seed(4711)
        for width in range(1, 18):
            lines = numpy.array([[random.randrange(256) for _ in range((12 * width + 7) // 8 + 2)] for _ in range(3)], numpy.uint8)
            expected = [[row[x // 2 * 3] << 4 | row[x // 2 * 3 + 1] & 0xF if x % 2 == 0 else
                         row[x // 2 * 3 + 2] << 4 | row[x // 2 * 3 + 1] >> 4 for x in range(width)] for row in lines.tolist()]
            self.assertEqual(unpack_mono12packed(lines, width).tolist(), expected, width)

    def test_of_mono12packed_need_enough_bytes(self):
        with self.assertRaisesRegex(ValueError, "5 pixels .* at least 8 bytes"):
            unpack_mono12packed(numpy.zeros((2, 7), numpy.uint8), 5)

    def test_of_mono12_are_16_bit_numbers(self):
        write_raw(self.directory, [bytes([0x23, 0x01, 0xFF, 0x0F, 0, 0] * 2)], pixel_format="Mono12")
        image = open_recording(self.directory)[0]
        self.assertEqual((image.dtype, image.tolist()), (numpy.uint16, [[0x123, 0xFFF, 0]] * 2))

    def test_of_bayer_images_stay_as_they_are(self):
        write_raw(self.directory, [mono8(1)], pixel_format="BayerRG8")
        self.assertEqual(open_recording(self.directory)[0].tolist(), [[1, 2, 3], [4, 5, 6]])

    def test_of_tiff_files(self):
        write_index(self.directory, [line(1, file="frame-1.tif"), line(2, file="frame-2.tif")])
        for number in (1, 2):
            write_strip(self.directory / f"frame-{number}.tif", 3, 2, mono8(number))
        self.assertEqual([image.tolist() for image in open_recording(self.directory)], [[[1, 2, 3], [4, 5, 6]], [[2, 3, 4], [5, 6, 7]]])

    def test_of_bigtiff_pages_in_any_order(self):
        data, _ = bigtiff([mono8(i) for i in range(5)])
        write_index(self.directory, [line(i + 1, file="frames.tif", page=i) for i in range(5)])
        (self.directory / "frames.tif").write_bytes(data)
        frames = open_recording(self.directory)
        self.assertEqual([frames[i][0, 0] for i in (3, 0, 4, 1)], [3, 0, 4, 1])

    def test_at_an_offset_are_read_whatever_surrounds_them(self):
        write_index(self.directory, [line(i + 1, file="frames.h5", page=i, offset=100 + 50 * i, bytes=6) for i in range(2)])
        (self.directory / "frames.h5").write_bytes(bytes(100) + mono8(1) + bytes(44) + mono8(20) + bytes(30))
        self.assertEqual([image[0, 0] for image in open_recording(self.directory)], [1, 20])

    def test_that_were_not_saved_are_refused(self):
        write_index(self.directory, [line(1)])
        self.check_refused("no pixels", "output.format = \"none\"", "use its index")
        self.assertEqual(open_recording(self.directory).index["frame"].tolist(), [1])


class Index(RecordingTest):
    def test_has_the_values_of_the_lines(self):
        write_index(self.directory, [line(1), line(3, gain_db=None, ticks=None, exposure_us=None, counter=None, announced_us=42)])
        index = open_recording(self.directory).index
        self.assertEqual(index.dtype, INDEX_DTYPE)
        first, second = index
        self.assertEqual((first["frame"], first["timestamp_us"], first["handed_over_us"], first["announced_us"]), (1, 1010000, 1012000, -1))
        self.assertEqual((first["ticks"], first["gain_db"], first["exposure_us"], first["counter"]), (501, 6.0, 250.5, 8))
        self.assertEqual((first["time_us"], first["time_uncertainty_us"]), (1009000, 12.0))
        self.assertTrue(numpy.isnan(first["clock_drift_ppm"]))
        self.assertEqual((first["width"], first["height"], first["pixel_format"], first["significant_bits"]), (3, 2, "Mono8", 8))
        self.assertEqual((second["frame"], second["announced_us"], second["ticks"], second["counter"]), (3, 42, -1, -1))
        self.assertTrue(numpy.isnan([second["gain_db"], second["exposure_us"], second["temperature_c"]]).all())

    def test_calculates_with_signs(self):
        write_index(self.directory, [line(1, timestamp_us=20), line(2, timestamp_us=10)])
        self.assertEqual(numpy.diff(open_recording(self.directory).index["timestamp_us"]).tolist(), [-10])

    def test_is_read_only(self):
        write_index(self.directory, [line(1)])
        frames = open_recording(self.directory)
        for one in (frames, frames[:1]):
            with self.assertRaises(ValueError):
                one.index["frame"] = 0

    def test_accepts_fields_that_it_does_not_know(self):
        write_index(self.directory, [line(1, colour="green")])
        self.assertEqual(len(open_recording(self.directory)), 1)

    def test_is_extended_without_copying_it_each_time(self):
        index = GrowingIndex()
        row = tuple(numpy.zeros(1, INDEX_DTYPE)[0])
        buffers = set()
        for _ in range(1000):
            index.append([row])
            buffers.add(index.view().ctypes.data)
        self.assertEqual(len(index.view()), 1000)
        self.assertLess(len(buffers), 20)

    def test_of_more_than_one_block(self):
        write_index(self.directory, [line(i + 1) for i in range(20_000)])  # 6 MB
        self.assertEqual(open_recording(self.directory).index["frame"].tolist(), list(range(1, 20_001)))


class Growing(RecordingTest):
    """Recordings that another process writes to: it holds the lock of the index."""

    def start(self, directory=None):
        """\\return the index, open and locked"""
        directory = directory or self.directory
        directory.mkdir(exist_ok=True)
        file = open(directory / "frames.jsonl", "a")
        self.addCleanup(file.close)
        fcntl.flock(file, fcntl.LOCK_EX)
        return file

    def append(self, file, text):
        file.write(text)
        file.flush()

    def test_have_new_frames_after_a_refresh(self):
        file = self.start()
        self.append(file, line(1) + "\n")
        frames = open_recording(self.directory)
        early, first_index = frames[:], frames.index
        self.append(file, line(2) + "\n" + line(3) + "\n")
        self.assertEqual((len(frames), frames.refresh(), frames.refresh(), len(frames)), (1, 2, 0, 3))
        self.assertEqual((frames.index["frame"].tolist(), first_index["frame"].tolist(), len(early)), ([1, 2, 3], [1], 1))

    def test_have_lines_when_they_are_complete(self):
        file = self.start()
        self.append(file, line(1) + "\n" + line(2)[:30])
        frames = open_recording(self.directory)
        self.assertEqual((len(frames), frames.refresh()), (1, 0))
        self.append(file, line(2)[30:] + "\n")
        self.assertEqual((frames.refresh(), frames.index["frame"].tolist()), (1, [1, 2]))

    def test_report_whether_they_are_growing(self):
        file = self.start()
        frames = open_recording(self.directory)
        self.assertTrue(frames.is_growing)
        file.close()
        self.assertFalse(frames.is_growing)

    def test_are_followed_into_a_segment_that_has_no_frame_yet(self):
        first = self.start(self.directory / "20261121T180000Z")
        self.append(first, line(1) + "\n")
        followed = open_recording(self.directory).follow(timeout=DEADLINE_SECONDS)
        self.assertEqual(next(followed).index["frame"].tolist(), [1])
        second = self.start(self.directory / "20261121T180100Z")
        first.close()
        later = threading.Timer(0.3, self.append, (second, line(2) + "\n"))
        later.start()
        self.addCleanup(later.join)
        self.assertEqual(next(followed).index["frame"].tolist(), [2])
        second.close()
        self.assertEqual(list(followed), [])

    def test_have_new_pages_and_raw_frames(self):
        file = self.start()
        data, pointers = bigtiff([mono8(i) for i in range(3)])
        before = data[:pointers[2]] + bytes(8)
        (self.directory / "frames.tif").write_bytes(before)
        self.append(file, "".join(line(i + 1, file="frames.tif", page=i) + "\n" for i in range(2)))
        frames = open_recording(self.directory)
        self.assertEqual([image[0, 0] for image in frames], [0, 1])
        (self.directory / "frames.tif").write_bytes(data)
        self.append(file, line(3, file="frames.tif", page=2) + "\n")
        frames.refresh()
        self.assertEqual(frames[2][0, 0], 2)

    def test_are_followed_to_their_end(self):
        file = self.start()
        self.append(file, line(1) + "\n")
        frames = open_recording(self.directory)
        following = frames.follow(timeout=60)
        self.assertEqual(next(following).index["frame"].tolist(), [1])
        self.append(file, line(2) + "\n" + line(3) + "\n")
        self.assertEqual(next(following).index["frame"].tolist(), [2, 3])
        self.append(file, line(4) + "\n")
        file.close()
        self.assertEqual([new.index["frame"].tolist() for new in following], [[4]])

    def test_are_followed_to_frames_that_come_just_before_the_end(self):
        file = self.start()
        self.append(file, line(1) + "\n")
        frames = open_recording(self.directory)
        following = frames.follow(timeout=60)
        next(following)

        def refresh(original=frames.refresh):
            added = original()
            if not file.closed:  # after the first look that found nothing
                self.append(file, line(2) + "\n")
                file.close()
            return added

        with unittest.mock.patch.object(frames, "refresh", refresh):
            self.assertEqual([new.index["frame"].tolist() for new in following], [[2]])

    def test_that_have_not_locked_their_index_yet_are_not_finished(self):
        file = open(self.directory / "frames.jsonl", "a")
        self.addCleanup(file.close)
        frames = open_recording(self.directory)
        fcntl.flock(file, fcntl.LOCK_EX)
        self.append(file, line(1) + "\n")
        self.assertEqual((frames.is_growing, frames.refresh()), (True, 1))

    def test_read_finished_segments_once(self):
        for i in range(3):
            write_raw(self.directory / f"20261121T18000{i}Z", [mono8(i)], first=i + 1)
        file = self.start(self.directory / "20261121T180003Z")
        frames = open_recording(self.directory)
        with unittest.mock.patch.object(IndexFile, "read_new", autospec=True, side_effect=IndexFile.read_new) as read:
            self.append(file, line(4) + "\n")
            self.assertEqual((frames.refresh(), read.call_count), (1, 1))

    def test_are_followed_into_new_segments(self):
        first = self.start(self.directory / "20261121T180000Z")
        self.append(first, line(1) + "\n")
        following = open_recording(self.directory).follow(timeout=60)
        next(following)
        second = self.start(self.directory / "20261121T190000Z")
        self.append(first, line(2) + "\n")
        first.close()
        self.append(second, line(3) + "\n")
        new = next(following)
        self.assertEqual((new.index["frame"].tolist(), new.index["segment"].tolist()), ([2, 3], [0, 1]))
        second.close()
        self.assertEqual(list(following), [])

    def test_that_stall_time_out(self):
        self.start()
        with self.assertRaisesRegex(TimeoutError, "no new frame for 0.05 s"):
            next(open_recording(self.directory).follow(timeout=0.05))

    def test_whose_empty_last_segment_was_deleted_end(self):
        write_raw(self.directory / "20261121T180000Z", [mono8(1)])
        file = self.start(self.directory / "20261121T190000Z")
        frames = open_recording(self.directory)
        self.assertTrue(frames.is_growing)
        (self.directory / "20261121T190000Z/frames.jsonl").unlink()
        file.close()
        self.assertEqual((frames.refresh(), frames.is_growing), (0, False))


class Interrupted(RecordingTest):
    """Recordings that were ended by a power failure."""

    def test_keep_the_frames_before_an_incomplete_line(self):
        for rest in (line(3)[:-1], "{", line(3), "\0" * 100):  # cut off, without its line end, and a block that was never written
            with self.subTest(rest):
                write_raw(self.directory, [mono8(1), mono8(2)])
                with open(self.directory / "frames.jsonl", "a") as file:
                    file.write(rest)
                frames = open_recording(self.directory)
                self.assertEqual((len(frames), frames[1][0, 0], frames.is_growing), (2, 2, False))

    def test_in_the_middle_of_a_character(self):
        write_raw(self.directory, [mono8(1)])
        with open(self.directory / "frames.jsonl", "ab") as file:
            file.write("{\"file\": \"\u00e4".encode()[:-1])
        self.assertEqual(len(open_recording(self.directory)), 1)

    def test_before_the_first_line(self):
        write_index(self.directory, [], end="")
        frames = open_recording(self.directory)
        self.assertEqual((len(frames), list(frames), frames.is_growing), (0, [], False))

    def test_refuse_frames_whose_pixels_are_missing(self):
        write_raw(self.directory, [mono8(1), mono8(2)])
        with open(self.directory / "frames.raw", "r+b") as file:
            file.truncate(11)
        frames = open_recording(self.directory)
        self.assertEqual(frames[0][0, 0], 1)
        self.check_refused("frames.raw", "ends at byte 11", "read the other frames", what=lambda: frames[1])

    def test_refuse_pages_that_are_missing(self):
        data, pointers = bigtiff([mono8(i) for i in range(3)])
        write_index(self.directory, [line(i + 1, file="frames.tif", page=i) for i in range(3)])
        data[pointers[2]:pointers[2] + 8] = bytes(8)
        (self.directory / "frames.tif").write_bytes(data)
        frames = open_recording(self.directory)
        self.assertEqual(frames[1][0, 0], 1)
        self.check_refused("frames.tif", "has 2 pages, so page 2 is missing", what=lambda: frames[2])


class Damaged(RecordingTest):
    def test_lines_are_refused_with_their_position(self):
        for bad, what in (("{]", "property name"), ("[]", "not an object"), ("\0\0", "zeros"),
                          (line(2, frame="2"), "\"frame\" is not a number"), (line(2, ticks=True), "not a number"),
                          (line(2, width=0), "\"width\" is 0"), (line(2, height=65536), "\"height\" is 65536"),
                          (line(2, pixel_format="Mono10"), "unknown pixel format 'Mono10'"),
                          (line(2, file="../x"), "outside of the recording"), (line(2, file=".."), "outside"),
                          (line(2, file=""), "outside"),
                          (line(2, file="a", offset=-1), "not a position"), (line(2, ticks=2**63), "too large"),
                          (json.dumps({"frame": 1}), "\"timestamp_us\" is missing"), ("\u00e4", "Expecting value")):
            with self.subTest(bad):
                write_index(self.directory, [line(1), bad, line(3)])
                self.check_refused("frames.jsonl:2: ", what, "remove this line")

    def test_index_that_shrinks_is_refused(self):
        write_index(self.directory, [line(1), line(2)])
        file = open(self.directory / "frames.jsonl")
        self.addCleanup(file.close)
        fcntl.flock(file, fcntl.LOCK_EX)
        frames = open_recording(self.directory)
        write_index(self.directory, [line(1)])
        self.check_refused("became shorter", "open the recording again", what=frames.refresh)

    def test_line_that_is_added_does_not_take_those_before_it(self):
        write_index(self.directory, [line(1)])
        file = open(self.directory / "frames.jsonl", "a")
        self.addCleanup(file.close)
        fcntl.flock(file, fcntl.LOCK_EX)
        frames = open_recording(self.directory)
        file.write(line(2) + "\n[]\n")
        file.flush()
        for _ in range(2):
            self.check_refused("frames.jsonl:3: ", what=frames.refresh)
        write_index(self.directory, [line(1), line(2), line(3), line(4)])
        self.assertEqual((frames.refresh(), frames.index["frame"].tolist()), (3, [1, 2, 3, 4]))

    def test_sizes_that_contradict_each_other_are_refused(self):
        write_index(self.directory, [line(1, file="frames.raw", offset=0, bytes=7)])
        self.check_refused("frames.raw: 7 bytes .* 3 x 2 pixels of Mono8")
        write_index(self.directory, [line(1, file="one.tif", width=4)])
        write_strip(self.directory / "one.tif", 3, 2, mono8(1))
        self.check_refused(r"one.tif: page 0 has .*\(3, 2, 8\)", r"\(4, 2, 8\)")

    def test_missing_files_are_named(self):
        write_index(self.directory, [line(1, file="frame-1.tif")])
        self.check_refused("frame-1.tif: cannot be opened: No such file", "may have been deleted")

    def check_page(self, change, *parts):
        """\\param change  called with the bytes of a BigTIFF file of 3 pages and the places of its pointers"""
        data, pointers = bigtiff([mono8(i) for i in range(3)])
        change(data, pointers)
        write_index(self.directory, [line(i + 1, file="frames.tif", page=i) for i in range(3)])
        (self.directory / "frames.tif").write_bytes(data)
        self.check_refused("frames.tif", *parts, what=lambda: open_recording(self.directory)[2])

    def test_files_of_another_kind_are_refused(self):
        self.check_page(lambda data, _: data.__setitem__(slice(0, 4), b"MM\0*"), "not a TIFF file of mediagrabber")

    def test_pages_that_form_a_ring_are_refused(self):
        def loop(data, pointers):
            data[pointers[2]:pointers[2] + 8] = data[8:16]
        self.check_page(loop, "damaged: page 2 is before")

    def test_pages_outside_of_the_file_are_refused(self):
        self.check_page(lambda data, pointers: data.__setitem__(slice(pointers[2], pointers[2] + 8), b"\xff" * 7 + b"\x7f"), "ends at byte")

    def test_pages_with_a_wrong_number_of_tags_are_refused(self):
        def many(data, pointers):
            place = int.from_bytes(data[pointers[2]:pointers[2] + 8], "little")
            data[place:place + 8] = (2**60).to_bytes(8, "little")
        self.check_page(many, "damaged: a page with")

    def check_random_changes(self, path):
        random.seed(4711)
        data = path.read_bytes()
        refused = 0
        for _ in range(500):
            changed = bytearray(data)
            for _ in range(random.randrange(1, 4)):
                changed[random.randrange(len(changed))] = random.choice((0, 1, 4, 16, random.randrange(256)))
            path.write_bytes(changed[:random.randrange(1, 2 * len(changed))])
            try:
                open_recording(self.directory).load()
            except RecordingError:
                refused += 1
        self.assertGreater(refused, 100)

    def test_random_changes_of_bigtiff_never_raise_anything_else(self):
        data, _ = bigtiff([mono8(i) for i in range(3)])
        write_index(self.directory, [line(i + 1, file="frames.tif", page=i) for i in range(3)])
        (self.directory / "frames.tif").write_bytes(data)
        self.check_random_changes(self.directory / "frames.tif")

    def test_random_changes_of_tiff_never_raise_anything_else(self):
        write_index(self.directory, [line(1, file="frame-1.tif")])
        write_strip(self.directory / "frame-1.tif", 3, 2, mono8(1))
        self.check_random_changes(self.directory / "frame-1.tif")


class Segments(RecordingTest):
    def test_are_one_recording_in_the_order_of_their_times(self):
        names = ["20261121/20261121T180000Z", "20261121/20261121T180000Z-2", "20261121/20261121T180000Z-10", "20261122/20261122T000000Z"]
        for i, name in reversed(list(enumerate(names))):
            write_raw(self.directory / name, [mono8(20 * i), mono8(20 * i + 10)], first=2 * i + 1)
        frames = open_recording(self.directory)
        self.assertEqual(frames.segments, [self.directory / name for name in names])
        self.assertEqual(frames.index["frame"].tolist(), list(range(1, 9)))
        self.assertEqual(frames.index["segment"].tolist(), [0, 0, 1, 1, 2, 2, 3, 3])
        self.assertEqual([image[0, 0] for image in frames[1:8:3]], [10, 40, 70])

    def test_that_were_deleted_leave_the_others_readable(self):
        for i in range(2):
            write_raw(self.directory / f"20261121T18000{i}Z", [mono8(i)], first=i + 1)
        frames = open_recording(self.directory)
        for file in frames.segments[0].iterdir():
            file.unlink()
        self.check_refused("cannot be opened: No such file", "read the other frames", what=lambda: frames[0])
        self.assertEqual((frames.refresh(), len(frames), frames[1][0, 0]), (0, 2, 1))

    def test_below_a_recording_are_not_part_of_it(self):
        write_raw(self.directory, [mono8(1)])
        write_raw(self.directory / "pretrigger/20261121T180000.000Z", [mono8(2)])
        self.assertEqual(len(open_recording(self.directory)), 1)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])
