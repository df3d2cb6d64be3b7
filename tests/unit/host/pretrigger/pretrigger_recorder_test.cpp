// SPDX-License-Identifier: MIT
#include "pretrigger/pretrigger_recorder.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <stdexcept>

#include "collecting_sink.hpp"
#include "frames/combined_sink.hpp"
#include "recording/recording.hpp"
#include "report/recording_reader.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr std::uint32_t period_us = 100'000;

/// A recorder for 10 frames/s with a buffer of one second, and two slots for frames that arrive while others are
/// written.
class PretriggerRecorder : public testing::Test {
protected:
    std::unique_ptr<pretrigger_recorder> make(bool pretrigger_on_loss = false,
                                              output_format kind = output_format::tiff) {
        return std::make_unique<pretrigger_recorder>(
            pretrigger_recorder::settings{
                .directory = directory.path() / "out",
                .make_recording = [kind](auto const& place) -> std::unique_ptr<frame_sink_like> {
                    return std::make_unique<recording>(
                        place, recording_format{.kind = kind, .compression = {}, .software = "tester", .model = ""});
                },
                .time = 1s,
                .spare_frames = 2,
                .trigger_on_loss = pretrigger_on_loss},
            [] { return period_us; }, [this] { return lost.load(); });
    }
    /// Frames number `from` to `to`.
    static void hold(pretrigger_recorder& ring, std::uint64_t from, std::uint64_t to, std::uint32_t width = 16) {
        for (std::uint64_t number = from; number <= to; ++number) {
            ring.write(numbered(number, width).view());
        }
    }
    static sample_frame numbered(std::uint64_t number, std::uint32_t width = 16) {
        auto frame = make_frame(frame_formats[0], width, 8, 3, [=](auto x, auto y) { return x + y + number; });
        frame.record.number = number;
        frame.record.timestamp_us = 1'700'000'000'000'000 + number * period_us;
        return frame;
    }
    /// The numbers of the frames in each recording, in the order of their times.
    std::vector<std::vector<std::uint64_t>> kept() const {
        auto const parent = directory.path() / "out" / "pretrigger";
        if (!std::filesystem::exists(parent)) {
            return {};
        }
        std::set<std::filesystem::path> places;
        for (auto const& entry : std::filesystem::directory_iterator(parent)) {
            EXPECT_TRUE(entry.path().filename().string().starts_with("20"));
            places.insert(entry.path());
        }
        std::vector<std::vector<std::uint64_t>> found;
        for (auto const& place : places) {
            auto& numbers = found.emplace_back();
            for (auto const& entry : read_index(place)) {
                numbers.push_back(entry.number);
                EXPECT_EQ(read_thumbnail(place, entry, 100).values.at(0), entry.number);
            }
        }
        return found;
    }

    temporary_directory const directory;
    std::atomic<std::uint64_t> lost{0};
};

}  // namespace

TEST_F(PretriggerRecorder, NamesTheRecordingOfAnEvent) {
    auto const ring = make();
    hold(*ring, 1, 3);
    auto const parent = directory.path() / "out" / "pretrigger";
    EXPECT_EQ(ring->trigger("test", "20261121T173318.123Z-door"), parent / "20261121T173318.123Z-door");
    EXPECT_EQ(ring->trigger("test", "20261121T173318.123Z-window"), std::nullopt) << "no frame since the last trigger";
    hold(*ring, 4, 5);
    EXPECT_EQ(ring->trigger("test", "20261121T173318.123Z-door"), parent / "20261121T173318.123Z-door-2");
    EXPECT_EQ(ring->finish().recordings, 2U);
    EXPECT_EQ(read_index(parent / "20261121T173318.123Z-door").size(), 3U);
    EXPECT_EQ(read_index(parent / "20261121T173318.123Z-door-2").size(), 2U);
}

TEST_F(PretriggerRecorder, WritesNothingWithoutATrigger) {
    auto const ring = make();
    hold(*ring, 1, 100);
    EXPECT_EQ(ring->finish().saved, 0U);
    EXPECT_TRUE(kept().empty());
}

TEST_F(PretriggerRecorder, WritesTheFramesOfTheConfiguredTimeInEveryFormat) {
    for (auto const kind : {output_format::tiff, output_format::bigtiff, output_format::hdf5, output_format::raw}) {
        auto const ring = make(false, kind);
        hold(*ring, 1, 100);
        ring->trigger("test");
        auto const figures = ring->finish();
        EXPECT_EQ(figures.saved, 11U);
        EXPECT_EQ(figures.recordings, 1U);
        EXPECT_EQ(figures.dropped_write_error, 0U);
        EXPECT_THAT(kept(), ElementsAre(ElementsAre(90, 91, 92, 93, 94, 95, 96, 97, 98, 99, 100)));
        std::filesystem::remove_all(directory.path() / "out");
    }
}

