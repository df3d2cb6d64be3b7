// SPDX-License-Identifier: MIT
#include "clock/frame_clock.hpp"

#include <gtest/gtest.h>

#include <cmath>

using namespace mediagrabber;

namespace {

constexpr double day = 1.79e15;  ///< us since 1970
constexpr double tai = 37e6;
constexpr double delay = 900.0;
constexpr double exposure = 400.0;

/// Frames of a second each whose exposure begins at whole seconds.
struct camera {
    frame_clock clock;
    double day_us = day;  ///< of the first exposure
    std::uint64_t origin_ns = 7'000'000'000;

    exposure_time frame(int number, double set_us = 0.0) {
        double const begin = number * 1e6;
        double const arrived = 5e6 + begin + exposure + delay;
        frame_clock::host_time const now{.monotonic_us = arrived + 50.0,
                                         .day_us = day_us + begin + exposure + delay + 50.0 + set_us};
        auto const ticks = origin_ns + static_cast<std::uint64_t>(number) * 1'000'000'000;
        auto const found = clock.time_of(ticks, arrived, exposure, now);
        clock.add(ticks, arrived, exposure);
        return found;
    }
};

double error(exposure_time const& found, int number) {
    return static_cast<double>(found.time_us) - day - number * 1e6;
}

}  // namespace

TEST(FrameClock, TellsTheTimeOfTheExposureWithTheDelay) {
    camera source;
    source.clock.set_tick_frequency(1e9);
    for (int i = 0; i < 60; ++i) {
        auto const found = source.frame(i);
        EXPECT_NEAR(error(found, i), delay, 2.0) << i;
        EXPECT_EQ(found.source, time_source::arrivals);
    }
    EXPECT_LT(source.frame(60).uncertainty_us, 10.0);
    EXPECT_NEAR(source.frame(61).clock_drift_ppm.value_or(-1.0F), 0.0, 0.01);
}

TEST(FrameClock, FollowsTheTimeOfDayAtOnceWhenItIsSet) {
    camera source;
    source.clock.set_tick_frequency(1e9);
    for (int i = 0; i < 30; ++i) {
        source.frame(i);
    }
    constexpr double hour = 3600e6;
    auto const found = source.frame(30, hour);
    EXPECT_NEAR(error(found, 30), delay + hour, 2.0);
    EXPECT_LT(found.uncertainty_us, 10.0);
    EXPECT_EQ(source.clock.model().restarts(), 0U);
}

TEST(FrameClock, SubtractsTheDelayThatAReferenceShows) {
    camera source;
    source.clock.set_tick_frequency(1e9);
    constexpr double shown_us = 3e6;  // after the first exposure
    measured_clock const reference{
        .ticks = 10'000'000'000, .time_us = static_cast<std::uint64_t>(day + shown_us), .uncertainty_us = 20};
    for (int i = 0; i < 40; ++i) {
        if (i == 10) {
            source.clock.set_reference(reference, {.monotonic_us = 5e6, .day_us = day});
        }
        auto const found = source.frame(i);
        EXPECT_EQ(found.source, i < 10 ? time_source::arrivals : time_source::reference) << i;
        EXPECT_NEAR(error(found, i), i < 10 ? delay : 0.0, 3.0) << i;
        EXPECT_TRUE(i < 10 || found.uncertainty_us >= 20.0);
    }
    source.clock.set_reference(std::nullopt, {.monotonic_us = 5e6, .day_us = day});
    EXPECT_EQ(source.frame(40).source, time_source::arrivals) << "the reference was removed from the configuration";
}

TEST(FrameClock, TakesTheTimeFromACameraThatFollowsPtp) {
    for (double const ahead : {0.0, tai}) {
        camera source;
        source.clock.set_tick_frequency(1e9);
        source.origin_ns = static_cast<std::uint64_t>(day + ahead) * 1000;
        for (int i = 0; i < 20; ++i) {
            auto const found = source.frame(i);
            EXPECT_EQ(found.source, time_source::ptp);
            EXPECT_NEAR(error(found, i), 0.0, 1.0) << i;
            EXPECT_GE(found.uncertainty_us, delay) << "arrivals exclude nothing less";
        }
    }
}

TEST(FrameClock, DoesNotTakeACounterForPtp) {
    for (double const off : {-2e6, 2e6, tai + 2e6, -3600e6}) {
        camera source;
        source.clock.set_tick_frequency(1e9);
        source.origin_ns = static_cast<std::uint64_t>(day + off) * 1000;
        EXPECT_EQ(source.frame(0).source, time_source::arrivals) << off;
    }
}

TEST(FrameClock, ReadsBothClocksOfThisMachine) {
    auto const first = frame_clock::now();
    auto const second = frame_clock::now();
    EXPECT_GT(second.monotonic_us, first.monotonic_us);
    EXPECT_NEAR(second.day_us - first.day_us, second.monotonic_us - first.monotonic_us, 1000.0);
    EXPECT_GT(first.day_us, 1.7e15);
}

TEST(TimeSource, HasAName) {
    EXPECT_STREQ(name_of(time_source::arrivals), "arrivals");
    EXPECT_STREQ(name_of(time_source::reference), "reference");
    EXPECT_STREQ(name_of(time_source::ptp), "ptp");
}
