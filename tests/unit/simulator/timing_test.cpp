#include <gtest/gtest.h>

#include "device_clock.hpp"
#include "frame_schedule.hpp"
#include "packet_pacing.hpp"

using namespace camsim;
using namespace std::chrono_literals;

namespace {

constexpr device_clock::host_time power_up{1000s};

}  // namespace

TEST(DeviceClock, CountsTicksFromItsFirstOne) {
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

TEST(DeviceClock, StartsItsCounterAgainWithoutStoppingItsOscillator) {
    device_clock clock(power_up, 1'000'000'000, 0.0, 77);
    camera_time const now = clock.at(power_up + 5s);
    clock.reset_counter(now);
    EXPECT_EQ(clock.ticks_at(now), 0U);
    EXPECT_EQ(clock.ticks_at(clock.at(power_up + 6s)), 1'000'000'000U);
    EXPECT_EQ(clock.at(power_up + 6s), camera_time(6s));
}

TEST(DeviceClock, ShowsAWrongTimeWhenItsCounterIsWrong) {
    device_clock clock(power_up, 1'000'000'000, 0.0, 0);
    auto const shown = [&] { return clock.ticks_at(clock.at(power_up + 5s)); };
    clock.falsify_counter({.ahead_s = -2.0});
    EXPECT_EQ(shown(), 3'000'000'000U);
    clock.falsify_counter({.ahead_s = 1.5});
    EXPECT_EQ(shown(), 6'500'000'000U);
    clock.falsify_counter({.bits = 32});
    EXPECT_EQ(shown(), 5'000'000'000U - (std::uint64_t{1} << 32U));
    clock.falsify_counter({});
    EXPECT_EQ(shown(), 5'000'000'000U);
    EXPECT_EQ(clock.at(power_up + 5s), camera_time(5s));
}

TEST(FrameSchedule, KeepsItsGridHoweverLateItIsAsked) {
    frame_schedule schedule(camera_time(1s), camera_time(10ms));
    EXPECT_EQ(schedule.next(camera_time(0s), camera_time(40ms)).start, camera_time(1s));
    EXPECT_EQ(schedule.next(camera_time(1s + 33ms), camera_time(40ms)).start, camera_time(1s + 10ms));
    EXPECT_EQ(schedule.next(camera_time(1s + 33ms), camera_time(40ms)).start, camera_time(1s + 20ms));
}

TEST(FrameSchedule, LeavesFramesOutWhenItIsTooLateAndSaysHowMany) {
    frame_schedule schedule(camera_time(0s), camera_time(10ms));
    schedule.next(camera_time(0s), camera_time(40ms));
    auto const next = schedule.next(camera_time(55ms), camera_time(40ms));
    EXPECT_EQ(next.skipped, 5U);
    EXPECT_EQ(next.first_skipped, camera_time(10ms));
    EXPECT_EQ(next.start, camera_time(60ms));
    EXPECT_EQ(schedule.next(camera_time(60ms), camera_time(40ms)).skipped, 0U);
}

TEST(FrameSchedule, CountsANewPeriodFromTheLastExposure) {
    frame_schedule schedule(camera_time(0s), camera_time(10ms));
    schedule.next(camera_time(0s), camera_time(40ms));
    schedule.next(camera_time(0s), camera_time(40ms));
    schedule.set_period(camera_time(25ms));
    EXPECT_EQ(schedule.next(camera_time(10ms), camera_time(40ms)).start, camera_time(35ms));
    EXPECT_EQ(schedule.next(camera_time(10ms), camera_time(40ms)).start, camera_time(60ms));
}

TEST(FrameSchedule, DoesNotDriftOverADayOfThirds) {
    camera_time const third(1e9L / 3);
    frame_schedule schedule(camera_time(0s), third);
    frame_schedule::exposure last;
    for (int frame = 0; frame <= 3 * 86400; ++frame) {
        last = schedule.next(camera_time(0s), camera_time(1s));
    }
    EXPECT_NEAR(static_cast<double>(last.start.count()), 86400e9, 1.0);
}

TEST(PacketPacing, SpreadsAFrameOverAShareOfItsPeriod) {
    packet_pacing const half{packet_pacing::kind::spread, 0.5};
    EXPECT_DOUBLE_EQ(half.packet_interval(1500, 100, 10ms).count(), 0.5 * 0.010 / 100);
}

TEST(PacketPacing, KeepsARateOrNone) {
    packet_pacing const rate{packet_pacing::kind::rate, 100e6};
    EXPECT_DOUBLE_EQ(rate.packet_interval(1500, 100, 10ms).count(), 15e-6);
    packet_pacing const burst{packet_pacing::kind::burst, 0.0};
    EXPECT_DOUBLE_EQ(burst.packet_interval(1500, 100, 10ms).count(), 0.0);
}

TEST(PacketPacing, IsReadFromText) {
    EXPECT_EQ(parse_pacing("burst")->how, packet_pacing::kind::burst);
    EXPECT_DOUBLE_EQ(parse_pacing("118.5")->value, 118.5e6);
    EXPECT_EQ(parse_pacing("spread:0.8")->how, packet_pacing::kind::spread);
    EXPECT_DOUBLE_EQ(parse_pacing("spread:0.8")->value, 0.8);
    for (char const* const wrong : {"", "fast", "0", "-3", "spread:", "spread:0", "spread:1.5", "12x", "nan", "inf"}) {
        EXPECT_FALSE(parse_pacing(wrong)) << wrong;
    }
}
