// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "timing/device_clock.hpp"
#include "timing/frame_schedule.hpp"
#include "timing/packet_pacing.hpp"
#include "timing/utc_offset.hpp"

using namespace camsim;
using namespace std::chrono_literals;

namespace {

constexpr device_clock::host_time power_up{1000s};

}  // namespace

TEST(DeviceClock, CountsFromTheFirstTick) {
    device_clock const clock(power_up, 125'000'000, 0.0, 42);
    EXPECT_EQ(clock.ticks_at(clock.at(power_up)), 42U);
    EXPECT_EQ(clock.ticks_at(clock.at(power_up + 2s)), 42U + 250'000'000U);
}

TEST(DeviceClock, RunsFasterByItsDrift) {
    device_clock const clock(power_up, 1'000'000'000, 100.0, 0);
    EXPECT_EQ(clock.ticks_at(clock.at(power_up + 1h)), 3'600'360'000'000U);
    EXPECT_EQ(clock.host_at(clock.at(power_up + 1h)), power_up + 1h);
}

TEST(DeviceClock, LosesNoTickInAMonth) {
    device_clock const clock(power_up, 1'000'000'000, 0.0, 0);
    auto const month = std::chrono::nanoseconds(30 * 24h) + 1ns;
    EXPECT_EQ(clock.ticks_at(clock.at(power_up + month)), static_cast<std::uint64_t>(month.count()));
}

TEST(DeviceClock, ShowsTheExactTimeOfTheClockThatItFollows) {
    device_clock clock(power_up, 1'000'000'000, 0.0, 0);
    constexpr std::chrono::nanoseconds since_1970 = 1'763'940'000s + 123'456'789ns;
    clock.follow([&] { return since_1970; }, clock.at(power_up));
    for (auto const& more : {0ns, 1ns, 999ns, 333'333'333ns}) {
        EXPECT_EQ(clock.ticks_at(clock.at(power_up + more)),
                  static_cast<std::uint64_t>((power_up.time_since_epoch() + since_1970 + more).count()));
    }
}

TEST(OffsetBetween, IsThatOfTheClosestReadings) {
    std::chrono::nanoseconds now = 0ns;
    int readings = 0;
    auto const monotonic = [&] { return now; };
    auto const real = [&] {
        auto const shown = now + 7s;
        now += ++readings == 1 ? 40us : 2us;  // the first time, the thread loses the processor
        return shown + 1us;                   // in the middle of the shorter one
    };
    EXPECT_EQ(offset_between(monotonic, real), 7s);
}

TEST(DeviceClock, ReturnsToTheSameHostTimeWithAnyDrift) {
    for (double const ppm : {-12.3, 0.1, 37.7}) {
        device_clock const clock(power_up, 1'000'000'000, ppm, 0);
        for (auto const passed : {1ns, 1'234'567'891ns, std::chrono::nanoseconds(30 * 24h) + 7ns}) {
            EXPECT_EQ(clock.host_at(clock.at(power_up + passed)), power_up + passed) << ppm;
        }
    }
}

TEST(DeviceClock, ResetsTheCounterButNotTheOscillator) {
    device_clock clock(power_up, 1'000'000'000, 0.0, 77);
    camera_time const now = clock.at(power_up + 5s);
    clock.reset_counter(now);
    EXPECT_EQ(clock.ticks_at(now), 0U);
    EXPECT_EQ(clock.ticks_at(clock.at(power_up + 6s)), 1'000'000'000U);
    EXPECT_EQ(clock.at(power_up + 6s), camera_time(6s));
}

TEST(DeviceClock, FollowsAnotherClockWithTheCounterButNotTheOscillator) {
    device_clock clock(power_up, 1'000'000'000, 100.0, 0);
    auto const shown = [&](device_clock::host_time when) { return clock.ticks_at(clock.at(when)); };
    std::chrono::nanoseconds ahead = 7s;
    clock.follow([&] { return ahead; }, clock.at(power_up));
    EXPECT_TRUE(clock.is_following());
    EXPECT_EQ(shown(power_up), 1'007'000'000'000U);
    EXPECT_EQ(shown(power_up + 1h), 4'607'000'000'000U);
    ahead += 5ns;
    EXPECT_EQ(shown(power_up + 1h), 4'607'000'000'005U);
    clock.reset_counter(clock.at(power_up + 1h));
    EXPECT_EQ(shown(power_up + 1h), 4'607'000'000'005U) << "no reset of a clock that follows another one";
    EXPECT_EQ(clock.at(power_up + 1h), camera_time(1h + 360ms));
}

TEST(DeviceClock, ContinuesFromTheTimeOfTheClockThatItFollowed) {
    device_clock clock(power_up, 1'000'000'000, 0.0, 0);
    clock.follow([] { return std::chrono::nanoseconds(1s); }, clock.at(power_up));
    clock.follow(nullptr, clock.at(power_up + 10s));
    EXPECT_FALSE(clock.is_following());
    EXPECT_EQ(clock.ticks_at(clock.at(power_up + 12s)), 1'013'000'000'000U);
    clock.reset_counter(clock.at(power_up + 12s));
    EXPECT_EQ(clock.ticks_at(clock.at(power_up + 12s)), 0U);
}

TEST(DeviceClock, AppliesErrorsToTheCounter) {
    device_clock clock(power_up, 1'000'000'000, 0.0, 0);
    auto const shown = [&] { return clock.ticks_at(clock.at(power_up + 5s)); };
    clock.set_counter_error({.offset_s = -2.0});
    EXPECT_EQ(shown(), 3'000'000'000U);
    clock.set_counter_error({.offset_s = 1.5});
    EXPECT_EQ(shown(), 6'500'000'000U);
    clock.set_counter_error({.bits = 32});
    EXPECT_EQ(shown(), 5'000'000'000U - (std::uint64_t{1} << 32U));
    clock.set_counter_error({});
    EXPECT_EQ(shown(), 5'000'000'000U);
    EXPECT_EQ(clock.at(power_up + 5s), camera_time(5s));
}

TEST(FrameSchedule, KeepsItsGridDespiteDelays) {
    frame_schedule schedule(camera_time(1s), camera_time(10ms));
    EXPECT_EQ(schedule.next(camera_time(0s), camera_time(40ms)).start, camera_time(1s));
    EXPECT_EQ(schedule.next(camera_time(1s + 33ms), camera_time(40ms)).start, camera_time(1s + 10ms));
    EXPECT_EQ(schedule.next(camera_time(1s + 33ms), camera_time(40ms)).start, camera_time(1s + 20ms));
}

TEST(FrameSchedule, DropsAndCountsFramesWhenItIsTooLate) {
    frame_schedule schedule(camera_time(0s), camera_time(10ms));
    schedule.next(camera_time(0s), camera_time(40ms));
    auto const next = schedule.next(camera_time(55ms), camera_time(40ms));
    EXPECT_EQ(next.dropped, 5U);
    EXPECT_EQ(next.first_dropped, camera_time(10ms));
    EXPECT_EQ(next.start, camera_time(60ms));
    EXPECT_EQ(schedule.next(camera_time(60ms), camera_time(40ms)).dropped, 0U);
}

TEST(FrameSchedule, AppliesANewPeriodFromTheLastExposure) {
    frame_schedule schedule(camera_time(0s), camera_time(10ms));
    schedule.next(camera_time(0s), camera_time(40ms));
    schedule.next(camera_time(0s), camera_time(40ms));
    schedule.set_period(camera_time(25ms));
    EXPECT_EQ(schedule.next(camera_time(10ms), camera_time(40ms)).start, camera_time(35ms));
    EXPECT_EQ(schedule.next(camera_time(10ms), camera_time(40ms)).start, camera_time(60ms));
}

TEST(FrameSchedule, DoesNotDriftInADayWithAPeriodOfAThird) {
    camera_time const third(1e9L / 3);
    frame_schedule schedule(camera_time(0s), third);
    frame_schedule::exposure last;
    for (int frame = 0; frame <= 3 * 86400; ++frame) {
        last = schedule.next(camera_time(0s), camera_time(1s));
    }
    EXPECT_NEAR(static_cast<double>(last.start.count()), 86400e9, 1.0);
}

TEST(PacketPacing, SpreadsAFrameOverAFractionOfItsPeriod) {
    packet_pacing const half{packet_pacing::kind::spread, 0.5};
    EXPECT_DOUBLE_EQ(half.packet_interval(1500, 100, 10ms).count(), 0.5 * 0.010 / 100);
}

TEST(PacketPacing, KeepsARateOrSendsInBursts) {
    packet_pacing const rate{packet_pacing::kind::rate, 100e6};
    EXPECT_DOUBLE_EQ(rate.packet_interval(1500, 100, 10ms).count(), 15e-6);
    packet_pacing const burst{packet_pacing::kind::burst, 0.0};
    EXPECT_DOUBLE_EQ(burst.packet_interval(1500, 100, 10ms).count(), 0.0);
}

TEST(PacketPacing, IsParsedFromText) {
    EXPECT_EQ(parse_pacing("burst")->how, packet_pacing::kind::burst);
    EXPECT_DOUBLE_EQ(parse_pacing("118.5")->value, 118.5e6);
    EXPECT_EQ(parse_pacing("spread:0.8")->how, packet_pacing::kind::spread);
    EXPECT_DOUBLE_EQ(parse_pacing("spread:0.8")->value, 0.8);
    for (char const* const wrong : {"", "fast", "0", "-3", "spread:", "spread:0", "spread:1.5", "12x", "nan", "inf"}) {
        EXPECT_FALSE(parse_pacing(wrong)) << wrong;
    }
}
