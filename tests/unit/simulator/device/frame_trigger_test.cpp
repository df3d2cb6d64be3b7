// SPDX-License-Identifier: MIT
#include "device/frame_trigger.hpp"

#include <gtest/gtest.h>

using namespace camsim;
using namespace std::chrono_literals;

namespace {

frame_trigger::time_point const start{1h};

frame_trigger armed(trigger_source source = trigger_source::software) {
    frame_trigger trigger;
    trigger.settings.on = true;
    trigger.settings.source = source;
    trigger.arm(true);
    return trigger;
}

}  // namespace

TEST(FrameTrigger, WaitsForItsExposure) {
    frame_trigger trigger = armed();
    EXPECT_FALSE(trigger.waiting());
    EXPECT_TRUE(trigger.fire(trigger_source::software, start));
    EXPECT_EQ(trigger.waiting(), start);
    trigger.take(start + 10ms);
    EXPECT_FALSE(trigger.waiting());
}

TEST(FrameTrigger, IgnoresOtherSourcesAndIsOffByDefault) {
    frame_trigger trigger = armed(trigger_source::line1);
    EXPECT_FALSE(trigger.fire(trigger_source::software, start));
    EXPECT_FALSE(trigger.fire(trigger_source::action1, start));
    EXPECT_TRUE(trigger.fire(trigger_source::line1, start));
    frame_trigger off;
    off.arm(true);
    EXPECT_FALSE(off.fire(trigger_source::software, start));
}

TEST(FrameTrigger, IsMissedWhileTheCameraIsNotReady) {
    frame_trigger trigger = armed();
    trigger.arm(false);
    EXPECT_FALSE(trigger.fire(trigger_source::software, start));
    trigger.arm(true);
    EXPECT_TRUE(trigger.fire(trigger_source::software, start));
    EXPECT_FALSE(trigger.fire(trigger_source::software, start + 1ms)) << "an earlier one waits";
    trigger.take(start + 10ms);
    EXPECT_FALSE(trigger.fire(trigger_source::software, start + 9ms)) << "the last frame is read out";
    EXPECT_TRUE(trigger.fire(trigger_source::software, start + 10ms));
}

TEST(FrameTrigger, ForgetsATriggerOfAnEarlierAcquisition) {
    frame_trigger trigger = armed();
    trigger.fire(trigger_source::software, start);
    trigger.take(start + 10ms);
    trigger.fire(trigger_source::software, start + 10ms);
    trigger.arm(false);
    trigger.arm(true);
    EXPECT_FALSE(trigger.waiting());
    EXPECT_TRUE(trigger.fire(trigger_source::software, start + 11ms)) << "it does not wait for a frame before";
}
