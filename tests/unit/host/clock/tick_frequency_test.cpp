// SPDX-License-Identifier: MIT
#include "clock/tick_frequency.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

using namespace mediagrabber;

namespace {

/// What a plug-in announces in camera time; the time base jumps with a probability.
std::vector<announced_ticks> announced(double hz, std::size_t count, double period_us, double jitter_us,
                                       double jump_probability, std::mt19937_64& random) {
    std::vector<announced_ticks> frames;
    double difference = 1.7e15;
    double taken = 5e6;
    double before = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        taken += period_us + std::normal_distribution<>(0.0, jitter_us)(random);
        double const ticks = std::floor(taken * hz / 1e6);
        double const block = std::floor(ticks * 1e6 / hz);
        if (std::uniform_real_distribution<>()(random) < jump_probability) {
            difference += std::round(std::normal_distribution<>(0.0, 3'000.0)(random));
        }
        double const interval = before == 0.0 ? period_us : block - before;
        frames.push_back({.ticks = static_cast<std::uint64_t>(ticks),
                          .announced_us = static_cast<std::uint64_t>(block + std::floor(interval) + difference)});
        before = block;
    }
    return frames;
}

}  // namespace

TEST(TickFrequency, IsTheRoundOneThatAgrees) {
    std::mt19937_64 random(1);
    for (double const hz : {1e9, 125e6, 62.5e6, 1e6, 33.33e6}) {
        auto const found = find_tick_frequency(announced(hz, 1000, 10'000.0, 0.0, 0.0, random));
        EXPECT_EQ(found.hz, hz);
        EXPECT_EQ(found.relative_uncertainty, 0.0);
    }
}

TEST(TickFrequency, ThatIsNotRoundIsWithinItsUncertainty) {
    std::mt19937_64 random(2);
    for (double const hz : {66'666'667.0, 123'456'789.0, 27'000'123.0}) {
        auto const found = find_tick_frequency(announced(hz, 1000, 10'000.0, 0.0, 0.0, random));
        EXPECT_NEAR(found.hz, hz, found.relative_uncertainty * hz);
        EXPECT_GT(found.relative_uncertainty, 0.0);
        EXPECT_LT(found.relative_uncertainty, 1e-6);
    }
}

RC_GTEST_PROP(TickFrequency, IsFoundThroughJumpsAndUnevenFrames, ()) {
    std::mt19937_64 random(*rc::gen::arbitrary<std::uint64_t>());
    double const hz = *rc::gen::inRange(1'000'000, 1'000'000'000);
    double const jitter = *rc::gen::inRange(0, 500);
    auto const found = find_tick_frequency(announced(hz, 500, 10'000.0, jitter, 0.1, random));
    RC_ASSERT(std::abs(found.hz - hz) <= 1e-5 * hz);
}

TEST(TickFrequency, IsNotGuessed) {
    EXPECT_THROW(find_tick_frequency({}), std::runtime_error);
    std::mt19937_64 random(3);
    EXPECT_THROW(find_tick_frequency(announced(1e9, 10, 10'000.0, 0.0, 0.0, random)), std::runtime_error);
    std::vector<announced_ticks> const standing(100, announced_ticks{.ticks = 5, .announced_us = 5});
    EXPECT_THROW(find_tick_frequency(standing), std::runtime_error);
}
