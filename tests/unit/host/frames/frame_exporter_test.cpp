// SPDX-License-Identifier: MIT
#include "frames/frame_exporter.hpp"

#include <gtest/gtest.h>

#include "collecting_sink.hpp"
#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

class FrameExporter : public testing::Test {
protected:
    static constexpr std::size_t capacity = 2;

    FrameExporter()
        : memory(std::make_shared<buffer_pool>(64, 2, 4)),
          exporter(sink, capacity, [this](frame_record const& frame, std::string const& why) {
              failures.push_back(std::to_string(frame.number) + ": " + why);
          }) {}

    /// Puts a frame into slot 0 and hands it over.
    void export_frame(std::uint64_t number) {
        auto frame = make_frame(frame_formats[0], 8, 4, 0, [number](auto, auto) { return number; });
        frame.record.number = number;
        std::copy(frame.bytes.begin(), frame.bytes.end(), memory->slot(0));
        exporter.export_slot(memory, 0, 0, frame.record);
        std::fill_n(memory->slot(0), 64, std::byte{0xEE});
    }

    collecting_sink sink;
    std::vector<std::string> failures;
    std::shared_ptr<buffer_pool> memory;
    frame_exporter exporter;
};

}  // namespace

TEST_F(FrameExporter, PreservesFramesAndTheirOrderWhileSlotsAreReused) {
    sink.hold();
    export_frame(1);
    export_frame(2);
    sink.let_go();
    exporter.finish();
    ASSERT_EQ(sink.frames().size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(sink.frames()[i].record.number, i + 1);
        EXPECT_EQ(sink.frames()[i].pixels, std::vector<std::byte>(32, static_cast<std::byte>(i + 1)));
    }
    EXPECT_EQ(exporter.count().saved, 2U);
    EXPECT_EQ(exporter.count().bytes, 64U);
}

TEST_F(FrameExporter, CopiesAFrameThatLiesElsewhere) {
    auto const frame = make_frame(frame_formats[0], 8, 4);
    auto elsewhere = frame.bytes;
    sink.hold();
    exporter.export_copy(memory, elsewhere.data(), frame.record);
    std::fill(elsewhere.begin(), elsewhere.end(), std::byte{0});
    sink.let_go();
    exporter.finish();
    ASSERT_EQ(sink.frames().size(), 1U);
    EXPECT_EQ(sink.frames()[0].pixels, frame.bytes);
}

TEST_F(FrameExporter, OmitsPixelsIfTheSinkNeedsNone) {
    sink.need_no_pixels();
    std::byte* const slot = memory->slot(0);
    std::fill_n(slot, 64, std::byte{0xEE});
    auto frame = make_frame(frame_formats[0], 8, 4);
    frame.record.number = 7;
    exporter.export_slot(memory, 0, 0, frame.record);
    exporter.export_copy(memory, frame.bytes.data(), frame.record);
    exporter.finish();
    ASSERT_EQ(sink.frames().size(), 2U);
    EXPECT_EQ(sink.frames()[0].record.number, 7U);
    EXPECT_TRUE(sink.frames()[0].pixels.empty());
    EXPECT_EQ(slot[0], std::byte{0xEE}) << "pages were exchanged";
    EXPECT_EQ(exporter.count().saved, 2U);
}

TEST_F(FrameExporter, DropsAndCountsFramesIfTheQueueIsFull) {
    sink.hold();
    for (std::uint64_t number = 1; number <= 5; ++number) {
        export_frame(number);
    }
    EXPECT_EQ(exporter.count().dropped_queue_full, 3U);
    sink.let_go();
    exporter.finish();
    EXPECT_EQ(exporter.count().saved, 2U);
    ASSERT_EQ(sink.frames().size(), 2U);
    EXPECT_EQ(sink.frames()[1].record.number, 2U);
}

TEST_F(FrameExporter, CountsAndReportsWhatTheSinkRefuses) {
    sink.refuse();
    export_frame(7);
    exporter.finish();
    EXPECT_EQ(exporter.count().dropped_write_error, 1U);
    EXPECT_EQ(exporter.count().saved, 0U);
    EXPECT_EQ(failures, std::vector<std::string>{"7: the sink is full"});
}

TEST_F(FrameExporter, ReleasesEverySpare) {
    for (std::uint64_t number = 1; number <= 20; ++number) {
        export_frame(number);
        sink.wait_until_begun(number - exporter.count().dropped_queue_full);
    }
    exporter.finish();
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(memory->acquire());
    }
}

TEST_F(FrameExporter, DropsFramesAfterItHasFinished) {
    exporter.finish();
    export_frame(1);
    EXPECT_EQ(exporter.count().dropped_queue_full, 1U);
    exporter.finish();
    EXPECT_TRUE(sink.frames().empty());
}

namespace {

/// Holds a lease of the last frame.
class remembering_observer final : public frame_observer_like {
public:
    explicit remembering_observer(bool with_pixels) : with_pixels_(with_pixels) {}
    void on_frame(frame_lease const& frame) noexcept override { last_ = frame; }
    bool needs_pixels() const override { return with_pixels_; }
    frame_lease const& last() const { return last_; }

private:
    bool const with_pixels_;
    frame_lease last_;
};

}  // namespace

TEST_F(FrameExporter, PassesFramesToObserversEvenIfTheSinkFails) {
    remembering_observer observer(false);
    sink.refuse();
    frame_exporter observed(sink, capacity, [](auto const&, auto const&) {}, {&observer});
    auto const frame = make_frame(frame_formats[0], 8, 4);
    observed.export_copy(memory, frame.bytes.data(), frame.record);
    observed.finish();
    ASSERT_TRUE(observer.last().has_pixels());
    EXPECT_EQ(observer.last().view().pixels[0], frame.bytes[0]) << "the frame stays while it has a lease";
}

TEST_F(FrameExporter, PassesPixelsToAnObserverThatNeedsThemIfTheSinkDoesNot) {
    sink.need_no_pixels();
    auto const frame = make_frame(frame_formats[0], 8, 4);
    for (bool const needed : {true, false}) {
        remembering_observer observer(needed);
        frame_exporter observed(sink, capacity, [](auto const&, auto const&) {}, {&observer});
        observed.export_copy(memory, frame.bytes.data(), frame.record);
        observed.finish();
        EXPECT_EQ(observer.last().has_pixels(), needed);
    }
}

TEST_F(FrameExporter, KeepsThePoolOfQueuedFramesAlive) {
    sink.hold();
    export_frame(1);
    std::weak_ptr<buffer_pool> const watched = memory;
    memory.reset();
    EXPECT_FALSE(watched.expired());
    sink.let_go();
    exporter.finish();
    EXPECT_EQ(sink.frames().size(), 1U);
    EXPECT_TRUE(watched.expired());
}
