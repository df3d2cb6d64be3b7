// SPDX-License-Identifier: MIT
#include "clock/clock_measurement.hpp"

#include <gmock/gmock.h>

#include <random>
#include <stdexcept>

#include "config/configuration_file.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

/// Frames of a camera with a tick frequency of 125 MHz whose clock runs faster than the host's by `drift`.
std::vector<frame_times> frames(double drift, double exposure_us = 0.0) {
    std::mt19937_64 random(3);
    std::vector<frame_times> taken;
    std::uint64_t before = 0;
    for (int i = 0; i < 1000; ++i) {
        double const host = i * 10'000.0;
        auto const block = static_cast<std::uint64_t>(host * (1.0 + drift));
        // A longer exposure delays the frame; it must not be taken for drift.
        double const exposure = exposure_us * i / 1000.0;
        double const delay = exposure + std::exponential_distribution<>(1.0 / 20.0)(random);
        taken.push_back({.ticks = block * 125 + 1'000'000,
                         .announced_us = 2 * block - before + 7'000'000,
                         .exposure_us = exposure,
                         .arrived = std::chrono::steady_clock::time_point(
                             std::chrono::microseconds(static_cast<std::int64_t>(host + delay)))});
        before = block;
    }
    return taken;
}

}  // namespace

TEST(ClockMeasurement, ComparesTheClocksByTicksAndArrivals) {
    auto const measured = measure_clock(frames(5e-5), std::nullopt);
    EXPECT_EQ(measured.tick_hz, 125e6);
    EXPECT_NEAR(measured.clock.correction_ns, -50'000.0, measured.clock.uncertainty_ns);
    EXPECT_LT(measured.clock.uncertainty_ns, 1'000.0);
}

TEST(ClockMeasurement, DoesNotTakeALongerExposureForADelay) {
    auto const measured = measure_clock(frames(0.0, 5'000.0), std::nullopt);
    EXPECT_NEAR(measured.clock.correction_ns, 0.0, measured.clock.uncertainty_ns);
    EXPECT_LT(measured.clock.uncertainty_ns, 1'000.0);
}

TEST(ClockMeasurement, UsesAGivenTickFrequency) {
    auto const measured = measure_clock(frames(0.0), 125.01e6);
    EXPECT_NEAR(measured.clock.correction_ns, 80'000.0, 100.0);
}

TEST(ClockMeasurement, DoubtsAClockThatNoCameraHas) {
    EXPECT_THROW(measure_clock(frames(0.0), 1e9), std::runtime_error);
    EXPECT_THROW(measure_clock({}, std::nullopt), std::runtime_error);
}

TEST(ClockMeasurement, BecomesALineOfAConfiguration) {
    auto const text = configuration_text({.clock = {.correction_ns = -50'012.4,
                                                    .uncertainty_ns = 84.2,
                                                    .span_s = 10.0,
                                                    .frames = 1000,
                                                    .delay_spread_us = 420.0},
                                          .tick_hz = 66'666'667.0});
    EXPECT_EQ(text,
              "# 1000 frames in 10.0 s; median delay 0.42 ms above the minimum; 66666667 ticks per second\n"
              "# uncertainty 85 ns/s (95 %)\n"
              "timing.clock_correction_ppb = -50012\n");
    EXPECT_EQ(parse_configuration(text, "f").values.timing.clock_correction_ppb, -50'012);
}

TEST(ClockMeasurement, NeverBecomesACorrectionThatIsAnotherMode) {
    EXPECT_THAT(configuration_text({.clock = {.correction_ns = 0.3}, .tick_hz = 1e9}),
                HasSubstr("timing.clock_correction_ppb = 1\n"));
}