TEST_F(PretriggerRecorder, WritesNoFrameTwice) {
    auto const ring = make();
    hold(*ring, 1, 3);
    ring->trigger("test");
    ring->trigger("test");
    hold(*ring, 4, 5);
    ring->trigger("test");
    EXPECT_EQ(ring->finish().recordings, 2U);
    auto const found = kept();
    ASSERT_EQ(found.size(), 2U);
    // Both may have the same millisecond in their name; their order is then arbitrary.
    EXPECT_THAT(found, testing::UnorderedElementsAre(ElementsAre(1, 2, 3), ElementsAre(4, 5)));
}

TEST_F(PretriggerRecorder, WritesNothingBeforeTheFirstFrame) {
    auto const ring = make();
    ring->trigger("test");
    EXPECT_EQ(ring->finish().recordings, 0U);
}

TEST_F(PretriggerRecorder, RefusesAFrameIfAllSlotsWaitToBeWritten) {
    collecting_sink slow;
    slow.hold();
    pretrigger_recorder ring(
        {.directory = directory.path(),
         .make_recording =
             [&slow](auto const&) {
                 return std::make_unique<combined_sink>(std::vector<combined_sink::named_sink>{{"slow", &slow}});
             },
         .time = 1s,
         .spare_frames = 2,
         .trigger_on_loss = false},
        [] { return period_us; }, [] { return std::uint64_t{0}; });
    hold(ring, 1, 20);
    ring.trigger("test");  // 10 to 20 of the 13 that are held, 8 to 20
    slow.wait_until_begun(1);
    hold(ring, 21, 22);  // in place of 8 and 9
    EXPECT_THROW(hold(ring, 23, 23), std::runtime_error);
    ring.trigger("test");
    slow.let_go();
    EXPECT_EQ(ring.finish().saved, 13U);
    std::vector<std::uint64_t> numbers;
    for (auto const& frame : slow.frames()) {
        numbers.push_back(frame.record.number);
        EXPECT_EQ(frame.pixels, numbered(frame.record.number).bytes);
    }
    EXPECT_THAT(numbers, ElementsAre(10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22));
}

TEST_F(PretriggerRecorder, CountsFramesThatCannotBeWritten) {
    auto const ring = make();
    hold(*ring, 1, 13);
    std::filesystem::remove(directory.path() / "out");
    std::filesystem::create_symlink("/proc/nothing", directory.path() / "out");
    ring->trigger("test");
    auto const figures = ring->finish();
    EXPECT_EQ(figures.saved, 0U);
    EXPECT_EQ(figures.dropped_write_error, 11U);
}

TEST_F(PretriggerRecorder, TriggersAfterALoss) {
    auto const ring = make(true);
    hold(*ring, 1, 20);
    ++lost;
    hold(*ring, 21, 21);
    // A loss soon after the first one does not trigger before the configured time has passed.
    ++lost;
    hold(*ring, 22, 22);
    ring->finish();
    EXPECT_THAT(kept(), ElementsAre(ElementsAre(11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21)));
}

TEST_F(PretriggerRecorder, IgnoresLossesUnlessConfigured) {
    auto const ring = make(false);
    ++lost;
    hold(*ring, 1, 20);
    EXPECT_EQ(ring->finish().recordings, 0U);
}

TEST_F(PretriggerRecorder, AllocatesAgainForLargerFramesAndStillWritesSelectedOnes) {
    auto const ring = make();
    hold(*ring, 1, 3);
    ring->trigger("test");
    hold(*ring, 4, 5, 32);
    hold(*ring, 6, 6, 16);
    ring->trigger("test");
    EXPECT_EQ(ring->finish().saved, 6U);
    EXPECT_THAT(kept(), testing::UnorderedElementsAre(ElementsAre(1, 2, 3), ElementsAre(4, 5, 6)));
}

TEST_F(PretriggerRecorder, ReportsAnUnwritableDirectory) {
    try {
        pretrigger_recorder const ring(
            {.directory = "/proc/self/nothing",
             .make_recording = {},
             .time = 1s,
             .spare_frames = 1,
             .trigger_on_loss = false},
            [] { return 0U; }, [] { return std::uint64_t{0}; });
        FAIL() << "the recorder was created";
    } catch (std::runtime_error const& error) {
        EXPECT_THAT(error.what(), HasSubstr("cannot write to the output directory: /proc/self/nothing: "));
    }
}

TEST(PretriggerBuffer, HoldsAsManyFramesAsItsCapacity) {
    pretrigger_buffer memory(100, 3);
    EXPECT_EQ(memory.capacity(), 3U);
    for (std::uint64_t number = 0; number < 5; ++number) {
        memory.pixels(number)[99] = static_cast<std::byte>(number);
        memory.record(number).number = number;
    }
    EXPECT_EQ(memory.pixels(4)[99], std::byte{4});
    EXPECT_EQ(memory.pixels(2)[99], std::byte{2});
    EXPECT_EQ(memory.record(3).number, 3U);
}

TEST(PretriggerBuffer, IsRefusedWithoutEnoughMemory) {
    try {
        pretrigger_buffer const memory(std::size_t{1} << 30U, std::size_t{1} << 20U);
        FAIL() << "the memory was allocated";
    } catch (std::runtime_error const& error) {
        EXPECT_THAT(error.what(), HasSubstr("reduce pretrigger.seconds"));
    }
}
