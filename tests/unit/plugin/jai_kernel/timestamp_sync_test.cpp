// SPDX-License-Identifier: MIT
#include "jai_kernel/timestamp_sync.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <vector>

using Vorn::Support::MediaGrabber::Jai::timestamp_settings;
using Vorn::Support::MediaGrabber::Jai::timestamp_sync;

namespace {

constexpr uint32_t period = 10'000;
constexpr uint64_t start_time = 1'700'000'000'000'000;

timestamp_settings host_time() {
    return {.latencyAdjustment = 0,
            .secondAdjustment = 0,
            .clockCorrection = 0,
            .tickFrequency = 1'000'000'000,
            .framePeriod = period,
            .frameRate = 100.0F};
}

timestamp_settings camera_time(int32_t correction = 1) {
    auto settings = host_time();
    settings.clockCorrection = correction;
    return settings;
}

/// \return a frame with the camera time `block` that reached the host at `host`, both in microseconds
timestamp_sync::arrival frame(uint64_t host, uint64_t block) {
    return {.hostTime = host, .blockTimestamp = block};
}

uint64_t ticks_of(uint64_t microseconds) {
    return microseconds * 1000;
}

/// \return a synchronisation whose first frame arrived `latency` microseconds after its exposure
timestamp_sync calibrated(timestamp_settings const& settings, uint64_t host, uint64_t block, uint64_t latency) {
    timestamp_sync sync(settings.framePeriod);
    sync.calibrate(settings, frame(host, block), static_cast<uint32_t>(start_time), 0, ticks_of(block + latency));
    return sync;
}

TEST(TimestampCalibration, TakesTheLatencyFromTheCamerasCounter) {
    timestamp_sync sync(period);
    auto settings = host_time();
    settings.secondAdjustment = 250;
    settings.latencyAdjustment = 40;
    auto const found = sync.calibrate(settings, frame(start_time + 50'000, 7'000'000),
                                      static_cast<uint32_t>(start_time), 3, ticks_of(7'003'000));
    EXPECT_EQ(found.blockTimeAtFetch, 7'003'000u);
    EXPECT_EQ(found.latency, 250 + 3'000);
    uint64_t const base = start_time + 50'000 + 40 - 3'250;
    EXPECT_EQ(found.difference, base - 7'000'000);
    EXPECT_EQ(found.expectedDelay, 3'250u - 40);
}

TEST(TimestampCalibration, WithoutACounterCountsTheFramesSinceTheStart) {
    timestamp_sync sync(period);
    auto const found =
        sync.calibrate(host_time(), frame(start_time + 53'000, 7'000'000), static_cast<uint32_t>(start_time), 5, 0);
    EXPECT_EQ(found.blockTimeAtFetch, 0u);
    EXPECT_EQ(found.latency, 53'000 - 5 * 10'000);
}

TEST(TimestampCalibration, ACounterThatEqualsTheFramesTimestampIsNotUsed) {
    timestamp_sync sync(period);
    auto const found = sync.calibrate(host_time(), frame(start_time + 12'000, 7'000'000),
                                      static_cast<uint32_t>(start_time), 1, ticks_of(7'000'000));
    EXPECT_EQ(found.latency, 2'000);
}

TEST(TimestampCalibration, TheLatencyMayBeNegative) {
    timestamp_sync sync(period);
    auto const found =
        sync.calibrate(host_time(), frame(start_time + 5'000, 7'000'000), static_cast<uint32_t>(start_time), 1, 0);
    EXPECT_EQ(found.latency, -5'000);
    EXPECT_EQ(found.expectedDelay, static_cast<uint64_t>(-5'000));
}

TEST(TimestampCalibration, AFrequencyOfZeroGivesNoCounterTime) {
    timestamp_sync sync(period);
    auto settings = camera_time();
    settings.tickFrequency = 0;
    auto const found = sync.calibrate(settings, frame(start_time + 12'000, 0), static_cast<uint32_t>(start_time), 1,
                                      ticks_of(7'000'000));
    EXPECT_EQ(found.blockTimeAtFetch, 0u);
    EXPECT_FALSE(settings.followsCamera());
}

TEST(HostTime, AFrameHasTheTimeAnnouncedForIt) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t const announced = sync.announce(settings).timestamp;
    EXPECT_EQ(announced, start_time - 3'000 + period);
    auto const stamped = sync.stamp(settings, frame(start_time + 10'200, 5'010'000));
    EXPECT_EQ(stamped.timestamp, announced);
    EXPECT_FALSE(stamped.wrapped);
    EXPECT_FALSE(stamped.initialised);
    EXPECT_EQ(sync.announce(settings).timestamp, start_time + 10'200 - 3'000 + period);
}

TEST(HostTime, LatencyAdjustmentDelaysTheAnnouncement) {
    auto settings = host_time();
    settings.latencyAdjustment = 700;
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    EXPECT_EQ(sync.announce(settings).timestamp, start_time + 700 - 3'000 + period);
}

TEST(CameraTime, TheSecondFrameInitialises) {
    auto const settings = camera_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t const host = start_time + 10'300;
    auto const stamped = sync.stamp(settings, frame(host, 5'010'000));
    ASSERT_TRUE(stamped.initialised);
    EXPECT_EQ(stamped.timestamp, host - 3'000);
    EXPECT_EQ(stamped.initialised->oldDifference, start_time - 3'000 - 5'000'000);
    EXPECT_EQ(stamped.initialised->newDifference, host - 3'000 - 5'010'000);
    EXPECT_EQ(stamped.initialised->oldTimestamp, 0u);
    EXPECT_EQ(stamped.initialised->newTimestamp, host - 3'000);
}

TEST(CameraTime, LaterFramesFollowTheCamerasTimestampsWithAnyNetworkDelay) {
    auto const settings = camera_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + 10'000, 5'010'000));
    uint64_t previous = sync.announce(settings).timestamp;
    for (uint64_t n = 2; n < 100; ++n) {
        uint64_t const jitter = n * 7919 % 4000;
        auto const stamped = sync.stamp(settings, frame(start_time + n * period + jitter, 5'000'000 + n * period));
        EXPECT_FALSE(stamped.initialised) << n;
        EXPECT_EQ(stamped.timestamp, previous);
        previous = sync.announce(settings).timestamp;
        EXPECT_EQ(previous, start_time - 3'000 + (n + 1) * period);
    }
}

TEST(CameraTime, TheCorrectionGrowsWithTheTimeSinceTheBase) {
    auto const settings = camera_time(40'000);  // 40 us per second
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + period, 5'000'000 + period));
    sync.announce(settings);
    uint64_t const ten_seconds = 10'000'000;
    sync.stamp(settings, frame(start_time + period + ten_seconds, 5'000'000 + period + ten_seconds));
    EXPECT_EQ(sync.announce(settings).timestamp, start_time - 3'000 + 2 * period + ten_seconds + 400);
}

TEST(CameraTime, APredictionThatIsNotEarlierThanTheArrivalInitialisesAgain) {
    auto const settings = camera_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + period, 5'010'000));
    uint64_t const announced = sync.announce(settings).timestamp;
    auto const stamped = sync.stamp(settings, frame(announced, 5'020'000));
    ASSERT_TRUE(stamped.initialised);
    EXPECT_EQ(stamped.initialised->oldTimestamp, announced);
    EXPECT_EQ(stamped.timestamp, announced - 3'000);
}

TEST(CameraTime, WithoutATimestampFrequencyIsHostTime) {
    auto settings = camera_time();
    settings.tickFrequency = 0;
    auto sync = calibrated(settings, start_time, 0, 3'000);
    EXPECT_FALSE(sync.stamp(settings, frame(start_time + period, 0)).initialised);
}

TEST(FrameInterval, FollowsTheBlockTimestamps) {
    auto const settings = camera_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + 10'400, 5'010'400));
    EXPECT_EQ(sync.announce(settings).timestamp, start_time + 10'400 - 3'000 + 10'400);
}

TEST(FrameInterval, ASkippedFrameDoesNotCount) {
    auto const settings = camera_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t const skipped = 2 * period - period / 10;
    sync.stamp(settings, frame(start_time + skipped, 5'000'000 + skipped));
    EXPECT_EQ(sync.announce(settings).timestamp, start_time + skipped - 3'000 + period);
}

TEST(FrameInterval, AStepJustShortOfASkippedFrameCounts) {
    auto const settings = camera_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t const step = 2 * period - period / 10 - 1;
    sync.stamp(settings, frame(start_time + step, 5'000'000 + step));
    EXPECT_EQ(sync.announce(settings).timestamp, start_time + step - 3'000 + step);
}

TEST(FrameInterval, WithoutAFramePeriodItIsTheFirstStepOfTheTimestampsInBothModes) {
    for (int32_t const correction : {0, 1}) {
        auto settings = camera_time(correction);
        settings.framePeriod = 0;
        auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
        EXPECT_EQ(sync.announce(settings).timestamp, start_time - 3'000);
        sync.stamp(settings, frame(start_time + 10'400, 5'010'400));
        EXPECT_EQ(sync.announce(settings).timestamp, start_time + 10'400 - 3'000 + 10'400);
        sync.stamp(settings, frame(start_time + 31'200, 5'031'200));
        EXPECT_EQ(sync.announce(settings).timestamp, start_time + 31'200 - 3'000 + 10'400) << "a frame was skipped";
        sync.stamp(settings, frame(start_time + 41'300, 5'041'300));
        EXPECT_EQ(sync.announce(settings).timestamp, start_time + 41'300 - 3'000 + 10'100);
    }
}

TEST(FrameInterval, WithAFramePeriodHostTimeDoesNotUseIt) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + 10'400, 5'010'400));
    EXPECT_EQ(sync.announce(settings).timestamp, start_time + 10'400 - 3'000 + period);
}

TEST(Wrap, ATimestampThatGoesBackIsReportedAndResynchronises) {
    auto const settings = camera_time(40'000);
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + period, 5'010'000));
    sync.announce(settings);
    uint64_t const host = start_time + 2 * period;
    auto const stamped = sync.stamp(settings, frame(host, 17));
    ASSERT_TRUE(stamped.wrapped);
    EXPECT_EQ(stamped.wrapped->oldTimestamp, 5'010'000u);
    EXPECT_EQ(stamped.wrapped->newTimestamp, 17u);
    EXPECT_EQ(sync.announce(settings).timestamp, host - 3'000 + period);
}

TEST(Wrap, TheSecondFrameCanWrapAndInitialise) {
    auto const settings = camera_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t const host = start_time + 10'300;
    auto const stamped = sync.stamp(settings, frame(host, 17));
    ASSERT_TRUE(stamped.wrapped);
    ASSERT_TRUE(stamped.initialised);
    EXPECT_EQ(stamped.initialised->oldDifference, host - 3'000 - 17) << "the wrap has resynchronised already";
    EXPECT_EQ(stamped.initialised->newDifference, host - 3'000 - 17);
    EXPECT_EQ(stamped.timestamp, host - 3'000);
}

TEST(Wrap, IsDetectedAgainstThePreviousFrame) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    EXPECT_FALSE(sync.stamp(settings, frame(start_time, 5'000'000)).wrapped) << "an equal timestamp is not a wrap";
    EXPECT_TRUE(sync.stamp(settings, frame(start_time, 4'999'999)).wrapped);
    EXPECT_FALSE(sync.stamp(settings, frame(start_time, 4'999'999)).wrapped);
}

/// Feeds frames that arrive `delay` after their announced time until there is an adjustment.
/// \return number of frames that it took, with the last adjustments
std::pair<uint32_t, timestamp_sync::pace> feed(timestamp_sync& sync, timestamp_settings const& settings, uint64_t delay,
                                               uint64_t& block, uint32_t limit = 2000) {
    for (uint32_t n = 1; n <= limit; ++n) {
        uint64_t const next = sync.announce(settings).timestamp;
        block += period;
        sync.stamp(settings, frame(next + delay, block));
        auto const pace = sync.evaluatePace(settings);
        if (pace.fast || pace.slow || pace.extraSlow) {
            return {n, pace};
        }
    }
    return {0, {}};
}

TEST(Pace, FramesWithinATenthOfTheExpectedDelayAreInTime) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 2'700, block).first, 0u) << "the lower bound itself is in time";
    EXPECT_EQ(feed(sync, settings, 3'299, block).first, 0u);
}

TEST(Pace, FramesThatComeEarlyForThreeSecondsAreFast) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    auto const [frames, pace] = feed(sync, settings, 2'699, block);
    EXPECT_EQ(frames, 301u) << "three times the frame rate, exceeded";
    ASSERT_TRUE(pace.fast);
    EXPECT_EQ(pace.fast->delay, 2'699u);
    EXPECT_EQ(pace.fast->bound, 2'700u);
    EXPECT_FALSE(pace.slow);
    EXPECT_FALSE(pace.extraSlow);
}

TEST(Pace, FramesThatComeLateForThreeSecondsAreSlow) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    auto const [frames, pace] = feed(sync, settings, 3'300, block);
    EXPECT_EQ(frames, 301u);
    ASSERT_TRUE(pace.slow);
    EXPECT_EQ(pace.slow->delay, 3'300u);
    EXPECT_EQ(pace.slow->bound, 3'300u);
    EXPECT_FALSE(pace.extraSlow);
}

TEST(Pace, FramesFourTimesAsLateForOneSecondAreExtraSlow) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    auto const [frames, pace] = feed(sync, settings, 12'000, block);
    EXPECT_EQ(frames, 101u) << "the frame rate, exceeded";
    ASSERT_TRUE(pace.extraSlow);
    EXPECT_EQ(pace.extraSlow->delay, 12'000u);
    EXPECT_EQ(pace.extraSlow->bound, 12'000u);
    EXPECT_FALSE(pace.slow);
}

TEST(Pace, OneFrameInTimeResetsAllCounts) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 3'300, block, 300).first, 0u);
    EXPECT_EQ(feed(sync, settings, 3'000, block, 1).first, 0u);
    EXPECT_EQ(feed(sync, settings, 3'300, block).first, 301u);
}

TEST(Pace, EarlyFramesDoNotResetTheCountOfLateOnes) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 3'300, block, 300).first, 0u);
    EXPECT_EQ(feed(sync, settings, 100, block, 5).first, 0u);
    EXPECT_EQ(feed(sync, settings, 3'300, block).first, 1u);
}

TEST(Pace, LateFramesDoNotResetTheCountOfEarlyOnes) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 2'699, block, 300).first, 0u);
    EXPECT_EQ(feed(sync, settings, 3'300, block, 5).first, 0u);
    EXPECT_EQ(feed(sync, settings, 2'699, block).first, 1u);
}

TEST(Pace, OneFrameInTimeForgivesEarlyFrames) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 2'699, block, 300).first, 0u);
    EXPECT_EQ(feed(sync, settings, 3'000, block, 1).first, 0u);
    EXPECT_EQ(feed(sync, settings, 2'699, block).first, 301u);
}

TEST(Pace, OneFrameInTimeForgivesGrossDelays) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 12'000, block, 100).first, 0u);
    EXPECT_EQ(feed(sync, settings, 3'000, block, 1).first, 0u);
    EXPECT_EQ(feed(sync, settings, 12'000, block).first, 101u);
}

TEST(Pace, AFastAdjustmentResetsItsCount) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 2'699, block).first, 301u);
    EXPECT_EQ(feed(sync, settings, 2'699, block).first, 301u);
}

TEST(Pace, ASlowAdjustmentDoesNotResetItsCount) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 3'300, block).first, 301u);
    for (int n = 0; n < 3; ++n) {
        auto const [frames, pace] = feed(sync, settings, 3'300, block);
        EXPECT_EQ(frames, 1u) << "a sustained delay adjusts with every frame";
        EXPECT_TRUE(pace.slow);
    }
    EXPECT_EQ(feed(sync, settings, 3'000, block, 1).first, 0u);
    EXPECT_EQ(feed(sync, settings, 3'300, block).first, 301u) << "a frame in time ends it";
}

TEST(Pace, AFrameCanBeSlowAndExtraSlowByTheDelayThatIsExpectedAfterTheFirstAdjustment) {
    auto settings = host_time();
    settings.latencyAdjustment = 1'000;  // expected at first: 3,000 - 1,000
    settings.frameRate = 0.3F;           // a single late frame is enough for both
    for (uint64_t const delay : {11'999U, 12'000U}) {
        auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
        uint64_t block = 5'000'000;
        auto const [frames, pace] = feed(sync, settings, delay, block);
        EXPECT_EQ(frames, 1u);
        ASSERT_TRUE(pace.slow);
        EXPECT_EQ(pace.slow->bound, 2'200u);
        EXPECT_EQ(pace.extraSlow.has_value(), delay == 12'000);
        if (pace.extraSlow) {
            EXPECT_EQ(pace.extraSlow->bound, 12'000u) << "four times the latency";
        }
    }
}

TEST(Pace, ThreeTimesAFractionalFrameRateIsTruncated) {
    auto settings = host_time();
    settings.frameRate = 33.4F;
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 2'699, block).first, 101u) << "more than 100.2, truncated to 100";
    EXPECT_EQ(feed(sync, settings, 11'000, block).first, 101u);
    auto other = calibrated(settings, start_time, 5'000'000, 3'000);
    EXPECT_EQ(feed(other, settings, 12'000, block).first, 34u) << "more than 33.4";
}

TEST(Pace, AnExtraSlowAdjustmentResetsItsCount) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_EQ(feed(sync, settings, 12'000, block).first, 101u);
    auto const [frames, pace] = feed(sync, settings, 12'000, block);
    EXPECT_EQ(frames, 101u);
    EXPECT_TRUE(pace.extraSlow);
}

TEST(Pace, ADelayJustBelowFourTimesTheExpectedOneIsOnlySlow) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    auto const [frames, pace] = feed(sync, settings, 11'999, block);
    EXPECT_EQ(frames, 301u);
    EXPECT_TRUE(pace.slow);
    EXPECT_FALSE(pace.extraSlow);
}

TEST(Pace, AnExtraSlowAdjustmentResynchronises) {
    auto settings = host_time();
    settings.latencyAdjustment = 1'000;  // expected at first: 3,000 - 1,000
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_TRUE(feed(sync, settings, 8'000, block).second.extraSlow);
    auto const [frames, pace] = feed(sync, settings, 8'000, block);
    EXPECT_EQ(frames, 200u) << "of 301 late frames";
    EXPECT_TRUE(pace.slow);
    EXPECT_FALSE(pace.extraSlow) << "the expected delay is now 3,000, four times of which is 12,000";
}

TEST(Pace, AFastAdjustmentResynchronises) {
    auto settings = host_time();
    settings.latencyAdjustment = 1'000;  // expected at first: 3,000 - 1,000
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    auto const pace = feed(sync, settings, 1'799, block).second;
    ASSERT_TRUE(pace.fast);
    EXPECT_EQ(pace.fast->bound, 1'800u);
    auto const later = feed(sync, settings, 1'799, block).second;
    ASSERT_TRUE(later.fast);
    EXPECT_EQ(later.fast->bound, 2'700u);
}

TEST(Pace, AfterAnAdjustmentTheCorrectionCountsFromTheArrival) {
    auto settings = camera_time(1'000'000'000);  // one second per second
    settings.frameRate = 0.1F;                   // a single early frame is enough
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + period, 5'010'000));
    EXPECT_FALSE(sync.evaluatePace(settings).fast);
    uint64_t const host = sync.announce(settings).timestamp + 100;
    EXPECT_FALSE(sync.stamp(settings, frame(host, 5'020'000)).initialised);
    EXPECT_TRUE(sync.evaluatePace(settings).fast);
    // Camera-side now is one latency before the arrival.
    EXPECT_EQ(sync.announce(settings).timestamp, host - 3'000 + period - 3'000);
}

TEST(Pace, ResynchronisingTakesTheLatencyAsTheExpectedDelay) {
    auto settings = host_time();
    settings.latencyAdjustment = 1'000;  // expected at first: 3,000 - 1,000
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    EXPECT_TRUE(feed(sync, settings, 3'000, block).second.slow);
    EXPECT_EQ(feed(sync, settings, 3'000, block).first, 0u) << "the expected delay is now 3,000";
}

TEST(Pace, AFrameFromTheFutureCountsAsLate) {
    auto const settings = host_time();
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t block = 5'000'000;
    auto const [frames, pace] = feed(sync, settings, static_cast<uint64_t>(-5'000), block);
    EXPECT_EQ(frames, 101u);
    EXPECT_TRUE(pace.extraSlow);
}

TEST(Overflow, ACorrectionOfThreeQuartersOfTheRangeIsReportedAndUsedOnce) {
    auto const settings = camera_time(1'000'000'000);  // one second per second
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + period, 5'010'000));
    sync.announce(settings);
    uint64_t const later = 1'700'000'000;
    uint64_t const host = start_time + period + later;
    sync.stamp(settings, frame(host, 5'010'000 + later));
    auto const announced = sync.announce(settings);
    ASSERT_TRUE(announced.overflow);
    EXPECT_EQ(*announced.overflow, 1'700'000'000);
    EXPECT_EQ(announced.timestamp, host - 3'000 + period + 1'700'000'000);
    EXPECT_FALSE(sync.announce(settings).overflow) << "the base is now";
    EXPECT_EQ(sync.announce(settings).timestamp, host - 3'000 + period);
}

TEST(Overflow, TheBoundItselfIsAllowedInBothDirections) {
    for (int64_t const correction : {1'610'612'736L, -1'610'612'736L, 1'610'612'737L, -1'610'612'737L}) {
        auto const settings = camera_time(correction > 0 ? 1'000'000'000 : -1'000'000'000);
        auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
        sync.stamp(settings, frame(start_time + period, 5'010'000));
        sync.announce(settings);
        auto const later = static_cast<uint64_t>(std::abs(correction));
        sync.stamp(settings, frame(start_time + period + later, 5'010'000 + later));
        EXPECT_EQ(sync.announce(settings).overflow.has_value(), std::abs(correction) > 1'610'612'736L) << correction;
    }
}

TEST(Overflow, ACorrectionBeyond32BitsSaturates) {
    auto const settings = camera_time(1'000'000'000);
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    sync.stamp(settings, frame(start_time + period, 5'010'000));
    sync.announce(settings);
    sync.stamp(settings, frame(start_time + period + 10'000'000'000, 5'010'000));
    EXPECT_EQ(sync.announce(settings).overflow, INT32_MAX);
}

// ---- Properties ---------------------------------------------------------------------------------

struct random_frame {
    uint32_t host_step;
    uint64_t block;
};

/// \return frames with arbitrary camera timestamps and arrival times that do not decrease
std::vector<random_frame> any_frames() {
    return *rc::gen::container<std::vector<random_frame>>(
        rc::gen::construct<random_frame>(rc::gen::inRange<uint32_t>(0, 100'000), rc::gen::arbitrary<uint64_t>()));
}

RC_GTEST_PROP(TimestampProperties, InHostTimeTheAnnouncementNeverDependsOnTheCamerasClock, ()) {
    auto const settings = host_time();
    auto const frames = any_frames();
    auto const other_blocks = any_frames();
    uint64_t const first_block = *rc::gen::inRange<uint64_t>(1, 1'000'000'000);
    auto one = calibrated(settings, start_time, first_block, 3'000);
    auto other = calibrated(settings, start_time, first_block, 3'000);
    RC_ASSERT(one.announce(settings).timestamp == other.announce(settings).timestamp);
    uint64_t host = start_time;
    for (size_t n = 0; n < std::min(frames.size(), other_blocks.size()); ++n) {
        host += frames[n].host_step;
        auto const a = one.stamp(settings, frame(host, frames[n].block));
        auto const b = other.stamp(settings, frame(host, other_blocks[n].block));
        RC_ASSERT(a.timestamp == b.timestamp);
        one.evaluatePace(settings);
        other.evaluatePace(settings);
        RC_ASSERT(one.announce(settings).timestamp == other.announce(settings).timestamp);
    }
}

RC_GTEST_PROP(TimestampProperties, AfterAResynchronisationTheNextAnnouncementIsOneIntervalAfterTheCameraSideNow, ()) {
    auto const settings = camera_time(*rc::gen::inRange<int32_t>(-200'000, 200'001));
    RC_PRE(settings.clockCorrection != 0);
    uint64_t const latency = *rc::gen::inRange<uint64_t>(1, 5'000);
    auto sync = calibrated(settings, start_time, 5'000'000, latency);
    uint64_t host = start_time;
    for (auto const& next : any_frames()) {
        host += next.host_step;
        auto const stamped = sync.stamp(settings, frame(host, next.block));
        bool const resynchronised = stamped.wrapped || stamped.initialised;
        uint64_t const announced = sync.announce(settings).timestamp;
        if (resynchronised) {
            uint64_t const camera_side_now = host - latency;
            RC_ASSERT(announced >= camera_side_now);
            RC_ASSERT(announced - camera_side_now <= 2 * period - period / 10);
        }
    }
}

RC_GTEST_PROP(TimestampProperties, EveryFrameHasTheAnnouncedTimeUnlessItWasInitialisedAgain, ()) {
    auto const settings = *rc::gen::element(host_time(), camera_time(), camera_time(-40'000));
    auto sync = calibrated(settings, start_time, 5'000'000, 3'000);
    uint64_t announced = sync.announce(settings).timestamp;
    uint64_t host = start_time;
    for (auto const& next : any_frames()) {
        host += next.host_step;
        auto const stamped = sync.stamp(settings, frame(host, next.block));
        RC_ASSERT(stamped.initialised || stamped.timestamp == announced);
        sync.evaluatePace(settings);
        announced = sync.announce(settings).timestamp;
    }
}

RC_GTEST_PROP(TimestampProperties, ASteadyCameraIsNeverReadjusted, ()) {
    auto const settings = *rc::gen::element(host_time(), camera_time(1));
    uint64_t const latency = *rc::gen::inRange<uint64_t>(100, 5'000);
    auto sync = calibrated(settings, start_time, 5'000'000, latency);
    sync.announce(settings);
    for (uint64_t n = 1; n < 1'000; ++n) {
        sync.stamp(settings, frame(start_time + n * period, 5'000'000 + n * period));
        auto const pace = sync.evaluatePace(settings);
        RC_ASSERT(!pace.fast && !pace.slow && !pace.extraSlow);
        sync.announce(settings);
    }
}

}  // namespace
