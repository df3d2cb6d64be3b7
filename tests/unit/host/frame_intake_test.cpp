#include "frame_intake.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "collecting_sink.hpp"
#include "file_size_limit.hpp"
#include "host_log.hpp"
#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

pixel_format const& mono8 = pixel_formats[0];
pixel_format const& mono12p = pixel_formats[1];

/// An intake that is set up for 8 x 4 pixels of Mono8 in two buffers.
class FrameIntake : public testing::Test {
protected:
    explicit FrameIntake(std::uint64_t limit = 0)
        : exporter(sink, 4, [](auto const&, auto const&) {}), intake(&exporter, 4, limit, progress) {
        intake.publish_format("MONO8T");
        publish_geometry(8, 4, 8);
        intake.set_buffer_count(2);
        intake.set_up_memory(64);
        intake.set_frame_size(32);
    }

    void publish_geometry(std::uint32_t width, std::uint32_t height, std::uint32_t stride) {
        intake.publish_geometry(1, width);
        intake.publish_geometry(2, height);
        intake.publish_geometry(8, stride);
    }

    std::byte* slot(std::uint32_t index) { return static_cast<std::byte*>(intake.buffer(index)); }

    /// A good frame in slot 0 with all bytes of a value. \return whether it was taken
    bool bring(std::uint64_t timestamp, unsigned value = 1) {
        intake.begin_frame(8, 4, 20.0F);
        std::fill_n(slot(0), 32, static_cast<std::byte>(value));
        bool const taken = intake.trigger(0, timestamp, slot(0));
        intake.export_triggered();
        return taken;
    }

    std::vector<collecting_sink::kept_frame> const& kept() {
        exporter.finish();
        return sink.frames();
    }

    collecting_sink sink;
    grab_progress progress;
    frame_exporter exporter;
    frame_intake intake;
};

class LimitedIntake : public FrameIntake {
protected:
    LimitedIntake() : FrameIntake(2) {}
};

}  // namespace

// ---- Memory -------------------------------------------------------------------------------------

TEST_F(FrameIntake, HasNoBufferBeforeItKnowsASize) {
    frame_intake fresh(&exporter, 4, 0, progress);
    EXPECT_EQ(fresh.buffer(0), nullptr);
    fresh.set_frame_size(10);
    EXPECT_NE(fresh.buffer(0), nullptr);
}

TEST_F(FrameIntake, HasTheBuffersThatWereAskedForAndNoMore) {
    EXPECT_NE(intake.buffer(0), nullptr);
    EXPECT_GE(slot(1) - slot(0), 64);
    EXPECT_EQ(intake.buffer(2), nullptr);
    EXPECT_EQ(progress.buffers_in_use, 2U);
}

TEST_F(FrameIntake, HasTwoBuffersAtLeast) {
    intake.set_buffer_count(0);
    EXPECT_NE(intake.buffer(1), nullptr);
    EXPECT_EQ(progress.buffers_in_use, 2U);
}

TEST_F(FrameIntake, MakesItsBuffersForTheLargestSizeThatWasAskedFor) {
    intake.set_up_instance(1, 3'000'000);
    EXPECT_GE(slot(1) - slot(0), 3'000'000);
}

TEST_F(FrameIntake, KeepsBuffersThatHaveBecomeTooSmallUntilTheRunEnds) {
    std::byte* const before = slot(0);
    intake.set_up_memory(5'000'000);
    std::byte* const after = slot(0);
    EXPECT_NE(before, after);
    before[0] = std::byte{1};
    intake.end_run();
    intake.set_up_memory(100);
    EXPECT_EQ(slot(0), after);
}

