// SPDX-License-Identifier: MIT
#include "session/restart_policy.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;
using enum run_decision::step;

namespace {

constexpr std::int32_t all_exit_codes[] = {0, 1, 2, 3, -1, -2, -5, -10, 77};

run_outcome ended_with(std::int32_t exit_code) {
    return {.exit_code = exit_code};
}

}  // namespace

TEST(ExitStatus, HasTheDocumentedValues) {
    EXPECT_EQ(static_cast<int>(exit_status::success), 0);
    EXPECT_EQ(static_cast<int>(exit_status::frames_lost), 1);
    EXPECT_EQ(static_cast<int>(exit_status::usage), 2);
    EXPECT_EQ(static_cast<int>(exit_status::no_camera), 3);
    EXPECT_EQ(static_cast<int>(exit_status::run_failed), 4);
    EXPECT_EQ(static_cast<int>(exit_status::unresponsive), 5);
}

TEST(RestartPolicy, SucceedsAfterAStopWhateverTheExitCode) {
    for (std::int32_t const code : all_exit_codes) {
        auto const decision = restart_policy(0).decide({.exit_code = code, .stop_requested = true});
        EXPECT_EQ(decision.next, end) << code;
        EXPECT_EQ(decision.status, exit_status::success) << code;
        EXPECT_STREQ(decision.reason, "") << code;
    }
}

TEST(RestartPolicy, SucceedsWithAllFramesWhateverTheExitCode) {
    for (std::int32_t const code : all_exit_codes) {
        auto const decision = restart_policy(0).decide({.exit_code = code, .frames_complete = true});
        EXPECT_EQ(decision.next, end) << code;
        EXPECT_EQ(decision.status, exit_status::success) << code;
    }
}

TEST(RestartPolicy, RestartsImmediatelyForANewConfiguration) {
    restart_policy policy(0);
    for (int i = 0; i < 10; ++i) {
        auto const decision = policy.decide({.exit_code = 0, .new_configuration = true});
        EXPECT_EQ(decision.next, run_again);
        EXPECT_STREQ(decision.reason, "");
    }
}

TEST(RestartPolicy, TreatsAFailureDuringAReloadAsAFailure) {
    auto const decision = restart_policy(0).decide({.exit_code = -2, .new_configuration = true});
    EXPECT_EQ(decision.next, end);
    EXPECT_EQ(decision.status, exit_status::run_failed);
}

TEST(RestartPolicy, GivesUpAfterTheConfiguredAttempts) {
    restart_policy policy(2);
    EXPECT_EQ(policy.decide(ended_with(-10)).next, wait_and_run_again);
    EXPECT_EQ(policy.decide(ended_with(-10)).next, wait_and_run_again);
    auto const last = policy.decide(ended_with(-10));
    EXPECT_EQ(last.next, end);
    EXPECT_EQ(last.status, exit_status::run_failed);
}

TEST(RestartPolicy, ResetsItsCountAfterAFrame) {
    restart_policy policy(1);
    EXPECT_EQ(policy.decide(ended_with(-10)).next, wait_and_run_again);
    EXPECT_EQ(policy.decide({.exit_code = -10, .frames_arrived = true}).next, wait_and_run_again);
    EXPECT_EQ(policy.decide(ended_with(-10)).next, end);
}

TEST(RestartPolicy, NeverGivesUpWithoutALimit) {
    restart_policy policy(std::nullopt);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(policy.decide(ended_with(2)).next, wait_and_run_again);
    }
}

TEST(RestartPolicy, GivesUpImmediatelyIfTheConfigurationIsRefused) {
    for (std::int32_t const code : {-1, -2}) {
        auto const decision = restart_policy(std::nullopt).decide(ended_with(code));
        EXPECT_EQ(decision.next, end) << code;
        EXPECT_EQ(decision.status, exit_status::run_failed) << code;
    }
}

TEST(RestartPolicy, RestartsWithAConfigurationThatHasWorked) {
    for (std::int32_t const code : {-1, -2}) {
        restart_policy policy(1);
        EXPECT_EQ(policy.decide({.exit_code = code, .has_worked = true}).next, wait_and_run_again) << code;
        EXPECT_EQ(policy.decide({.exit_code = code, .has_worked = true}).next, end) << code;
    }
}

TEST(RestartPolicy, DistinguishesAMissingCameraFromAFailure) {
    EXPECT_EQ(restart_policy(0).decide(ended_with(2)).status, exit_status::no_camera);
    EXPECT_EQ(restart_policy(0).decide(ended_with(3)).status, exit_status::no_camera);
    for (std::int32_t const code : {0, 1, -5, -10, 77}) {
        EXPECT_EQ(restart_policy(0).decide(ended_with(code)).status, exit_status::run_failed) << code;
    }
}

TEST(RestartPolicy, ReportsTheReason) {
    EXPECT_STREQ(restart_policy(0).decide(ended_with(2)).reason, "no camera was found");
    EXPECT_STREQ(restart_policy(0).decide(ended_with(3)).reason, "the configured camera was not found");
    EXPECT_STREQ(restart_policy(0).decide(ended_with(0)).reason, "the plug-in ended its run without a stop request");
    EXPECT_STREQ(restart_policy(0).decide(ended_with(77)).reason, "the plug-in ended with an unknown exit code");
}
