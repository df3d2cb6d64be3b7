// SPDX-License-Identifier: MIT
#include "recording/hdf5_file.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "file_size_limit.hpp"
#include "frames/frame_pixels.hpp"
#include "hdf5_contents.hpp"
#include "recording/hdf5_storage.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr std::uint64_t absent = std::numeric_limits<std::uint64_t>::max();

class Hdf5File : public testing::Test {
protected:
    Hdf5File() : descriptor(open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

    std::filesystem::path path(char const* name = "frames.h5") const { return directory.path() / name; }
    hdf5_files files() const {
        return {descriptor.get(),
                {.software = "tester 7", .model = "M1", .serial = "S2", .configuration = "[image]\nwidth = 7\n"}};
    }

    temporary_directory const directory;
    mediagrabber::file_handle const descriptor;
};

sample_frame frame_number(std::uint64_t number, std::uint32_t width = 16) {
    auto frame = make_frame(frame_formats[0], width, 8, 0, [number](auto, auto) { return number; });
    frame.record.number = number;
    return frame;
}

std::uint64_t end_in_superblock(std::filesystem::path const& path) {
    hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    haddr_t end = 0;
    H5Fget_eoa(file, &end);
    H5Fclose(file);
    return end;
}

/// Bytes and calls of this thread's writes.
struct written {
    std::uint64_t bytes = 0;
    std::uint64_t calls = 0;
};

written writes_of_this_thread() {
    std::ifstream in("/proc/thread-self/io");
    written found;
    std::string name;
    for (std::uint64_t value = 0; in >> name >> value;) {
        if (name == "wchar:") {
            found.bytes = value;
        } else if (name == "syscw:") {
            found.calls = value;
        }
    }
    return found;
}

}  // namespace

