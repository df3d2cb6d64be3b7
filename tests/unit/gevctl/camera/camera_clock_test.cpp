// SPDX-License-Identifier: MIT
#include "camera/camera_clock.hpp"

#include <gtest/gtest.h>

using gevctl::clock_reading;
using gevctl::compare_clocks;

TEST(CameraClock, HasTheOffsetOfTheShortestRoundTripWithHalfOfItAsUncertainty) {
    auto const found = compare_clocks({{0, 1000, 9000}, {10'000, 10'100, 15'050}, {20'000, 21'000, 25'900}});
    EXPECT_EQ(found.offset_ns, 5000);
    EXPECT_EQ(found.uncertainty_ns, 50);
    EXPECT_EQ(found.at_ns, 10'050);
}

TEST(CameraClock, DriftsByTheChangeOfTheOffsetPerSecond) {
    constexpr std::int64_t second = 1'000'000'000;
    std::vector<clock_reading> readings;
    for (std::int64_t i = 0; i <= 8; ++i) {
        std::int64_t const at = i * second;
        readings.push_back({at - 100, at + 100, at + 7000 + 250 * i});  // 250 ns per s
    }
    auto const found = compare_clocks(readings);
    EXPECT_DOUBLE_EQ(found.drift_ppb, 250.0);
    EXPECT_GT(found.drift_uncertainty_ppb, 200.0 / 8);
    EXPECT_LT(found.drift_uncertainty_ppb, 40.0);
}

TEST(CameraClock, CountsInTheUnitOfTheFeature) {
    EXPECT_EQ(gevctl::frequency_of_unit("ns"), 1'000'000'000U);
    EXPECT_EQ(gevctl::frequency_of_unit("us"), 1'000'000U);
    EXPECT_EQ(gevctl::frequency_of_unit("tick"), std::nullopt);
}

TEST(CameraClock, IsExactForCountersOf64Bits) {
    EXPECT_EQ(gevctl::ticks_to_ns(1'800'000'000'123'456'789U, 1'000'000'000U), 1'800'000'000'123'456'789);
    EXPECT_EQ(gevctl::ticks_to_ns(125'000'001U, 125'000'000U), 1'000'000'008);
}
