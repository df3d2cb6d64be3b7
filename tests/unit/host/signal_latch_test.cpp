#include "signal_latch.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;

TEST(SignalLatch, ReportsNothingWhenNothingIsAsked) {
    signal_latch latch;
    EXPECT_EQ(latch.poll(), request::none);
    latch.raise(request::none);
    EXPECT_EQ(latch.poll(), request::none);
    EXPECT_FALSE(latch.stop_pending());
    EXPECT_FALSE(latch.reload_pending());
}

TEST(SignalLatch, KeepsAStopThroughFramesUntilTheRunHasEnded) {
    for (request const stop : {request::stop, request::stop_second}) {
        signal_latch latch;
        latch.raise(stop);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(latch.poll(), stop);
            latch.frame_arrived();
            EXPECT_TRUE(latch.stop_pending());
        }
        latch.run_ended();
        EXPECT_FALSE(latch.stop_pending());
        EXPECT_EQ(latch.poll(), request::none);
    }
}

TEST(SignalLatch, KeepsAReloadUntilTheNewConfigurationIsTakenEvenOverTheEndOfARun) {
    signal_latch latch;
    latch.raise(request::reload);
    EXPECT_EQ(latch.poll(), request::reload);
    latch.frame_arrived();
    latch.run_ended();
    EXPECT_EQ(latch.poll(), request::reload);
    EXPECT_TRUE(latch.reload_pending());
    latch.reload_taken();
    EXPECT_EQ(latch.poll(), request::none);
}

TEST(SignalLatch, KeepsAUserSignalOverPollsThatNoFrameFollows) {
    for (request const user : {request::user_1, request::user_2}) {
        signal_latch latch;
        latch.raise(user);
        EXPECT_EQ(latch.poll(), user);
        EXPECT_EQ(latch.poll(), user);
        latch.frame_arrived();
        EXPECT_EQ(latch.poll(), request::none);
    }
}

TEST(SignalLatch, DoesNotTakeAFrameForTheAnswerToASignalThatWasNotReported) {
    signal_latch latch;
    EXPECT_EQ(latch.poll(), request::none);
    latch.raise(request::user_1);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), request::user_1);
}

TEST(SignalLatch, TakesOneFrameForTheAnswerToOneSignal) {
    signal_latch latch;
    latch.raise(request::user_2);
    EXPECT_EQ(latch.poll(), request::user_2);
    latch.frame_arrived();
    latch.raise(request::user_2);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), request::user_2);
}

TEST(SignalLatch, ReportsAStopFirstThenAReloadThenTheUsersSignals) {
    signal_latch latch;
    for (request const asked :
         {request::user_2, request::user_1, request::reload, request::stop_second, request::stop}) {
        latch.raise(asked);
    }
    EXPECT_EQ(latch.poll(), request::stop);
    latch.run_ended();
    EXPECT_EQ(latch.poll(), request::reload);
    latch.reload_taken();
    EXPECT_EQ(latch.poll(), request::user_1);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), request::user_2);
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), request::none);
}

TEST(SignalLatch, KeepsAUserSignalOverTheEndOfARun) {
    signal_latch latch;
    latch.raise(request::user_1);
    EXPECT_EQ(latch.poll(), request::user_1);
    latch.run_ended();
    latch.frame_arrived();
    EXPECT_EQ(latch.poll(), request::user_1);
}
