// SPDX-License-Identifier: MIT
#include "segments/recording_retention.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <thread>

#include "base/file_handle.hpp"
#include "segments/stored_recording.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::UnorderedElementsAre;

namespace {

using std::chrono::system_clock;
using namespace std::chrono_literals;

constexpr std::uint64_t first_us = 1'795'282'398'000'000;  ///< 2026-11-21 17:33:18 UTC
constexpr std::uint64_t segment_bytes = 1'000;

system_clock::time_point at(std::chrono::seconds after_first) {
    return system_clock::time_point(std::chrono::microseconds(first_us)) + after_first;
}

/// A directory with finished segments of 1,000 bytes, one a minute.
class SegmentsOnDisk : public testing::Test {
protected:
    std::filesystem::path make_segment(int minute, bool with_summary = true) {
        auto const place = recording_place(pattern, at(std::chrono::minutes(minute)));
        std::filesystem::create_directories(place);
        std::ofstream(place / "frames.jsonl") << std::string(100, 'x');
        std::ofstream(place / "frames.raw") << std::string(segment_bytes - 100, 'x');
        if (with_summary) {
            auto const end_us = first_us + static_cast<std::uint64_t>(minute + 1) * 60'000'000;
            write_summary(place, {.frames = 1, .bytes = segment_bytes, .last_timestamp_us = end_us});
        }
        return place;
    }

    std::set<std::string> remaining() const {
        std::set<std::string> names;
        recording_places(pattern).visit_each([&](std::filesystem::path const& place) {
            names.insert(place.filename().string());
            return true;
        });
        return names;
    }

    std::size_t apply(retention_limits limits, system_clock::time_point now = at(1h)) const {
        return recording_retention({pattern}, limits, [this](auto const&) { return free_bytes(); }).apply(now);
    }

    temporary_directory root;
    std::string const pattern = (root.path() / "{date}/{time}").string();
    std::function<std::uint64_t()> free_bytes = [] { return 1'000'000; };
};

}  // namespace

TEST_F(SegmentsOnDisk, AreKeptWithoutLimits) {
    make_segment(0);
    EXPECT_EQ(apply({}), 0U);
    EXPECT_EQ(remaining().size(), 1U);
}

TEST_F(SegmentsOnDisk, AreDeletedAtTheirAge) {
    for (int minute = 0; minute < 4; ++minute) {
        make_segment(minute);
    }
    EXPECT_EQ(apply({.age = 2min}, at(2min)), 0U) << "the first is one minute old";
    EXPECT_EQ(apply({.age = 2min}, at(3min)), 0U) << "the first is exactly two minutes old";
    EXPECT_EQ(apply({.age = 2min}, at(4min + 1s)), 2U);
    EXPECT_THAT(remaining(), UnorderedElementsAre("20261121T173518Z", "20261121T173618Z"));
}

TEST_F(SegmentsOnDisk, AreDeletedFromTheOldestUntilTheOthersFit) {
    for (int minute = 0; minute < 4; ++minute) {
        make_segment(minute, minute != 2);
    }
    EXPECT_EQ(apply({.bytes = 4 * segment_bytes}), 0U);
    EXPECT_EQ(apply({.bytes = 4 * segment_bytes - 1}), 1U);
    EXPECT_EQ(apply({.bytes = segment_bytes}), 2U) << "a segment without a summary counts with its files";
    EXPECT_THAT(remaining(), UnorderedElementsAre("20261121T173618Z"));
}

