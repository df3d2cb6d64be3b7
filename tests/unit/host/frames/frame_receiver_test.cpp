// SPDX-License-Identifier: MIT
#include "frames/frame_receiver.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/host_log.hpp"
#include "collecting_sink.hpp"
#include "file_size_limit.hpp"
#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

frame_format const& Mono8 = frame_formats[0];
frame_format const& Mono12Packed = frame_formats[1];

/// A receiver that is set up for 8 x 4 pixels of Mono8 in two buffers.
class FrameReceiver : public testing::Test {
protected:
    explicit FrameReceiver(std::uint64_t limit = 0)
        : exporter(sink, 4, [](auto const&, auto const&) {}), receiver(&exporter, 4, limit, progress) {
        receiver.publish_format("MONO8T");
        publish_geometry(8, 4, 8);
        receiver.set_buffer_count(2);
        receiver.set_up_memory(64);
        receiver.set_frame_size(32);
    }

    void publish_geometry(std::uint32_t width, std::uint32_t height, std::uint32_t stride) {
        receiver.set_width(width);
        receiver.set_height(height);
        receiver.set_stride(stride);
    }

    std::byte* slot(std::uint32_t index) { return static_cast<std::byte*>(receiver.buffer(index)); }

    /// A good frame in slot 0 with all bytes of a value. \return whether it was taken
    bool bring(std::uint64_t timestamp, unsigned value = 1) {
        receiver.begin_frame(8, 4, 20.0F);
        std::fill_n(slot(0), 32, static_cast<std::byte>(value));
        bool const taken = receiver.trigger(0, timestamp, slot(0));
        receiver.export_triggered();
        return taken;
    }

    std::vector<collecting_sink::kept_frame> const& kept() {
        exporter.finish();
        return sink.frames();
    }

    collecting_sink sink;
    grab_progress progress;
    frame_exporter exporter;
    frame_receiver receiver;
};

class LimitedReceiver : public FrameReceiver {
protected:
    LimitedReceiver() : FrameReceiver(2) {}
};

}  // namespace

// ---- Memory -------------------------------------------------------------------------------------

TEST_F(FrameReceiver, HasNoBufferBeforeASizeIsSet) {
    frame_receiver fresh(&exporter, 4, 0, progress);
    EXPECT_EQ(fresh.buffer(0), nullptr);
    fresh.set_frame_size(10);
    EXPECT_NE(fresh.buffer(0), nullptr);
}

TEST_F(FrameReceiver, HasExactlyTheRequestedNumberOfBuffers) {
    EXPECT_NE(receiver.buffer(0), nullptr);
    EXPECT_GE(slot(1) - slot(0), 64);
    EXPECT_EQ(receiver.buffer(2), nullptr);
    EXPECT_EQ(progress.buffers_in_use, 2U);
}

TEST_F(FrameReceiver, HasTwoBuffersAtLeast) {
    receiver.set_buffer_count(0);
    EXPECT_NE(receiver.buffer(1), nullptr);
    EXPECT_EQ(progress.buffers_in_use, 2U);
}

TEST_F(FrameReceiver, AllocatesBuffersOfTheLargestRequestedSize) {
    receiver.set_up_instance(1, 3'000'000);
    EXPECT_GE(slot(1) - slot(0), 3'000'000);
}

TEST_F(FrameReceiver, KeepsOutgrownBuffersUntilTheRunEnds) {
    std::byte* const before = slot(0);
    receiver.set_up_memory(5'000'000);
    std::byte* const after = slot(0);
    EXPECT_NE(before, after);
    before[0] = std::byte{1};
    receiver.end_run();
    receiver.set_up_memory(100);
    EXPECT_EQ(slot(0), after);
}

