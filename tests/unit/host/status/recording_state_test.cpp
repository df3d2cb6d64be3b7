// SPDX-License-Identifier: MIT
#include "status/recording_state.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;
using enum recording_state::kind;

TEST(RecordingState, IsRecordingWhileFramesArrive) {
    EXPECT_EQ(state_of({}).what, starting);
    EXPECT_EQ(state_of({.seconds_since_frame = 0.1}).what, recording);
    EXPECT_EQ(state_of({.has_pretrigger = true, .seconds_since_frame = 0.1}).what, buffering);
    EXPECT_EQ(state_of({.stop_requested = true, .seconds_since_frame = 0.1}).what, stopping);
}

TEST(RecordingState, IsWaitingForAReason) {
    auto const lost = state_of({.failure = "no camera was found", .seconds_since_frame = 0.1});
    EXPECT_EQ(lost.what, waiting);
    EXPECT_EQ(lost.reason, "no camera was found");
    auto const silent = state_of({.seconds_since_frame = 12.2});
    EXPECT_EQ(silent.what, waiting);
    EXPECT_EQ(silent.reason, "no frame has arrived for 12 s");
}

TEST(RecordingState, AllowsForSlowFrames) {
    EXPECT_EQ(state_of({.seconds_since_frame = 25.0, .period_us = 10'000'000}).what, recording);
    EXPECT_EQ(state_of({.seconds_since_frame = 31.0, .period_us = 10'000'000}).what, waiting);
}

TEST(RecordingState, HasOneWord) {
    EXPECT_STREQ(state_of({}).name(), "starting");
    EXPECT_STREQ(state_of({.seconds_since_frame = 0.0}).name(), "recording");
    EXPECT_STREQ(state_of({.has_pretrigger = true, .seconds_since_frame = 0.0}).name(), "buffering");
    EXPECT_STREQ(state_of({.failure = "x"}).name(), "waiting");
    EXPECT_STREQ(state_of({.stop_requested = true}).name(), "stopping");
}