TEST_F(SegmentsOnDisk, AreDeletedFromTheOldestUntilEnoughSpaceIsFree) {
    for (int minute = 0; minute < 4; ++minute) {
        make_segment(minute);
    }
    free_bytes = [this] { return 10'000 - segment_bytes * remaining().size(); };
    EXPECT_EQ(apply({.min_free_bytes = 6'000}), 0U);
    EXPECT_EQ(apply({.min_free_bytes = 8'000}), 2U);
    EXPECT_THAT(remaining(), UnorderedElementsAre("20261121T173518Z", "20261121T173618Z"));
}

TEST_F(SegmentsOnDisk, AreKeptWhileAProcessWritesToThem) {
    auto const unfinished = make_segment(0);
    make_segment(1);
    {
        mediagrabber::file_handle const index(open((unfinished / "frames.jsonl").c_str(), O_WRONLY | O_CLOEXEC));
        ASSERT_EQ(flock(index.get(), LOCK_EX), 0);
        EXPECT_EQ(apply({.age = 1s}), 1U);
        EXPECT_THAT(remaining(), UnorderedElementsAre("20261121T173318Z"));
        EXPECT_EQ(apply({.bytes = 1}), 0U);
        EXPECT_EQ(apply({.min_free_bytes = 2'000'000}), 0U);
    }
    EXPECT_EQ(apply({.age = 1s}), 1U);
}

TEST_F(SegmentsOnDisk, TakeEmptyDirectoriesWithThem) {
    make_segment(0);
    make_segment(24 * 60);
    EXPECT_EQ(apply({.bytes = segment_bytes}), 1U);
    EXPECT_FALSE(std::filesystem::exists(root.path() / "20261121"));
    EXPECT_EQ(apply({.age = 1s}, at(48h)), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(root.path()));
}

TEST_F(SegmentsOnDisk, LeaveFilesOfOthers) {
    auto const place = make_segment(0);
    for (char const* const name : {"frame-00000001-1700000000000001.tif", ".frame-00000002-1700000000000002.tif.part",
                                   "frames.tif", "frames.h5", "frames-2.h5", "report.html"}) {
        std::ofstream(place / name) << "x";
    }
    std::ofstream(place / "notes.txt") << "x";
    std::ofstream(place / "frame-1.tif") << "x";
    std::filesystem::create_directories(root.path() / "20261121/kept");
    EXPECT_EQ(apply({.age = 1s}), 1U);
    std::set<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(place)) {
        names.insert(entry.path().filename().string());
    }
    EXPECT_THAT(names, UnorderedElementsAre("notes.txt", "frame-1.tif"));
    EXPECT_EQ(apply({.age = 1s}), 0U) << "a directory without a frame index is not a recording";
}

TEST_F(SegmentsOnDisk, OfThePretriggerBufferAreDeletedOnRequestOnly) {
    auto const place = root.path() / "20261121T173318Z/pretrigger/20261121T173318.123Z";
    std::filesystem::create_directories(place);
    std::ofstream(place / "frames.jsonl") << "x";
    std::string const runs = (root.path() / "{time}").string();
    auto const later = system_clock::now() + 1h;
    EXPECT_EQ(recording_retention({runs}, {.age = 1s}).apply(later), 0U);
    EXPECT_TRUE(std::filesystem::exists(place));
    EXPECT_EQ(recording_retention({runs, runs + "/pretrigger/{time}"}, {.age = 1s}).apply(later), 1U);
    EXPECT_TRUE(std::filesystem::is_empty(root.path()));
}

TEST_F(SegmentsOnDisk, OfEventsAreRecordingsOfThePretriggerBuffer) {
    auto const parent = root.path() / "20261121T173318Z/pretrigger";
    for (auto const* const name : {"20261121T173318.123Z-door", "20261121T173318.123Z-door-2", "20261121T173318.123Z",
                                   "20261121T173318.123Z-2"}) {
        std::filesystem::create_directories(parent / name);
        std::ofstream(parent / name / "frames.jsonl") << "x";
    }
    std::filesystem::create_directories(parent / "door");
    std::ofstream(parent / "door" / "frames.jsonl") << "x";
    auto const runs = (root.path() / "{time}").string();
    EXPECT_EQ(recording_retention({runs + "/pretrigger/{time}{event}"}, {.age = 1s}).apply(system_clock::now() + 1h),
              4U);
    EXPECT_TRUE(std::filesystem::exists(parent / "door")) << "a directory that no trigger has made";
}

TEST_F(SegmentsOnDisk, AreReadOneDirectoryAtATime) {
    // A month of segments of an hour, a directory each day.
    for (int hour = 0; hour < 30 * 24; ++hour) {
        make_segment(hour * 60);
    }
    EXPECT_EQ(apply({.bytes = 24 * segment_bytes}, at(720h)), 29U * 24);
    EXPECT_EQ(remaining().size(), 24U);
}

TEST_F(SegmentsOnDisk, AreDeletedByTheThreadAfterASegmentIsFinished) {
    make_segment(0);
    make_segment(1);
    std::atomic<std::uint64_t> free{1'000'000};
    retention_thread thread(
        recording_retention({pattern}, {.min_free_bytes = 1'000}, [&](auto const&) { return free.load(); }));
    free = 0;
    thread.segment_finished();
    auto const limit = std::chrono::steady_clock::now() + 8s;  // below the interval of the thread
    while (!remaining().empty() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_TRUE(remaining().empty());
}

TEST(FreeBytes, AreThoseOfTheFileSystem) {
    EXPECT_LT(recording_retention::free_bytes_of("/tmp"), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(recording_retention::free_bytes_of("/missing"), std::numeric_limits<std::uint64_t>::max());
}
