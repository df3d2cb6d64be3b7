#include "frame_exporter.hpp"

#include <gtest/gtest.h>

#include "collecting_sink.hpp"
#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

class FrameExporter : public testing::Test {
protected:
    static constexpr std::size_t capacity = 2;

    FrameExporter()
        : memory(std::make_shared<frame_memory>(64, 2, 4)),
          exporter(sink, capacity, [this](frame_record const& frame, std::string const& why) {
              failures.push_back(std::to_string(frame.number) + ": " + why);
          }) {}

    /// Puts a frame into slot 0 and hands it over.
    void hand_over(std::uint64_t number) {
        auto frame = make_frame(pixel_formats[0], 8, 4, 0, [number](auto, auto) { return number; });
        frame.record.number = number;
        std::copy(frame.bytes.begin(), frame.bytes.end(), memory->slot(0));
        exporter.export_slot(memory, 0, 0, frame.record);
        std::fill_n(memory->slot(0), 64, std::byte{0xEE});
    }

    collecting_sink sink;
    std::vector<std::string> failures;
    std::shared_ptr<frame_memory> memory;
    frame_exporter exporter;
};

}  // namespace

TEST_F(FrameExporter, KeepsFramesInTheirOrderWhateverHappensToTheirSlot) {
    sink.hold();
    hand_over(1);
    hand_over(2);
    sink.let_go();
    exporter.finish();
    ASSERT_EQ(sink.frames().size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(sink.frames()[i].record.number, i + 1);
        EXPECT_EQ(sink.frames()[i].pixels, std::vector<std::byte>(32, static_cast<std::byte>(i + 1)));
    }
    EXPECT_EQ(exporter.count().kept, 2U);
    EXPECT_EQ(exporter.count().bytes, 64U);
}

TEST_F(FrameExporter, CopiesAFrameThatLiesElsewhere) {
    auto const frame = make_frame(pixel_formats[0], 8, 4);
    auto elsewhere = frame.bytes;
    sink.hold();
    exporter.export_copy(memory, elsewhere.data(), frame.record);
    std::fill(elsewhere.begin(), elsewhere.end(), std::byte{0});
    sink.let_go();
    exporter.finish();
    ASSERT_EQ(sink.frames().size(), 1U);
    EXPECT_EQ(sink.frames()[0].pixels, frame.bytes);
}

TEST_F(FrameExporter, BringsNoPixelsToASinkThatNeedsNone) {
    sink.need_no_pixels();
    std::byte* const slot = memory->slot(0);
    std::fill_n(slot, 64, std::byte{0xEE});
    auto frame = make_frame(pixel_formats[0], 8, 4);
    frame.record.number = 7;
    exporter.export_slot(memory, 0, 0, frame.record);
    exporter.export_copy(memory, frame.bytes.data(), frame.record);
    exporter.finish();
    ASSERT_EQ(sink.frames().size(), 2U);
    EXPECT_EQ(sink.frames()[0].record.number, 7U);
    EXPECT_TRUE(sink.frames()[0].pixels.empty());
    EXPECT_EQ(slot[0], std::byte{0xEE}) << "pages were exchanged";
    EXPECT_EQ(exporter.count().kept, 2U);
}

TEST_F(FrameExporter, CountsAFrameThatFindsNoRoomAsLost) {
    sink.hold();
    for (std::uint64_t number = 1; number <= 5; ++number) {
        hand_over(number);
    }
    EXPECT_EQ(exporter.count().overrun, 3U);
    sink.let_go();
    exporter.finish();
    EXPECT_EQ(exporter.count().kept, 2U);
    ASSERT_EQ(sink.frames().size(), 2U);
    EXPECT_EQ(sink.frames()[1].record.number, 2U);
}

TEST_F(FrameExporter, CountsAndReportsWhatTheSinkRefuses) {
    sink.refuse();
    hand_over(7);
    exporter.finish();
    EXPECT_EQ(exporter.count().refused, 1U);
    EXPECT_EQ(exporter.count().kept, 0U);
    EXPECT_EQ(failures, std::vector<std::string>{"7: the sink is full"});
}

TEST_F(FrameExporter, GivesEverySpareBack) {
    for (std::uint64_t number = 1; number <= 20; ++number) {
        hand_over(number);
        sink.wait_until_begun(number - exporter.count().overrun);
    }
    exporter.finish();
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(memory->take_spare());
    }
}

TEST_F(FrameExporter, TakesNothingAfterItHasFinished) {
    exporter.finish();
    hand_over(1);
    EXPECT_EQ(exporter.count().overrun, 1U);
    exporter.finish();
    EXPECT_TRUE(sink.frames().empty());
}

namespace {

/// Remembers the last frame that it has seen.
class remembering_watcher final : public frame_watcher_like {
public:
    explicit remembering_watcher(bool with_pixels) : with_pixels_(with_pixels) {}
    void see(frame_lease const& frame) noexcept override { last_ = frame; }
    bool needs_pixels() const override { return with_pixels_; }
    frame_lease const& last() const { return last_; }

private:
    bool const with_pixels_;
    frame_lease last_;
};

}  // namespace

TEST_F(FrameExporter, ShowsFramesToWatchersWhateverTheSinkMakesOfThem) {
    remembering_watcher watcher(false);
    sink.refuse();
    frame_exporter watched(sink, capacity, [](auto const&, auto const&) {}, {&watcher});
    auto const frame = make_frame(pixel_formats[0], 8, 4);
    watched.export_copy(memory, frame.bytes.data(), frame.record);
    watched.finish();
    ASSERT_TRUE(watcher.last().has_pixels());
    EXPECT_EQ(watcher.last().view().pixels[0], frame.bytes[0]) << "the frame stays while somebody has it";
}

TEST_F(FrameExporter, BringsPixelsToAWatcherWhereTheSinkNeedsNone) {
    sink.need_no_pixels();
    auto const frame = make_frame(pixel_formats[0], 8, 4);
    for (bool const needed : {true, false}) {
        remembering_watcher watcher(needed);
        frame_exporter watched(sink, capacity, [](auto const&, auto const&) {}, {&watcher});
        watched.export_copy(memory, frame.bytes.data(), frame.record);
        watched.finish();
        EXPECT_EQ(watcher.last().has_pixels(), needed);
    }
}

TEST_F(FrameExporter, KeepsTheMemoryOfWaitingFramesAlive) {
    sink.hold();
    hand_over(1);
    std::weak_ptr<frame_memory> const watched = memory;
    memory.reset();
    EXPECT_FALSE(watched.expired());
    sink.let_go();
    exporter.finish();
    EXPECT_EQ(sink.frames().size(), 1U);
    EXPECT_TRUE(watched.expired());
}