TEST_F(Hdf5File, HoldsFramesOfEveryFormatWithoutPadding) {
    for (auto const& format : frame_formats) {
        for (std::uint32_t const padding : {0U, 5U}) {
            temporary_directory const place;
            mediagrabber::file_handle const opened(open(place.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            hdf5_files made(opened.get(), {});
            made.write(make_frame(format, 7, 5, padding, [](auto, auto) { return 0; }).view());
            auto const frame = make_frame(format, 7, 5, padding);
            auto const stored = made.write(frame.view());
            hdf5_contents const read(place.path() / "frames.h5");
            auto const without = make_frame(format, 7, 5).bytes;
            auto const values = read.integers("frames");
            if (format.container_bits == 12) {
                EXPECT_THAT(read.shape("frames"), ElementsAre(2, without.size()));
                for (std::size_t i = 0; i < without.size(); ++i) {
                    EXPECT_EQ(values.at(without.size() + i), std::to_integer<unsigned>(without[i])) << i;
                }
            } else {
                EXPECT_THAT(read.shape("frames"), ElementsAre(2, 5, 7)) << format.name;
                EXPECT_EQ(std::vector<std::uint16_t>(values.begin() + 35, values.end()), frame.values) << format.name;
            }
            EXPECT_EQ(read.text("/entry/data/frames", "pixel_format"), format.name);
            EXPECT_EQ(stored.place.file, "frames.h5");
            EXPECT_EQ(stored.place.page, 1U);
            // Readers that do not know the format find the bytes, too.
            std::ifstream in(place.path() / "frames.h5", std::ios::binary);
            in.seekg(static_cast<std::streamoff>(stored.place.offset.value()));
            std::vector<std::byte> bytes(stored.place.bytes.value());
            in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
            EXPECT_EQ(bytes, without) << format.name;
        }
    }
}

TEST_F(Hdf5File, HoldsEachFieldOfTheFrameIndex) {
    auto made = files();
    auto frame = frame_number(3);
    frame.record.timestamp_us = 1'700'000'000'123'456;
    frame.record.handed_over_us = 1'700'000'000'223'456;
    frame.record.announced_us = 1'700'000'000'123'450;
    frame.record.ticks = 12'345'678'901;
    frame.record.gain_db = 1.5F;
    frame.record.exposed = exposure_time{
        .time_us = 1790, .uncertainty_us = 12.5, .source = time_source::reference, .clock_drift_ppm = -40.5F};
    frame.record.exposure_us = 2500.0F;
    frame.record.counter = 77;
    frame.record.temperature_c = 41.25F;
    made.write(frame.view());
    made.write(frame_number(5).view());
    hdf5_contents const read(path());
    EXPECT_THAT(read.integers("frame"), ElementsAre(3, 5));
    EXPECT_THAT(read.integers("timestamp_us"), ElementsAre(1'700'000'000'123'456, 0));
    EXPECT_THAT(read.integers("handed_over_us"), ElementsAre(1'700'000'000'223'456, 0));
    EXPECT_THAT(read.integers("announced_us"), ElementsAre(1'700'000'000'123'450, absent));
    EXPECT_THAT(read.integers("ticks"), ElementsAre(12'345'678'901, absent));
    EXPECT_THAT(read.integers("counter"), ElementsAre(77, absent));
    EXPECT_THAT(read.integers("width"), ElementsAre(16, 16));
    EXPECT_THAT(read.integers("height"), ElementsAre(8, 8));
    EXPECT_THAT(read.integers("stride"), ElementsAre(16, 16));
    EXPECT_THAT(read.integers("significant_bits"), ElementsAre(8, 8));
    EXPECT_EQ(read.numbers("gain_db").front(), 1.5);
    EXPECT_EQ(read.integers("time_us").front(), 1790U);
    EXPECT_EQ(read.numbers("time_uncertainty_us").front(), 12.5);
    EXPECT_EQ(read.numbers("clock_drift_ppm").front(), -40.5);
    EXPECT_TRUE(std::isnan(read.numbers("time_uncertainty_us").back()));
    EXPECT_EQ(read.numbers("exposure_us").front(), 2500.0);
    EXPECT_EQ(read.numbers("temperature_c").front(), 41.25);
    EXPECT_TRUE(std::isnan(read.numbers("gain_db").back()));
    EXPECT_EQ(read.text("/entry/data/exposure_us", "units"), "us");
    EXPECT_EQ(read.text("/entry/data/temperature_c", "units"), "degC");
}

TEST_F(Hdf5File, HasTheLayoutOfNexus) {
    auto made = files();
    auto frame = frame_number(1);
    frame.record.timestamp_us = 1'700'000'000'000'007;
    made.write(frame.view());
    hdf5_contents const read(path());
    EXPECT_EQ(read.text("/", "default"), "entry");
    EXPECT_EQ(read.text("/entry", "NX_class"), "NXentry");
    EXPECT_EQ(read.text("/entry", "default"), "data");
    EXPECT_EQ(read.text("/entry/data", "NX_class"), "NXdata");
    EXPECT_EQ(read.text("/entry/data", "signal"), "frames");
    EXPECT_EQ(read.text("/entry/program_name"), "tester 7");
    EXPECT_EQ(read.text("/entry/start_time"), "2023-11-14T22:13:20.000007Z");
    EXPECT_EQ(read.text("/entry/configuration/data"), "[image]\nwidth = 7\n");
    EXPECT_EQ(read.text("/entry/instrument/detector/model"), "M1");
    EXPECT_EQ(read.text("/entry/instrument/detector/serial_number"), "S2");
}

TEST_F(Hdf5File, HoldsALongConfiguration) {
    std::string const text(300'000, '#');
    hdf5_files made(descriptor.get(), {.software = {}, .model = {}, .serial = {}, .configuration = text});
    made.write(frame_number(1).view());
    EXPECT_EQ(hdf5_contents(path()).text("/entry/configuration/data"), text);
}

TEST_F(Hdf5File, ContinuesInAnotherFileAfterAChangeOfSizeOrFormat) {
    auto made = files();
    made.write(frame_number(1).view());
    EXPECT_EQ(made.write(make_frame(frame_formats[0], 20, 8).view()).place.file, "frames-2.h5");
    auto const third = made.write(make_frame(frame_formats[2], 20, 8).view());
    EXPECT_EQ(third.place.file, "frames-3.h5");
    EXPECT_EQ(third.place.page, 0U);
    EXPECT_THAT(hdf5_contents(path()).shape("frames"), ElementsAre(1, 8, 16));
    EXPECT_THAT(hdf5_contents(path("frames-2.h5")).shape("frames"), ElementsAre(1, 8, 20));
    for (char const* const name : {"frames.h5", "frames-2.h5", "frames-13.h5"}) {
        EXPECT_TRUE(hdf5_files::is_name(name));
    }
    for (char const* const name : {"frames-.h5", "my-frames.h5", "frames.h5.bak"}) {
        EXPECT_FALSE(hdf5_files::is_name(name));
    }
}

TEST_F(Hdf5File, HasNoFileWithoutAFrame) {
    {
        auto const made = files();
        EXPECT_TRUE(std::filesystem::exists(path(".frames.h5.part")));
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(Hdf5File, IsFollowedWhileItGrows) {
    auto made = files();
    made.write(frame_number(1).view());
    hdf5_contents const follower(path(), H5F_ACC_RDONLY | H5F_ACC_SWMR_READ);
    for (std::uint64_t number = 2; number <= 200; ++number) {
        made.write(frame_number(number).view());
        ASSERT_EQ(follower.shape("frames").front(), number);
        ASSERT_EQ(follower.integers("frame").back(), number);
        ASSERT_EQ(follower.first_pixels().back(), number);
    }
}

TEST_F(Hdf5File, IsOpenedWithoutSwmrWhileItGrows) {
    auto made = files();
    for (std::uint64_t number = 1; number <= 200; ++number) {
        made.write(frame_number(number).view());
        hdf5_contents const read(path());
        ASSERT_EQ(read.integers("frame").back(), number);
        ASSERT_EQ(read.first_pixels().back(), number);
    }
}

/// A reader that determines the length first, and reads the superblock after some frames, must not find it truncated.
TEST_F(Hdf5File, IsLongerThanTheSuperblockSaysWhileItGrows) {
    {
        auto made = files();
        for (std::uint64_t number = 1; number <= 5; ++number) {
            made.write(frame_number(number, 1000).view());
            EXPECT_GE(std::filesystem::file_size(path()), end_in_superblock(path()) + hdf5_storage::min_surplus);
        }
    }
    EXPECT_EQ(std::filesystem::file_size(path()), end_in_superblock(path()));
}

TEST_F(Hdf5File, IsNotOpenedForWritingByAnotherProgramMeanwhile) {
    auto made = files();
    made.write(frame_number(1).view());
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    EXPECT_LT(H5Fopen(path().c_str(), H5F_ACC_RDWR, H5P_DEFAULT), 0);
}

TEST_F(Hdf5File, RefusesAFrameThatDoesNotFitAndContinuesLater) {
    auto made = files();
    std::uint32_t const large = 1000;  // so that a part of the frame fits
    made.write(frame_number(1, large).view());
    auto const before = end_in_superblock(path());
    std::string reason;
    for (int i = 0; i < 3; ++i) {
        file_size_limit const limit(before + 5000);
        try {
            made.write(frame_number(2, large).view());
        } catch (std::system_error const& error) {
            reason = error.what();
        }
    }
    EXPECT_EQ(reason, "frames.h5: File too large");
    EXPECT_EQ(std::filesystem::file_size(path()), before) << "a part of a frame remains";
    EXPECT_THAT(hdf5_contents(path()).first_pixels(), ElementsAre(1));
    EXPECT_EQ(made.write(frame_number(3, large).view()).place.page, 1U);
    EXPECT_THAT(hdf5_contents(path()).first_pixels(), ElementsAre(1, 3));
}

TEST_F(Hdf5File, CreatesAFileThatDidNotFitLater) {
    auto made = files();
    {
        file_size_limit const limit(1000);
        EXPECT_THROW(made.write(frame_number(1).view()), std::system_error);
        EXPECT_THROW(made.write(frame_number(2).view()), std::system_error);
    }
    EXPECT_FALSE(std::filesystem::exists(path()));
    made.write(frame_number(3).view());
    EXPECT_THAT(hdf5_contents(path()).first_pixels(), ElementsAre(3));
    EXPECT_THAT(hdf5_contents(path()).integers("frame"), ElementsAre(3));
}

TEST_F(Hdf5File, UndoesTheLastFrame) {
    auto made = files();
    made.write(frame_number(1).view());
    made.write(frame_number(2).view());
    made.undo_last();
    EXPECT_THAT(hdf5_contents(path()).first_pixels(), ElementsAre(1));
    EXPECT_THAT(hdf5_contents(path()).integers("frame"), ElementsAre(1));
    made.write(frame_number(3).view());
    made.write(frame_number(4).view());
    EXPECT_THAT(hdf5_contents(path()).first_pixels(), ElementsAre(1, 3, 4));
}

TEST_F(Hdf5File, RemainsAsItIsWhenItIsClosed) {
    {
        auto made = files();
        made.write(frame_number(1).view());
        made.write(frame_number(2).view());
    }
    EXPECT_THAT(hdf5_contents(path()).first_pixels(), ElementsAre(1, 2));
    hid_t const writer = H5Fopen(path().c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
    EXPECT_GE(writer, 0);
    H5Fclose(writer);
}

TEST_F(Hdf5File, WritesMoreForAFrameOnlyWithTheLevelsOfTheIndex) {
    auto made = files();
    std::uint64_t number = 0;
    auto const cost_of = [&](std::uint64_t frames) {
        auto const before = writes_of_this_thread();
        for (std::uint64_t i = 0; i < frames; ++i) {
            made.write(frame_number(++number).view());
        }
        auto const after = writes_of_this_thread();
        return written{.bytes = after.bytes - before.bytes, .calls = after.calls - before.calls};
    };
    cost_of(1);  // creates the file
    auto const first = cost_of(200);
    cost_of(10'000);
    auto const last = cost_of(200);
    // The index is a tree, of which one node per level is written: 2 KiB each, and a level more for 30 times as many
    // frames.
    EXPECT_GT(first.calls, 200U);
    EXPECT_LT(last.calls, first.calls * 5 / 4);
    EXPECT_LT(last.bytes, first.bytes * 2);
    EXPECT_LT(last.bytes / 200, 20'000U);
}

TEST(Hdf5Checksum, IsLookup3) {
    auto const of = [](std::string const& text) { return hdf5_checksum(std::as_bytes(std::span(text))); };
    // Published by the author of the function, for the start value 0.
    EXPECT_EQ(of(""), 0xDEADBEEFU);
    EXPECT_EQ(of("Four score and seven years ago"), 0x17770551U);
}

TEST(Hdf5Errors, BecomeExceptionsWithTheReason) {
    silence_hdf5_errors();
    testing::internal::CaptureStderr();
    std::string message;
    try {
        hdf5_checked(H5Fopen("/nowhere/at.h5", H5F_ACC_RDONLY, H5P_DEFAULT), "open a file");
    } catch (std::runtime_error const& error) {
        message = error.what();
    }
    EXPECT_THAT(message, HasSubstr("libhdf5 cannot open a file: "));
    EXPECT_THAT(message, HasSubstr("No such file or directory"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