TEST_F(FrameIntake, HasNoBufferWhenThereIsNoMemory) {
    file_size_limit const limit(4'096);
    EXPECT_EQ(intake.buffer(0), nullptr);
    std::byte pixel{};
    EXPECT_FALSE(intake.trigger(0, 1, &pixel));
    EXPECT_EQ(progress.unusable, 1U);
}

// ---- Values -------------------------------------------------------------------------------------

TEST_F(FrameIntake, HandsAFrameOverWithEverythingThatWasPublished) {
    intake.announce(990);
    intake.begin_frame(8, 4, 36.5F);
    auto& coming = intake.coming_frame();
    coming.gain_db = 1.5F;
    coming.exposure_us = 250.0F;
    coming.ticks = 77;
    coming.counter = 5;
    auto const pixels = make_frame(mono8, 8, 4);
    std::copy(pixels.bytes.begin(), pixels.bytes.end(), slot(1));
    EXPECT_TRUE(intake.trigger(0, 1'000, slot(1)));
    intake.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    auto const& [record, bytes] = kept()[0];
    EXPECT_EQ(bytes, pixels.bytes);
    EXPECT_EQ(record.number, 1U);
    EXPECT_EQ(record.timestamp_us, 1'000U);
    EXPECT_EQ(record.announced_us, 990U);
    EXPECT_EQ(record.gain_db, 1.5F);
    EXPECT_EQ(record.exposure_us, 250.0F);
    EXPECT_EQ(record.ticks, 77U);
    EXPECT_EQ(record.counter, 5U);
    EXPECT_EQ(record.temperature_c, 36.5F);
    EXPECT_EQ(record.width, 8U);
    EXPECT_EQ(record.height, 4U);
    EXPECT_EQ(record.stride, 8U);
    EXPECT_EQ(record.format, &mono8);
}

TEST_F(FrameIntake, CarriesNoValueOverToTheNextFrame) {
    intake.begin_frame(8, 4, 36.5F);
    auto& coming = intake.coming_frame();
    coming.gain_db = 1.5F;
    coming.exposure_us = 1.5F;
    coming.ticks = 1;
    coming.counter = 1;
    intake.begin_frame(8, 4, -321.0F);
    EXPECT_TRUE(intake.trigger(0, 1, slot(0)));
    intake.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    auto const& record = kept()[0].record;
    EXPECT_FALSE(record.gain_db || record.exposure_us || record.ticks || record.counter || record.temperature_c);
}

TEST_F(FrameIntake, TakesAFrameAsItIsWhenItIsExported) {
    sink.hold();
    bring(1, 0x11);
    bring(2, 0x22);
    std::fill_n(slot(0), 32, std::byte{0xEE});
    sink.let_go();
    ASSERT_EQ(kept().size(), 2U);
    EXPECT_EQ(kept()[0].pixels, std::vector<std::byte>(32, std::byte{0x11}));
    EXPECT_EQ(kept()[1].pixels, std::vector<std::byte>(32, std::byte{0x22}));
}

TEST_F(FrameIntake, ForgetsAnAnnouncementWithTheRun) {
    intake.announce(5);
    intake.end_run();
    intake.set_up_memory(64);
    bring(1);
    ASSERT_EQ(kept().size(), 1U);
    EXPECT_FALSE(kept()[0].record.announced_us);
}

TEST_F(FrameIntake, TellsThatFramesArrive) {
    bring(1);
    bring(2);
    EXPECT_EQ(progress.good_frames, 2U);
    EXPECT_EQ(progress.handed_over, 2U);
    EXPECT_EQ(progress.temperature_c, 20.0F);
    EXPECT_NE(progress.last_frame.load(), grab_progress::clock::time_point{});
    EXPECT_LE(progress.first_exported.load(), progress.last_exported.load());
}

// ---- Converted frames ---------------------------------------------------------------------------

TEST_F(FrameIntake, ExportsTheConvertedFrameWhereThereIsOne) {
    auto const converted = make_frame(mono12p, 8, 4);
    intake.set_up_instance(1, 64);
    intake.publish_codec(1, "MONO12PT");
    intake.begin_frame(8, 4, 20.0F);
    EXPECT_TRUE(intake.trigger(1, 5, converted.bytes.data()));
    EXPECT_TRUE(intake.trigger(0, 5, slot(0)));
    intake.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    EXPECT_EQ(kept()[0].record.format, &mono12p);
    EXPECT_EQ(kept()[0].record.stride, 12U);
    EXPECT_EQ(kept()[0].pixels, converted.bytes);
}

TEST_F(FrameIntake, ExportsAConvertedFrameOfInstanceZero) {
    auto const converted = make_frame(mono12p, 8, 4);
    intake.set_up_instance(0, 64);
    intake.publish_codec(0, "MONO12PT");
    intake.begin_frame(8, 4, 20.0F);
    EXPECT_TRUE(intake.trigger(0, 5, converted.bytes.data()));
    intake.export_triggered();
    ASSERT_EQ(kept().size(), 1U);
    EXPECT_EQ(kept()[0].pixels, converted.bytes);
}

TEST_F(FrameIntake, ForgetsConversionsWithTheFormat) {
    auto const converted = make_frame(mono12p, 8, 4);
    intake.publish_codec(1, "MONO12PT");
    intake.publish_format("MONO8T");
    intake.begin_frame(8, 4, 20.0F);
    EXPECT_FALSE(intake.trigger(1, 5, converted.bytes.data()));
}

// ---- Frames that can't be used ------------------------------------------------------------------

TEST_F(FrameIntake, SaysOnceARunWhyFramesCantBeUsed) {
    auto const said = [this] {
        testing::internal::CaptureStderr();
        {
            log_opened const log;
            intake.publish_geometry(2, 0);
            intake.begin_frame(8, 4, 20.0F);
            EXPECT_FALSE(intake.trigger(0, 1, slot(0)));
        }
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_THAT(said(),
                testing::HasSubstr("frames can't be recorded, they do not fit what the plug-in tells of them: 8 x 0"));
    EXPECT_EQ(said(), "");
    intake.end_run();
    intake.set_up_memory(1'000);
    EXPECT_THAT(said(), testing::HasSubstr("frames can't be recorded"));
}

TEST_F(FrameIntake, RefusesAndCountsWhatItCantUse) {
    intake.begin_frame(8, 4, 20.0F);
    std::byte stray{};
    EXPECT_FALSE(intake.trigger(2, 1, slot(0)));
    EXPECT_FALSE(intake.trigger(0xFFFFFFFF, 1, slot(0)));
    EXPECT_FALSE(intake.trigger(0, 1, nullptr));
    EXPECT_FALSE(intake.trigger(0, 1, &stray));
    EXPECT_FALSE(intake.trigger(0, 1, slot(0) + 60));
    EXPECT_EQ(progress.unusable, 5U);
    intake.export_triggered();
    EXPECT_TRUE(kept().empty());
    EXPECT_EQ(progress.handed_over, 0U);
}

TEST_F(FrameIntake, RefusesAFrameOfAFormatThatItDoesNotKnow) {
    intake.publish_format("RGB8");
    EXPECT_EQ(intake.camera_format(), nullptr);
    EXPECT_FALSE(bring(1));
}

TEST_F(FrameIntake, RefusesAFrameOfAnotherSizeThanWasPublished) {
    intake.begin_frame(8, 5, 20.0F);
    EXPECT_FALSE(intake.trigger(0, 1, slot(0)));
    intake.begin_frame(9, 4, 20.0F);
    EXPECT_FALSE(intake.trigger(0, 1, slot(0)));
}

TEST_F(FrameIntake, RefusesGeometryThatDoesNotFitItsMemory) {
    for (auto const& [width, height, stride] : {std::array<std::uint32_t, 3>{8, 4, 7},
                                                {0, 4, 8},
                                                {8, 0, 8},
                                                {8, 100, 8},
                                                {8, 4, 1'000'000},
                                                {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}}) {
        publish_geometry(width, height, stride);
        intake.begin_frame(width, height, 20.0F);
        EXPECT_FALSE(intake.trigger(0, 1, slot(0))) << width << " x " << height << ", " << stride;
    }
}

TEST_F(FrameIntake, RefusesAConvertedFrameThatIsLargerThanItsMemory) {
    std::vector<std::byte> const large(10'000);
    publish_geometry(100, 100, 100);
    intake.publish_codec(1, "MONO8T");
    intake.begin_frame(100, 100, 20.0F);
    EXPECT_FALSE(intake.trigger(1, 1, large.data()));
}

TEST_F(FrameIntake, RefusesFramesWhereNoneAreExpected) {
    frame_intake closed(nullptr, 0, 0, progress);
    closed.set_up_memory(64);
    std::byte pixel{};
    EXPECT_FALSE(closed.trigger(0, 1, &pixel));
    closed.export_triggered();
}

TEST_F(FrameIntake, DoesNotExportATriggeredFrameTwice) {
    bring(1);
    intake.export_triggered();
    EXPECT_EQ(kept().size(), 1U);
}

// ---- The number of frames -----------------------------------------------------------------------

TEST_F(FrameIntake, IsNeverCompleteWithoutALimit) {
    bring(1);
    EXPECT_FALSE(intake.limited());
    EXPECT_FALSE(intake.complete());
}

TEST_F(LimitedIntake, IsCompleteWithItsLastFrameAndTakesNoMore) {
    EXPECT_TRUE(intake.limited());
    EXPECT_EQ(intake.remaining(), 2U);
    bring(1);
    EXPECT_EQ(intake.remaining(), 1U);
    EXPECT_FALSE(intake.complete());
    bring(2);
    EXPECT_TRUE(intake.complete());
    EXPECT_EQ(intake.remaining(), 0U);
    bring(3);
    EXPECT_EQ(kept().size(), 2U);
    EXPECT_EQ(progress.handed_over, 2U);
}

TEST_F(LimitedIntake, CountsAFrameThatIsLostOnTheWayToTheDiskAsHandedOver) {
    sink.refuse();
    bring(1);
    bring(2);
    EXPECT_TRUE(intake.complete());
    EXPECT_TRUE(kept().empty());
}
