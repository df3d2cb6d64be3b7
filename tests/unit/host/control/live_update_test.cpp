// SPDX-License-Identifier: MIT
#include "control/live_update.hpp"

#include <gmock/gmock.h>

#include <future>

using namespace mediagrabber;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

configuration requested() {
    configuration values;
    values.gain.db = 6.0F;
    values.exposure.time_us = 2000.0F;
    values.timing.frame_rate_hz = 50.0F;
    return values;
}

std::vector<setting> const all_three{{"gain.db", "6"}, {"exposure.time_us", "2000"}, {"timing.frame_rate_hz", "50"}};

/// The plug-in's side of a change: activates what is staged, and delivers a frame.
void play_plugin(configuration_store& configurations, update_confirmation& confirmation) {
    while (!configurations.pending()) {
        std::this_thread::sleep_for(1ms);
    }
    configurations.activate();
    confirmation.activated(configurations.activated(), 7);
    confirmation.polled(8, {.gain_db = 6.0F, .exposure_us = 2000.0F, .period_us = 20'000});
}

}  // namespace

TEST(CompareWithCamera, AcceptsRoundedValues) {
    auto const answer =
        compare_with_camera(all_three, requested(), {.gain_db = 6.05F, .exposure_us = 1990.0F, .period_us = 20'001});
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_THAT(answer.lines,
                ElementsAre("gain.db = 6.05", "exposure.time_us = 1990", "timing.frame_rate_hz = 49.9975"));
}

TEST(CompareWithCamera, ReportsADifferentValue) {
    auto const answer =
        compare_with_camera(all_three, requested(), {.gain_db = 6.0F, .exposure_us = 1000.0F, .period_us = 40'000});
    EXPECT_EQ(answer.status, exit_status::value_differs);
    EXPECT_THAT(answer.lines, ElementsAre("gain.db = 6", "exposure.time_us: requested 2000, but the camera has 1000",
                                          "timing.frame_rate_hz: requested 50, but the camera has 25"));
}

TEST(CompareWithCamera, ComparesTheRegion) {
    configuration region;
    region.image.width = 640;
    region.image.height = 480;
    auto const answer =
        compare_with_camera({{"image.width", "640"}, {"image.height", "480"}}, region,
                            {.gain_db = {}, .exposure_us = {}, .period_us = 0, .width = 640, .height = 464});
    EXPECT_EQ(answer.status, exit_status::value_differs);
    EXPECT_THAT(answer.lines, ElementsAre("image.width = 640", "image.height: requested 480, but the camera has 464"));
}

TEST(CompareWithCamera, DoesNotAcceptAnUnknownValue) {
    auto const answer = compare_with_camera(all_three, requested(), {});
    EXPECT_EQ(answer.status, exit_status::value_differs);
    EXPECT_THAT(answer.lines[0], HasSubstr("but the camera's value cannot be read"));
}

TEST(CompareWithCamera, NotesAValueThatIsNotReported) {
    auto const answer = compare_with_camera({{"auto.area", "true"}}, requested(), {});
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_THAT(answer.lines, ElementsAre("auto.area = true, applied; the camera does not report this value"));
}

TEST(ChangeWhileRunning, ReturnsWhenThePluginHasAppliedIt) {
    configuration_store configurations{requested()};
    update_confirmation confirmation;
    signal_latch latch;
    auto plugin = std::async(std::launch::async, [&] { play_plugin(configurations, confirmation); });
    auto const answer = change_while_running({.settings = {{"timing.frame_rate_hz", "50"}}, .timeout_s = 30.0},
                                             configurations, confirmation, latch);
    plugin.get();
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_TRUE(latch.reload_pending());
}

TEST(ChangeWhileRunning, RaisesNoReloadForALiveUpdate) {
    configuration_store configurations{requested()};
    update_confirmation confirmation;
    signal_latch latch;
    auto plugin = std::async(std::launch::async, [&] { play_plugin(configurations, confirmation); });
    auto const answer = change_while_running({.settings = {{"auto.area", "true"}}, .timeout_s = 30.0}, configurations,
                                             confirmation, latch);
    plugin.get();
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_FALSE(latch.reload_pending());
}

TEST(ChangeWhileRunning, ReportsItsProgressOnTimeout) {
    configuration_store configurations{requested()};
    update_confirmation confirmation;
    signal_latch latch;
    change_request const wanted{.settings = {{"auto.area", "true"}}, .timeout_s = 0.001};
    auto answer = change_while_running(wanted, configurations, confirmation, latch);
    EXPECT_EQ(answer.status, exit_status::timed_out);
    EXPECT_THAT(answer.lines, ElementsAre(HasSubstr("not applied within 0.001 s")));
    confirmation.activated(1'000, 7);
    answer = change_while_running(wanted, configurations, confirmation, latch);
    EXPECT_EQ(answer.status, exit_status::timed_out);
    EXPECT_THAT(answer.lines, ElementsAre(HasSubstr("applied, but no frame arrived within 0.001 s")));
}
