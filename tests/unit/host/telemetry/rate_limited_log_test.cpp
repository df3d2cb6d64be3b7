// SPDX-License-Identifier: MIT
#include "telemetry/rate_limited_log.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;
using namespace std::chrono_literals;

namespace {

rate_limited_log::clock::time_point const start{1h};

}  // namespace

TEST(RateLimitedLog, LogsAStateOnce) {
    rate_limited_log report(10s);
    EXPECT_FALSE(report.due(start));
    report.note({.good = false, .text = "lost"});
    EXPECT_EQ(report.due(start)->text, "lost");
    EXPECT_FALSE(report.due(start + 1h));
    report.note({.good = false, .text = "lost"});
    EXPECT_FALSE(report.due(start + 1h));
}

TEST(RateLimitedLog, DelaysTheNextMessage) {
    rate_limited_log report(10s);
    report.note({.good = false, .text = "lost"});
    report.due(start);
    report.note({.good = true, .text = "there"});
    EXPECT_FALSE(report.due(start + 9s));
    EXPECT_EQ(report.due(start + 10s)->text, "there");
}

TEST(RateLimitedLog, LogsNothingIfTheStateIsBack) {
    rate_limited_log report(10s);
    report.note({.good = true, .text = "there"});
    report.due(start);
    report.note({.good = false, .text = "lost"});
    report.note({.good = true, .text = "there"});
    EXPECT_FALSE(report.due(start + 1h));
}
