#include "running_change.hpp"

#include <gmock/gmock.h>

#include <future>

using namespace mediagrabber;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

configuration asked() {
    configuration values;
    values.gain_db = 6.0F;
    values.exposure_time_us = 2000.0F;
    values.frame_rate = 50.0F;
    return values;
}

std::vector<setting> const all_three{{"gain.db", "6"}, {"exposure.time_us", "2000"}, {"timing.frame_rate", "50"}};

/// The plug-in's side of a change: takes what is offered as soon as there is something, and brings a frame.
void play_plugin(configuration_store& configurations, change_confirmation& confirmation) {
    while (!configurations.waiting()) {
        std::this_thread::sleep_for(1ms);
    }
    configurations.take();
    confirmation.taken(configurations.taken(), 7);
    confirmation.polled(8, {.gain_db = 6.0F, .exposure_us = 2000.0F, .period_us = 20'000});
}

}  // namespace

TEST(Judgement, IsGoodWhereTheCameraHasWhatWasAskedForButForRounding) {
    auto const answer = judge(all_three, asked(), {.gain_db = 6.05F, .exposure_us = 1990.0F, .period_us = 20'001});
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_THAT(answer.lines, ElementsAre("gain.db = 6.05", "exposure.time_us = 1990", "timing.frame_rate = 49.9975"));
}

TEST(Judgement, TellsWhatTheCameraHasInstead) {
    auto const answer = judge(all_three, asked(), {.gain_db = 6.0F, .exposure_us = 1000.0F, .period_us = 40'000});
    EXPECT_EQ(answer.status, exit_status::not_taken);
    EXPECT_THAT(answer.lines, ElementsAre("gain.db = 6", "exposure.time_us: asked for 2000, the camera has 1000",
                                          "timing.frame_rate: asked for 50, the camera has 25"));
}

TEST(Judgement, ComparesTheRegion) {
    configuration region;
    region.width = 640;
    region.height = 480;
    auto const answer = judge({{"image.width", "640"}, {"image.height", "480"}}, region,
                              {.gain_db = {}, .exposure_us = {}, .period_us = 0, .width = 640, .height = 464});
    EXPECT_EQ(answer.status, exit_status::not_taken);
    EXPECT_THAT(answer.lines, ElementsAre("image.width = 640", "image.height: asked for 480, the camera has 464"));
}

TEST(Judgement, DoesNotTakeAnUnknownValueForTheRightOne) {
    auto const answer = judge(all_three, asked(), {});
    EXPECT_EQ(answer.status, exit_status::not_taken);
    EXPECT_THAT(answer.lines[0], HasSubstr("what the camera has can't be read"));
}

TEST(Judgement, SaysWhereNothingIsReported) {
    auto const answer = judge({{"auto.area", "true"}}, asked(), {});
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_THAT(answer.lines, ElementsAre("auto.area = true, applied; what the camera has is not reported"));
}

TEST(ChangeWhileRunning, IsAnsweredWhenThePluginHasAppliedIt) {
    configuration_store configurations{asked()};
    change_confirmation confirmation;
    signal_latch latch;
    auto plugin = std::async(std::launch::async, [&] { play_plugin(configurations, confirmation); });
    auto const answer = change_while_running({.settings = {{"timing.frame_rate", "50"}}, .timeout_s = 30.0},
                                             configurations, confirmation, latch);
    plugin.get();
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_TRUE(latch.reload_pending());
}

TEST(ChangeWhileRunning, RaisesNoReloadForASmallChange) {
    configuration_store configurations{asked()};
    change_confirmation confirmation;
    signal_latch latch;
    auto plugin = std::async(std::launch::async, [&] { play_plugin(configurations, confirmation); });
    auto const answer = change_while_running({.settings = {{"auto.area", "true"}}, .timeout_s = 30.0}, configurations,
                                             confirmation, latch);
    plugin.get();
    EXPECT_EQ(answer.status, exit_status::success);
    EXPECT_FALSE(latch.reload_pending());
}

TEST(ChangeWhileRunning, SaysHowFarItGotWhenTheTimeIsOver) {
    configuration_store configurations{asked()};
    change_confirmation confirmation;
    signal_latch latch;
    change_request const wanted{.settings = {{"auto.area", "true"}}, .timeout_s = 0.001};
    auto answer = change_while_running(wanted, configurations, confirmation, latch);
    EXPECT_EQ(answer.status, exit_status::timed_out);
    EXPECT_THAT(answer.lines, ElementsAre(HasSubstr("not applied within 0.001 s")));
    confirmation.taken(1'000, 7);
    answer = change_while_running(wanted, configurations, confirmation, latch);
    EXPECT_EQ(answer.status, exit_status::timed_out);
    EXPECT_THAT(answer.lines, ElementsAre(HasSubstr("applied, but no frame came within 0.001 s")));
}
