// SPDX-License-Identifier: MIT
#include "stream/truth_log.hpp"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>

using namespace camsim;
using testing::HasSubstr;
using testing::Not;

namespace {

truth_header some_header() {
    truth_header header{"GO-5100M-PGE", "A42", 125'000'000, -12.5, {}};
    header.scene = {99, 1920, 1200, 32, 2.25, 0.1, scene_kind::dim};
    header.power_up_ns = 123'456'789'012;
    return header;
}

truth_frame some_frame() {
    truth_frame frame;
    frame.outcome = frame_outcome::aborted;
    frame.block_id = 0xFFFFFFFFFFFFFFFF;
    frame.ticks = 0xFEDCBA9876543210;
    frame.exposure_start_us = 1'700'000'000'000'001;
    frame.times = {1, 2, 3, 4, 5, 1'700'000'000'000'000'000};
    frame.unsent_packets = 17;
    frame.settings = {12345, 0.1 + 0.2, 3.98107170553, {1280, 1024, 8, 2}, pixel_format::bayer_rg8};
    frame.chunks = chunk_set(0b1010);
    frame.power_cycle = 3;
    frame.faults = {{"packet_loss", 4}, {"leader_loss", 1}};
    return frame;
}

}  // namespace

TEST(TruthLog, ReadsBackWhatItWrote) {
    std::istringstream file(to_json(some_header()) + "\n" + to_json(some_frame()) + "\n");
    truth_reader reader(file);
    EXPECT_EQ(reader.header().scene, some_header().scene);
    EXPECT_EQ(reader.header().serial, "A42");
    EXPECT_EQ(reader.header().power_up_ns, 123'456'789'012);
    EXPECT_EQ(reader.header().tick_frequency, 125'000'000U);
    EXPECT_EQ(reader.header().clock_drift_ppm, -12.5);
    auto const frame = reader.next();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->outcome, frame_outcome::aborted);
    EXPECT_EQ(frame->block_id, 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(frame->ticks, 0xFEDCBA9876543210U);
    EXPECT_EQ(frame->exposure_start_us, 1'700'000'000'000'001);
    EXPECT_EQ(frame->times, some_frame().times);
    EXPECT_EQ(frame->unsent_packets, 17U);
    EXPECT_EQ(frame->settings.exposure_us, 0.1 + 0.2);
    EXPECT_EQ(frame->settings.gain, 3.98107170553);
    EXPECT_EQ(frame->settings.area, (region{1280, 1024, 8, 2}));
    EXPECT_EQ(frame->settings.format, pixel_format::bayer_rg8);
    EXPECT_EQ(frame->settings.frame_number, 12345U);
    EXPECT_EQ(frame->chunks, chunk_set(0b1010));
    EXPECT_EQ(frame->power_cycle, 3U);
    EXPECT_EQ(frame->faults, some_frame().faults);
    EXPECT_FALSE(reader.next());
}

TEST(TruthLog, HasChunksOnlyIfAnyAreEnabled) {
    truth_frame frame = some_frame();
    EXPECT_THAT(to_json(frame), HasSubstr("\"chunks\":[\"ExposureTime\",\"ExposureStartCounter\"]"));
    EXPECT_THAT(to_json(frame), HasSubstr("\"payload_bytes\":" + std::to_string(1280 * 1024 + 8 + 12 + 12)));
    frame.chunks.reset();
    EXPECT_THAT(to_json(frame), Not(HasSubstr("chunks")));
    EXPECT_THAT(to_json(frame), HasSubstr("\"payload_bytes\":" + std::to_string(1280 * 1024) + ","));
}

TEST(TruthLog, HasGammaOrLutOfAFrame) {
    truth_frame bent = some_frame();
    bent.settings.applied_tone = {.gamma = 0.45};
    truth_frame first = some_frame();
    lut_tables tables{3, {identity_lut(), {}, identity_lut()}};
    first.settings.applied_tone = {.lut = std::make_shared<lut_tables const>(tables)};
    truth_frame const same = first;
    truth_frame other = some_frame();
    tables.number = 4;
    tables.channels[1].fill(4096);
    other.settings.applied_tone = {.lut = std::make_shared<lut_tables const>(tables)};

    auto const path = std::filesystem::temp_directory_path() / ("tone_truth_test." + std::to_string(::getpid()));
    truth_writer writer(path, some_header());
    for (truth_frame const& frame : {bent, first, same, some_frame(), same, other}) {
        writer.add(frame);
    }
    writer.finish();
    std::ifstream file(path);
    truth_reader reader(file);
    EXPECT_EQ(reader.next()->settings.applied_tone.gamma, 0.45);
    auto const read = reader.next();
    EXPECT_EQ(read->settings.applied_tone.lut->channels, first.settings.applied_tone.lut->channels);
    EXPECT_EQ(reader.next()->settings.applied_tone, read->settings.applied_tone);
    EXPECT_EQ(reader.next()->settings.applied_tone, tone{});
    EXPECT_EQ(reader.next()->settings.applied_tone, read->settings.applied_tone);
    EXPECT_EQ(reader.next()->settings.applied_tone.lut->channels, tables.channels);
    std::filesystem::remove(path);
}

TEST(TruthLog, WritesALutOnceAndRejectsAMissingOne) {
    truth_frame frame = some_frame();
    auto const lut = std::make_shared<lut_tables const>(lut_tables{7, {}});
    frame.settings.applied_tone = {.lut = lut};
    EXPECT_THAT(to_json(frame), HasSubstr("\"lut\":7,\"lut_tables\":[[0,0,"));
    EXPECT_THAT(to_json(frame, lut), Not(HasSubstr("lut_tables")));
    std::istringstream file(to_json(some_header()) + "\n" + to_json(frame, lut) + "\n");
    truth_reader reader(file);
    EXPECT_THROW(reader.next(), std::runtime_error);
}

TEST(TruthLog, HasNoSendTimesForAFrameThatWasNotSent) {
    truth_frame frame = some_frame();
    EXPECT_THAT(to_json(frame), HasSubstr("\"send_start_ns\":3,\"send_end_ns\":4"));
    frame.times.send_start_ns.reset();
    frame.times.send_end_ns.reset();
    EXPECT_THAT(to_json(frame), Not(HasSubstr("send_start_ns")));
    std::istringstream file(to_json(some_header()) + "\n" + to_json(frame) + "\n");
    EXPECT_EQ(truth_reader(file).next()->times, frame.times);
}

TEST(TruthLog, StopsBeforeAnIncompleteLine) {
    std::istringstream file(to_json(some_header()) + "\n" + to_json(some_frame()));
    truth_reader reader(file);
    EXPECT_FALSE(reader.next());
}

TEST(TruthLog, ReportsTheNumberOfAnInvalidLine) {
    std::istringstream no_header("{}\n");
    EXPECT_THROW(truth_reader{no_header}, std::runtime_error);
    std::istringstream file(to_json(some_header()) + "\n" + to_json(some_frame()) + "\nnonsense\n");
    truth_reader reader(file);
    reader.next();
    try {
        reader.next();
        FAIL() << "nonsense was read";
    } catch (std::runtime_error const& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("line 3"));
    }
}

TEST(TruthWriter, HasWrittenAllFramesWhenItHasFinished) {
    auto const path = std::filesystem::temp_directory_path() / ("truth_writer_test." + std::to_string(::getpid()));
    {
        truth_writer writer(path, some_header());
        for (int count = 0; count < 1000; ++count) {
            writer.add(some_frame());
        }
        writer.finish();
        EXPECT_FALSE(writer.failed());
    }
    std::ifstream file(path);
    truth_reader reader(file);
    int frames = 0;
    while (reader.next()) {
        ++frames;
    }
    EXPECT_EQ(frames, 1000);
    std::filesystem::remove(path);
}

TEST(TruthWriter, ThrowsIfTheFileCannotBeCreated) {
    EXPECT_THROW(truth_writer("/nowhere/truth", some_header()), std::runtime_error);
}

TEST(TruthWriter, ReportsAWriteError) {
    auto const path = std::filesystem::temp_directory_path() / ("full_truth_test." + std::to_string(::getpid()));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit const small{4096, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    truth_writer writer(path, some_header());
    for (int count = 0; count < 1000; ++count) {
        writer.add(some_frame());
    }
    writer.finish();
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_TRUE(writer.failed());
    std::filesystem::remove(path);
}