TEST_F(FrameReceiver, HasNoBufferWhenThereIsNoMemory) {
    file_size_limit const limit(4'096);
    EXPECT_EQ(receiver.buffer(0), nullptr);
    std::byte pixel{};
    EXPECT_FALSE(receiver.trigger(0, 1, &pixel));
    EXPECT_EQ(progress.unusable, 1U);
}

// ---- Values -------------------------------------------------------------------------------------

TEST_F(FrameReceiver, HandsAFrameOverWithEverythingThatWasPublished) {
    receiver.announce(990);
    receiver.begin_frame(8, 4, 36.5F);
    auto& next = receiver.next_frame();
    next.gain_db = 1.5F;
    next.exposure_us = 250.0F;
    next.ticks = 77;
    next.counter = 5;
    auto const pixels = make_frame(Mono8, 8, 4);
    std::copy(pixels.bytes.begin(), pixels.bytes.end(), slot(1));
    EXPECT_TRUE(receiver.trigger(0, 1'000, slot(1)));
    receiver.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    auto const& [record, bytes] = kept()[0];
    EXPECT_EQ(bytes, pixels.bytes);
    EXPECT_EQ(record.number, 1U);
    EXPECT_EQ(record.timestamp_us, 1'000U);
    EXPECT_EQ(record.announced_us, 990U);
    EXPECT_EQ(record.gain_db, 1.5F);
    EXPECT_EQ(record.exposure_us, 250.0F);
    EXPECT_EQ(record.ticks, 77U);
    ASSERT_TRUE(record.exposed);
    EXPECT_LE(record.exposed->time_us, record.handed_over_us - 250) << "the exposure ended before the frame arrived";
    EXPECT_GT(record.exposed->time_us + 10'000'000, record.handed_over_us);
    EXPECT_EQ(record.counter, 5U);
    EXPECT_EQ(record.temperature_c, 36.5F);
    EXPECT_EQ(record.width, 8U);
    EXPECT_EQ(record.height, 4U);
    EXPECT_EQ(record.stride, 8U);
    EXPECT_EQ(record.format, &Mono8);
}

TEST_F(FrameReceiver, CarriesNoValueOverToTheNextFrame) {
    receiver.begin_frame(8, 4, 36.5F);
    auto& next = receiver.next_frame();
    next.gain_db = 1.5F;
    next.exposure_us = 1.5F;
    next.ticks = 1;
    next.counter = 1;
    receiver.begin_frame(8, 4, -321.0F);
    EXPECT_TRUE(receiver.trigger(0, 1, slot(0)));
    receiver.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    auto const& record = kept()[0].record;
    EXPECT_FALSE(record.gain_db || record.exposure_us || record.ticks || record.counter || record.temperature_c);
    EXPECT_FALSE(record.exposed);
}

TEST_F(FrameReceiver, ReadsThePixelsAtTheTimeOfTheExport) {
    sink.hold();
    bring(1, 0x11);
    bring(2, 0x22);
    std::fill_n(slot(0), 32, std::byte{0xEE});
    sink.let_go();
    ASSERT_EQ(kept().size(), 2U);
    EXPECT_EQ(kept()[0].pixels, std::vector<std::byte>(32, std::byte{0x11}));
    EXPECT_EQ(kept()[1].pixels, std::vector<std::byte>(32, std::byte{0x22}));
}

TEST_F(FrameReceiver, ForgetsAnAnnouncementWithTheRun) {
    receiver.announce(5);
    receiver.end_run();
    receiver.set_up_memory(64);
    bring(1);
    ASSERT_EQ(kept().size(), 1U);
    EXPECT_FALSE(kept()[0].record.announced_us);
}

TEST_F(FrameReceiver, CountsArrivingFrames) {
    bring(1);
    bring(2);
    EXPECT_EQ(progress.good_frames, 2U);
    EXPECT_EQ(progress.handed_over, 2U);
    EXPECT_EQ(progress.temperature_c, 20.0F);
    EXPECT_NE(progress.last_frame.load(), grab_progress::clock::time_point{});
    EXPECT_LE(progress.first_exported.load(), progress.last_exported.load());
}

// ---- Converted frames ---------------------------------------------------------------------------

TEST_F(FrameReceiver, ExportsTheConvertedFrameWhereThereIsOne) {
    auto const converted = make_frame(Mono12Packed, 8, 4);
    receiver.set_up_instance(1, 64);
    receiver.publish_codec(1, "MONO12PT");
    receiver.begin_frame(8, 4, 20.0F);
    EXPECT_TRUE(receiver.trigger(1, 5, converted.bytes.data()));
    EXPECT_TRUE(receiver.trigger(0, 5, slot(0)));
    receiver.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    EXPECT_EQ(kept()[0].record.format, &Mono12Packed);
    EXPECT_EQ(kept()[0].record.stride, 12U);
    EXPECT_EQ(kept()[0].pixels, converted.bytes);
}

TEST_F(FrameReceiver, ExportsAConvertedFrameOfInstanceZero) {
    auto const converted = make_frame(Mono12Packed, 8, 4);
    receiver.set_up_instance(0, 64);
    receiver.publish_codec(0, "MONO12PT");
    receiver.begin_frame(8, 4, 20.0F);
    EXPECT_TRUE(receiver.trigger(0, 5, converted.bytes.data()));
    receiver.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    EXPECT_EQ(kept()[0].pixels, converted.bytes);
}

TEST_F(FrameReceiver, ForgetsConversionsWithTheFormat) {
    auto const converted = make_frame(Mono12Packed, 8, 4);
    receiver.publish_codec(1, "MONO12PT");
    receiver.publish_format("MONO8T");
    receiver.begin_frame(8, 4, 20.0F);
    EXPECT_FALSE(receiver.trigger(1, 5, converted.bytes.data()));
}

// ---- Frames that do not match their values --------------------------------------------------------

TEST_F(FrameReceiver, LogsAMismatchOncePerRun) {
    auto const logged = [this] {
        testing::internal::CaptureStderr();
        {
            log_opened const log;
            receiver.set_height(0);
            receiver.begin_frame(8, 4, 20.0F);
            EXPECT_FALSE(receiver.trigger(0, 1, slot(0)));
        }
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_THAT(logged(),
                testing::HasSubstr("frames cannot be recorded, they do not match the published values: 8 x 0"));
    EXPECT_EQ(logged(), "");
    receiver.end_run();
    receiver.set_up_memory(1'000);
    EXPECT_THAT(logged(), testing::HasSubstr("frames cannot be recorded"));
}

TEST_F(FrameReceiver, RefusesAndCountsUnusableFrames) {
    receiver.begin_frame(8, 4, 20.0F);
    std::byte stray{};
    EXPECT_FALSE(receiver.trigger(2, 1, slot(0)));
    EXPECT_FALSE(receiver.trigger(0xFFFFFFFF, 1, slot(0)));
    EXPECT_FALSE(receiver.trigger(0, 1, nullptr));
    EXPECT_FALSE(receiver.trigger(0, 1, &stray));
    EXPECT_FALSE(receiver.trigger(0, 1, slot(0) + 60));
    EXPECT_EQ(progress.unusable, 5U);
    receiver.export_triggered();
    EXPECT_TRUE(kept().empty());
    EXPECT_EQ(progress.handed_over, 0U);
}

TEST_F(FrameReceiver, RefusesAFrameOfAnUnknownFormat) {
    receiver.publish_format("RGB8");
    EXPECT_EQ(receiver.camera_format(), nullptr);
    EXPECT_FALSE(bring(1));
}

TEST_F(FrameReceiver, RefusesAFrameOfAnotherSizeThanWasPublished) {
    receiver.begin_frame(8, 5, 20.0F);
    EXPECT_FALSE(receiver.trigger(0, 1, slot(0)));
    receiver.begin_frame(9, 4, 20.0F);
    EXPECT_FALSE(receiver.trigger(0, 1, slot(0)));
}

TEST_F(FrameReceiver, RefusesGeometryThatDoesNotFitItsMemory) {
    for (auto const& [width, height, stride] : {std::array<std::uint32_t, 3>{8, 4, 7},
                                                {0, 4, 8},
                                                {8, 0, 8},
                                                {8, 100, 8},
                                                {8, 4, 1'000'000},
                                                {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}}) {
        publish_geometry(width, height, stride);
        receiver.begin_frame(width, height, 20.0F);
        EXPECT_FALSE(receiver.trigger(0, 1, slot(0))) << width << " x " << height << ", " << stride;
    }
}

TEST_F(FrameReceiver, RefusesAConvertedFrameThatIsLargerThanItsMemory) {
    std::vector<std::byte> const large(10'000);
    publish_geometry(100, 100, 100);
    receiver.publish_codec(1, "MONO8T");
    receiver.begin_frame(100, 100, 20.0F);
    EXPECT_FALSE(receiver.trigger(1, 1, large.data()));
}

TEST_F(FrameReceiver, RefusesFramesWhereNoneAreExpected) {
    frame_receiver closed(nullptr, 0, 0, progress);
    closed.set_up_memory(64);
    std::byte pixel{};
    EXPECT_FALSE(closed.trigger(0, 1, &pixel));
    closed.export_triggered();
}

TEST_F(FrameReceiver, DoesNotExportATriggeredFrameTwice) {
    bring(1);
    receiver.export_triggered();
    EXPECT_EQ(kept().size(), 1U);
}

// ---- The number of frames -----------------------------------------------------------------------

TEST_F(FrameReceiver, IsNeverCompleteWithoutALimit) {
    bring(1);
    EXPECT_FALSE(receiver.limited());
    EXPECT_FALSE(receiver.complete());
}

TEST_F(LimitedReceiver, IsCompleteWithItsLastFrame) {
    EXPECT_TRUE(receiver.limited());
    EXPECT_EQ(receiver.remaining(), 2U);
    bring(1);
    EXPECT_EQ(receiver.remaining(), 1U);
    EXPECT_FALSE(receiver.complete());
    bring(2);
    EXPECT_TRUE(receiver.complete());
    EXPECT_EQ(receiver.remaining(), 0U);
    bring(3);
    EXPECT_EQ(kept().size(), 2U);
    EXPECT_EQ(progress.handed_over, 2U);
}

TEST_F(LimitedReceiver, CountsAFrameThatIsLostOnTheWayToTheDiskAsHandedOver) {
    sink.refuse();
    bring(1);
    bring(2);
    EXPECT_TRUE(receiver.complete());
    EXPECT_TRUE(kept().empty());
}
