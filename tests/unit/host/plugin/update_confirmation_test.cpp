// SPDX-License-Identifier: MIT
#include "plugin/update_confirmation.hpp"

#include <gtest/gtest.h>

#include <future>

using namespace mediagrabber;
using namespace std::chrono_literals;

namespace {

constexpr update_confirmation::camera_values values{.gain_db = 6.0F, .exposure_us = 100.0F, .period_us = 10'000};

}  // namespace

TEST(UpdateConfirmation, ComesWithTheFirstFrameAfterTheActivation) {
    update_confirmation changes;
    auto waiting = std::async(std::launch::async, [&] { return changes.wait_for(1, 30s); });
    changes.polled(5, {});
    changes.activated(1, 5);
    changes.polled(5, {});
    changes.polled(6, values);
    auto const outcome = waiting.get();
    EXPECT_TRUE(outcome.activated);
    ASSERT_TRUE(outcome.values);
    EXPECT_EQ(outcome.values->gain_db, 6.0F);
    EXPECT_EQ(outcome.values->period_us, 10'000U);
}

TEST(UpdateConfirmation, DoesNotComeWithAPollWithoutANewFrame) {
    update_confirmation changes;
    changes.activated(1, 5);
    changes.polled(5, values);
    auto const outcome = changes.wait_for(1, 1ms);
    EXPECT_TRUE(outcome.activated);
    EXPECT_FALSE(outcome.values);
}

TEST(UpdateConfirmation, DoesNotComeForAChangeThatWasNotActivated) {
    update_confirmation changes;
    changes.activated(1, 5);
    changes.polled(6, values);
    auto const outcome = changes.wait_for(2, 1ms);
    EXPECT_FALSE(outcome.activated);
    EXPECT_FALSE(outcome.values);
    EXPECT_TRUE(changes.wait_for(1, 1ms).values);
}

TEST(UpdateConfirmation, HasTheValuesOfTheFirstFrame) {
    update_confirmation changes;
    changes.activated(1, 5);
    changes.polled(6, values);
    changes.polled(7, {});
    EXPECT_EQ(changes.wait_for(1, 1ms).values->gain_db, 6.0F);
}

TEST(UpdateConfirmation, EndsAllWaitsWhenCancelled) {
    update_confirmation changes;
    auto waiting = std::async(std::launch::async, [&] { return changes.wait_for(1, 1h); });
    changes.cancel();
    EXPECT_FALSE(waiting.get().values);
    EXPECT_FALSE(changes.wait_for(2, 1h).values);
}
