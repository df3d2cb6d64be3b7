// SPDX-License-Identifier: MIT
#include "session/grace_timer.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;
using namespace std::chrono_literals;

namespace {

constexpr grace_timer::clock::time_point start{1000s};
constexpr grace_timer::clock::time_point never{};

}  // namespace

TEST(GraceTimer, DoesNotRunWithoutAStop) {
    grace_timer timer(5s);
    EXPECT_FALSE(timer.expired(start, false, never));
    EXPECT_FALSE(timer.expired(start + 1h, false, never));
}

TEST(GraceTimer, RunsFromTheStop) {
    grace_timer timer(5s);
    EXPECT_FALSE(timer.expired(start, true, never));
    EXPECT_FALSE(timer.expired(start + 4999ms, true, never));
    EXPECT_TRUE(timer.expired(start + 5s, true, never));
}

TEST(GraceTimer, RestartsWithEveryFrameAfterTheStop) {
    grace_timer timer(5s);
    EXPECT_FALSE(timer.expired(start, true, start - 1s));
    EXPECT_FALSE(timer.expired(start + 6s, true, start + 3s));
    EXPECT_TRUE(timer.expired(start + 8s, true, start + 3s));
}

TEST(GraceTimer, BeginsAgainForTheNextStop) {
    grace_timer timer(5s);
    EXPECT_FALSE(timer.expired(start, true, never));
    EXPECT_FALSE(timer.expired(start + 1s, false, never));
    EXPECT_FALSE(timer.expired(start + 6s, true, never));
    EXPECT_TRUE(timer.expired(start + 11s, true, never));
}
