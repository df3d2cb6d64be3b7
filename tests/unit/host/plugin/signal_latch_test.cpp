// SPDX-License-Identifier: MIT
#include "plugin/signal_latch.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;

TEST(SignalLatch, ReportsNoneIfNothingIsPending) {
    signal_latch latch;
    EXPECT_EQ(latch.poll(), signal_code::none);
    latch.raise(signal_code::none);
    EXPECT_EQ(latch.poll(), signal_code::none);
    EXPECT_FALSE(latch.stop_pending());
    EXPECT_FALSE(latch.reload_pending());
}

TEST(SignalLatch, KeepsAStopThroughFramesUntilTheRunHasEnded) {
    for (signal_code const stop : {signal_code::stop, signal_code::stop_second_kind}) {
        signal_latch latch;
        latch.raise(stop);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(latch.poll(), stop);
            latch.frame_arrived();
            EXPECT_TRUE(latch.stop_pending());
        }
        latch.run_ended();
        EXPECT_FALSE(latch.stop_pending());
        EXPECT_EQ(latch.poll(), signal_code::none);
    }
}

TEST(SignalLatch, KeepsAReloadUntilTheConfigurationIsActivatedEvenAcrossRuns) {
    signal_latch latch;
    latch.raise(signal_code::reload);
    EXPECT_EQ(latch.poll(), signal_code::reload);
    latch.frame_arrived();
    latch.run_ended();
    EXPECT_EQ(latch.poll(), signal_code::reload);
    EXPECT_TRUE(latch.reload_pending());
    latch.reload_activated();
    EXPECT_EQ(latch.poll(), signal_code::none);
}

TEST(SignalLatch, KeepsALutRequestAcrossPollsWithoutAFrame) {
    for (signal_code const user : {signal_code::user_1, signal_code::user_2}) {
        signal_latch latch;
        latch.raise(user);
        EXPECT_EQ(latch.poll(), user);
        EXPECT_EQ(latch.poll(), user);
        latch.frame_arrived();
        EXPECT_EQ(latch.poll(), signal_code::none);
    }
}

TEST(SignalLatch, KeepsALutRequestThatNoPollHasReported) {
    signal_latch latch;
    EXPECT_EQ(latch.poll(), signal_code::none);
    latch.raise(signal_code::user_1);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), signal_code::user_1);
}

TEST(SignalLatch, ClearsOneLutRequestPerFrame) {
    signal_latch latch;
    latch.raise(signal_code::user_2);
    EXPECT_EQ(latch.poll(), signal_code::user_2);
    latch.frame_arrived();
    latch.raise(signal_code::user_2);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), signal_code::user_2);
}

TEST(SignalLatch, ReportsAStopThenAReloadThenLutRequests) {
    signal_latch latch;
    for (signal_code const requested : {signal_code::user_2, signal_code::user_1, signal_code::reload,
                                        signal_code::stop_second_kind, signal_code::stop}) {
        latch.raise(requested);
    }
    EXPECT_EQ(latch.poll(), signal_code::stop);
    latch.run_ended();
    EXPECT_EQ(latch.poll(), signal_code::reload);
    latch.reload_activated();
    EXPECT_EQ(latch.poll(), signal_code::user_1);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), signal_code::user_2);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), signal_code::none);
}

TEST(SignalLatch, KeepsALutRequestAcrossRuns) {
    signal_latch latch;
    latch.raise(signal_code::user_1);
    EXPECT_EQ(latch.poll(), signal_code::user_1);
    latch.run_ended();
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), signal_code::user_1);
}
