// SPDX-License-Identifier: MIT
#include "clock/clock_estimate.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

using delays = std::function<double(std::mt19937_64&)>;  ///< microseconds

/// A kind of network.
struct network {
    char const* name;
    delays delay;
};

double gamma_delay(std::mt19937_64& random, double mean, double deviation) {
    double const shape = mean * mean / (deviation * deviation);
    return std::gamma_distribution<double>(shape, mean / shape)(random);
}

/// Delays that are long and short for a while, as behind a queue: each resembles the one before.
delays queueing() {
    auto level = std::make_shared<double>(0.0);
    return [level](std::mt19937_64& random) {
        *level = 0.9 * *level + std::normal_distribution<>(0.0, 2'000.0)(random);
        return 100.0 + std::abs(*level) + std::exponential_distribution<>(1.0 / 20.0)(random);
    };
}

std::vector<network> const networks{
    {"a quiet one", [](auto& r) { return 100.0 + std::exponential_distribution<>(1.0 / 20.0)(r); }},
    {"exponential, 5 ms", [](auto& r) { return 100.0 + std::exponential_distribution<>(1.0 / 5000.0)(r); }},
    {"half normal, 5 ms", [](auto& r) { return 100.0 + std::abs(std::normal_distribution<>(0.0, 8300.0)(r)); }},
    {"gamma, 10 +- 5 ms", [](auto& r) { return gamma_delay(r, 10'000.0, 5'000.0); }},
    {"gamma, 30 +- 5 ms", [](auto& r) { return gamma_delay(r, 30'000.0, 5'000.0); }},
    {"uniform, 5 ms", [](auto& r) { return std::uniform_real_distribution<>(100.0, 17'400.0)(r); }},
    {"mostly quick, now and then very late",
     [](auto& r) {
         double const quick = 100.0 + std::exponential_distribution<>(1.0 / 30.0)(r);
         return std::uniform_real_distribution<>()(r) < 0.2 ? quick + 50'000.0 : quick;
     }},
    {"queueing", queueing()},
};

/// Frames of a camera whose clock runs faster than the host's by `drift` (a part of 1).
std::vector<clock_sample> frames(double drift, double seconds, double rate, delays const& delay,
                                 std::mt19937_64& random) {
    std::vector<clock_sample> samples;
    auto const count = static_cast<std::size_t>(seconds * rate);
    for (std::size_t i = 0; i < count; ++i) {
        double const taken = static_cast<double>(i) * 1e6 / rate;
        samples.push_back(
            {.camera_us = std::floor(taken * (1.0 + drift)), .host_us = std::floor(taken + delay(random))});
    }
    return samples;
}

double error_of(clock_estimate const& estimate, double drift) {
    return estimate.correction_ns + drift * 1e9;
}

}  // namespace

TEST(ClockEstimate, FindsTheRateOfAClockWithoutDelays) {
    std::mt19937_64 random(1);
    for (double const drift : {-1e-2, -1e-4, 0.0, 5e-5, 1e-3}) {
        auto const estimate = estimate_clock(frames(
            drift, 10.0, 100.0, [](auto&) { return 0.0; }, random));
        EXPECT_NEAR(estimate.correction_ns, -drift * 1e9, 100.0);
        EXPECT_LT(estimate.uncertainty_ns, 200.0);
        EXPECT_EQ(estimate.frames, 1000U);
        EXPECT_NEAR(estimate.span_s, 9.99, 0.01);
    }
}

TEST(ClockEstimate, HasTheStatedCoverage) {
    constexpr int trials = 400;
    for (auto const& [name, delay] : networks) {
        std::mt19937_64 random(2024);
        int within = 0;
        double claimed = 0.0;
        for (int i = 0; i < trials; ++i) {
            double const drift = std::uniform_real_distribution<>(-1e-4, 1e-4)(random);
            auto const estimate = estimate_clock(frames(drift, 10.0, 100.0, delay, random));
            within += std::abs(error_of(estimate, drift)) <= estimate.uncertainty_ns ? 1 : 0;
            claimed += estimate.uncertainty_ns / trials;
        }
        EXPECT_GE(within, trials * 94 / 100) << name;
        RecordProperty(name, std::to_string(within) + " of " + std::to_string(trials) + " within " +
                                 std::to_string(claimed) + " ns/s");
    }
}

RC_GTEST_PROP(ClockEstimate, IsNeverFarFromTheTruth, ()) {
    auto const& kind = *rc::gen::elementOf(networks);
    std::mt19937_64 random(*rc::gen::arbitrary<std::uint64_t>());
    double const drift = *rc::gen::inRange(-200'000, 200'001) * 1e-9;
    double const rate = *rc::gen::inRange(20, 200);
    double const seconds = *rc::gen::inRange(5, 20);
    auto const estimate = estimate_clock(frames(drift, seconds, rate, kind.delay, random));
    RC_ASSERT(std::abs(error_of(estimate, drift)) <= 4.0 * estimate.uncertainty_ns);
}

RC_GTEST_PROP(ClockEstimate, DoesNotDependOnWhenTheClocksBegan, ()) {
    std::mt19937_64 random(*rc::gen::arbitrary<std::uint64_t>());
    auto samples = frames(3e-5, 10.0, 50.0, networks[1].delay, random);
    auto const before = estimate_clock(samples);
    double const camera = *rc::gen::inRange(0, 2'000'000'000);
    double const host = *rc::gen::inRange(0, 2'000'000'000);
    for (auto& one : samples) {
        one.camera_us += camera;
        one.host_us += host;
    }
    RC_ASSERT(std::abs(estimate_clock(samples).correction_ns - before.correction_ns) < 1.0);
}

RC_GTEST_PROP(ClockEstimate, IsNotMovedByFramesThatAreVeryLate, ()) {
    std::mt19937_64 random(*rc::gen::arbitrary<std::uint64_t>());
    auto samples = frames(3e-5, 10.0, 100.0, networks[0].delay, random);
    auto const before = estimate_clock(samples);
    for (auto& one : samples) {
        if (std::uniform_real_distribution<>()(random) < 0.3) {
            one.host_us += 100'000.0;
        }
    }
    auto const after = estimate_clock(samples);
    // Each uncertainty holds in 95 of 100 cases, so a few of a hundred differ by more than the sum.
    RC_ASSERT(std::abs(after.correction_ns - before.correction_ns) <
              3.0 * (after.uncertainty_ns + before.uncertainty_ns));
    RC_ASSERT(after.uncertainty_ns < 10.0 * before.uncertainty_ns);
}

TEST(ClockEstimate, IsBetterTheLongerItIsMeasured) {
    std::mt19937_64 random(5);
    auto const brief = estimate_clock(frames(0.0, 10.0, 100.0, networks[1].delay, random));
    auto const longer = estimate_clock(frames(0.0, 100.0, 100.0, networks[1].delay, random));
    EXPECT_LT(longer.uncertainty_ns, brief.uncertainty_ns / 10.0);
}

TEST(ClockEstimate, IsLessCertainOfAClockThatDoesNotKeepItsRate) {
    std::mt19937_64 random(6);
    auto samples = frames(0.0, 20.0, 100.0, networks[0].delay, random);
    auto const steady = estimate_clock(samples);
    for (auto& one : samples) {
        double const share = one.camera_us / samples.back().camera_us;
        one.host_us += 500.0 * share * share;  // from 0 to 50 parts in a million
    }
    auto const unsteady = estimate_clock(samples);
    EXPECT_GT(unsteady.uncertainty_ns, 5.0 * steady.uncertainty_ns);
    EXPECT_NEAR(unsteady.correction_ns, 25'000.0, unsteady.uncertainty_ns);
}

TEST(ClockEstimate, ReportsTheSpreadOfTheDelays) {
    std::mt19937_64 random(7);
    auto const estimate = estimate_clock(frames(0.0, 20.0, 100.0, networks[1].delay, random));
    EXPECT_NEAR(estimate.delay_spread_us, 5'000.0 * std::log(2.0), 500.0);
}

TEST(ClockEstimate, NeedsFramesAndAClockThatRuns) {
    std::mt19937_64 random(8);
    auto samples = frames(0.0, 10.0, 10.0, networks[0].delay, random);
    EXPECT_NO_THROW(estimate_clock(samples));
    auto const refusal = [](std::vector<clock_sample> const& refused) -> std::string {
        try {
            estimate_clock(refused);
            return {};
        } catch (std::runtime_error const& error) {
            return error.what();
        }
    };
    EXPECT_THAT(refusal({samples.begin(), samples.begin() + 63}), HasSubstr("63 frames are too few"));
    EXPECT_THAT(refusal({}), HasSubstr("0 frames are too few"));
    samples[50].camera_us = 0.0;
    EXPECT_THAT(refusal(samples), HasSubstr("was set back"));
}
