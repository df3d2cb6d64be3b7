// SPDX-License-Identifier: MIT
#include "segments/segmented_recording.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::ElementsAre;

namespace {

constexpr std::uint64_t start_us = 1'795'282'398'000'000;  ///< 2026-11-21 17:33:18 UTC
constexpr std::chrono::system_clock::time_point start{std::chrono::microseconds(start_us)};

segmented_recording::settings raw_into(std::filesystem::path const& root) {
    return {.directory = (root / "{time}").string(),
            .format = {.kind = output_format::raw, .compression = {}, .software = "tester", .model = ""}};
}

sample_frame frame_at(std::uint64_t number, std::uint64_t timestamp_us) {
    auto frame = make_frame(frame_formats[0], 16, 8);
    frame.record.number = number;
    frame.record.timestamp_us = timestamp_us;
    return frame;
}

/// "DIRECTORY: FRAME FRAME" for each recording in a directory, in the order of the names
std::vector<std::string> segments_in(std::filesystem::path const& root) {
    std::vector<std::string> found;
    for (auto const& entry : std::filesystem::directory_iterator(root)) {
        std::string text = entry.path().filename().string() + ":";
        std::ifstream index(entry.path() / "frames.jsonl");
        for (std::string line; std::getline(index, line);) {
            text += " " + nlohmann::json::parse(line).at("frame").dump();
        }
        found.push_back(text);
    }
    std::ranges::sort(found);
    return found;
}

nlohmann::json summary_of(std::filesystem::path const& segment) {
    std::ifstream file(segment / "segment.json");
    return nlohmann::json::parse(file);
}

}  // namespace

TEST(SegmentedRecording, IsOneRecordingWithoutLimits) {
    temporary_directory const root;
    {
        segmented_recording made(raw_into(root.path()), start);
        for (std::uint64_t n = 1; n <= 3; ++n) {
            made.write(frame_at(n, start_us + n * 86'400'000'000).view());
        }
        EXPECT_EQ(made.directory(), root.path() / "20261121T173318Z");
    }
    EXPECT_THAT(segments_in(root.path()), ElementsAre("20261121T173318Z: 1 2 3"));
    EXPECT_FALSE(std::filesystem::exists(root.path() / "20261121T173318Z/segment.json"));
}

TEST(SegmentedRecording, EndsSegmentsAtTheirNumberOfFrames) {
    temporary_directory const root;
    auto chosen = raw_into(root.path());
    chosen.max_frames = 2;
    int finished = 0;
    {
        segmented_recording made(chosen, start, [&] { ++finished; });
        for (std::uint64_t n = 1; n <= 5; ++n) {
            made.write(frame_at(n, start_us + n * 1'000).view());
        }
        EXPECT_EQ(finished, 2);
        EXPECT_EQ(made.directory(), root.path() / "20261121T173318Z-3");
    }
    EXPECT_EQ(finished, 3);
    EXPECT_THAT(segments_in(root.path()),
                ElementsAre("20261121T173318Z-2: 3 4", "20261121T173318Z-3: 5", "20261121T173318Z: 1 2"));
}

TEST(SegmentedRecording, EndsSegmentsAtMultiplesOfTheirDuration) {
    temporary_directory const root;
    auto chosen = raw_into(root.path());
    chosen.max_time = std::chrono::minutes(1);
    {
        segmented_recording made(chosen, start);
        made.write(frame_at(1, start_us + 41'999'999).view());  // 17:33:59.999999
        made.write(frame_at(2, start_us + 42'000'000).view());
        made.write(frame_at(3, start_us + 101'999'999).view());
        made.write(frame_at(4, start_us + 200'000'000).view());
        made.write(frame_at(5, start_us).view());  // the clock was set back
    }
    EXPECT_THAT(segments_in(root.path()), ElementsAre("20261121T173318Z-2: 5", "20261121T173318Z: 1",
                                                      "20261121T173400Z: 2 3", "20261121T173638Z: 4"));
}

TEST(SegmentedRecording, LeavesNoEmptySegment) {
    temporary_directory const root;
    auto chosen = raw_into(root.path());
    chosen.max_time = std::chrono::minutes(1);
    {
        segmented_recording made(chosen, start);
        made.write(frame_at(1, start_us + 60'000'000).view());
    }
    EXPECT_THAT(segments_in(root.path()), ElementsAre("20261121T173418Z: 1"));
    {
        segmented_recording const made(chosen, start);
        EXPECT_EQ(segments_in(root.path()).size(), 2U);
    }
    EXPECT_EQ(segments_in(root.path()).size(), 1U);
}

TEST(SegmentedRecording, WritesASummaryOfEachFinishedSegment) {
    temporary_directory const root;
    auto chosen = raw_into(root.path());
    chosen.max_frames = 2;
    segmented_recording made(chosen, start);
    std::size_t bytes = 0;
    for (std::uint64_t n = 1; n <= 3; ++n) {
        auto const written = made.write(frame_at(n, start_us + n).view());
        bytes += n <= 2 ? written : 0;
    }
    auto const segment = root.path() / "20261121T173318Z";
    EXPECT_EQ(summary_of(segment), nlohmann::json({{"frames", 2},
                                                   {"bytes", bytes},
                                                   {"first_frame", 1},
                                                   {"last_frame", 2},
                                                   {"first_timestamp_us", start_us + 1},
                                                   {"last_timestamp_us", start_us + 2}}));
    EXPECT_EQ(bytes, std::filesystem::file_size(segment / "frames.raw") +
                         std::filesystem::file_size(segment / "frames.jsonl"));
    EXPECT_FALSE(std::filesystem::exists(root.path() / "20261121T173318Z-2/segment.json"));
}

TEST(SegmentedRecording, KeepsOtherProcessesFromTakingThePresentSegmentForFinished) {
    temporary_directory const root;
    auto chosen = raw_into(root.path());
    chosen.max_frames = 1;
    std::filesystem::path last;
    {
        segmented_recording made(chosen, start);
        auto const first = made.directory();
        EXPECT_FALSE(is_finished_recording(first));
        made.write(frame_at(1, start_us).view());
        made.write(frame_at(2, start_us).view());
        last = made.directory();
        EXPECT_TRUE(is_finished_recording(first));
        EXPECT_FALSE(is_finished_recording(last));
    }
    EXPECT_TRUE(is_finished_recording(last));
    EXPECT_FALSE(is_finished_recording(root.path()));
}

TEST(SegmentedRecording, GoesOnInTheOldSegmentWhenNoNewOneCanBeCreated) {
    temporary_directory const root;
    auto chosen = raw_into(root.path() / "{date}");
    chosen.max_time = std::chrono::hours(24);
    std::filesystem::create_directories(root.path() / "20261121");
    std::ofstream(root.path() / "20261122") << "in the way";
    {
        segmented_recording made(chosen, start);
        made.write(frame_at(1, start_us).view());
        for (std::uint64_t n = 2; n <= 3; ++n) {
            made.write(frame_at(n, start_us + 86'400'000'000).view());
        }
        std::filesystem::remove(root.path() / "20261122");
        made.write(frame_at(4, start_us + 86'400'000'000).view());
    }
    EXPECT_THAT(segments_in(root.path() / "20261121"), ElementsAre("20261121T173318Z: 1 2 3"));
    EXPECT_THAT(segments_in(root.path() / "20261122"), ElementsAre("20261122T173318Z: 4"));
}
