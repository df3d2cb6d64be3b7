// SPDX-License-Identifier: MIT
#include "timing/network_delay.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace camsim;
using namespace std::chrono_literals;

namespace {

std::vector<double> milliseconds(network_delay_settings const& settings, std::uint64_t seed, int count) {
    network_delay delay(settings, seed);
    std::vector<double> all;
    all.reserve(static_cast<std::size_t>(count));
    for (int index = 0; index < count; ++index) {
        all.push_back(std::chrono::duration<double, std::milli>(delay.next()).count());
    }
    return all;
}

}  // namespace

TEST(NetworkDelay, HasTheConfiguredMeanAndDeviationAndIsNeverNegative) {
    for (double const deviation : {0.5, 5.0, 15.0}) {
        auto const delays = milliseconds({5.0, deviation}, 1, 100'000);
        double sum = 0.0;
        double squares = 0.0;
        for (double const delay : delays) {
            ASSERT_GE(delay, 0.0);
            sum += delay;
            squares += delay * delay;
        }
        auto const count = static_cast<double>(delays.size());
        double const mean = sum / count;
        EXPECT_NEAR(mean, 5.0, 0.05 * deviation);
        EXPECT_NEAR(std::sqrt(squares / count - mean * mean), deviation, 0.05 * deviation);
    }
}

TEST(NetworkDelay, IsTheSameForTheSameSeed) {
    EXPECT_EQ(milliseconds({5.0, 1.0}, 7, 100), milliseconds({5.0, 1.0}, 7, 100));
    EXPECT_NE(milliseconds({5.0, 1.0}, 7, 100), milliseconds({5.0, 1.0}, 8, 100));
}

TEST(NetworkDelay, WithoutDeviationIsTheMean) {
    network_delay constant({2.5, 0.0}, 1);
    EXPECT_EQ(constant.next(), 2500us);
    EXPECT_EQ(constant.next(), 2500us);
    EXPECT_EQ(network_delay({}, 1).next(), 0ns);
}

TEST(NetworkDelay, IsParsedFromText) {
    EXPECT_EQ(parse_network_delay("0")->mean_ms, 0.0);
    EXPECT_EQ(parse_network_delay("12.5")->mean_ms, 12.5);
    EXPECT_EQ(parse_network_delay("12.5")->deviation_ms, 0.0);
    EXPECT_EQ(parse_network_delay("5:1.5")->mean_ms, 5.0);
    EXPECT_EQ(parse_network_delay("5:1.5")->deviation_ms, 1.5);
    for (char const* const text : {"", "a", "5:", ":5", "5:1:2", "-1", "5:-1", "0:1", "10001", "nan", "inf", "5ms"}) {
        EXPECT_FALSE(parse_network_delay(text)) << text;
    }
}
