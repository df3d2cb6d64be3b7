// SPDX-License-Identifier: MIT
#include "session/signal_watch.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <string>

using namespace mediagrabber;
using namespace std::chrono_literals;

namespace {

constexpr auto long_enough = 30s;

template <typename condition>
bool soon(condition&& holds) {
    auto const deadline = std::chrono::steady_clock::now() + long_enough;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

/// A watch over this process's signals, and the actions that it called.
class SignalWatch : public testing::Test {
protected:
    SignalWatch() { signal_watch::block_signals(); }

    signal_watch watch(std::chrono::duration<double> grace) {
        return {latch,
                progress,
                grace,
                {.reload = [this] { ++reloads; },
                 .trigger = [this] { ++triggers; },
                 .exit_without_plugin =
                     [this](char const* why) {
                         latch.run_ended();
                         reason = why;
                         ++exits;
                     }}};
    }

    signal_latch latch;
    grab_progress progress;
    std::atomic<int> reloads{0};
    std::atomic<int> triggers{0};
    std::atomic<int> exits{0};
    std::string reason;
};

}  // namespace

TEST_F(SignalWatch, LatchesEverySignalAsItsRequest) {
    std::pair<int, signal_code> const pairs[] = {{SIGTERM, signal_code::stop},
                                                 {SIGINT, signal_code::stop_second_kind},
                                                 {SIGHUP, signal_code::reload},
                                                 {SIGUSR1, signal_code::user_1},
                                                 {SIGUSR2, signal_code::user_2}};
    for (auto const& [number, expected] : pairs) {
        signal_latch fresh;
        signal_watch const watching(fresh, progress, 1h,
                                    {.reload = [] {}, .trigger = [] {}, .exit_without_plugin = [](char const*) {}});
        kill(getpid(), number);
        EXPECT_TRUE(soon([&, wanted = expected] { return fresh.poll() == wanted; })) << number;
    }
}

TEST_F(SignalWatch, ReadsTheConfigurationBeforeItLatchesAReload) {
    std::atomic<bool> latched_before{false};
    signal_watch const watching(latch, progress, 1h,
                                {.reload =
                                     [&] {
                                         latched_before = latch.reload_pending();
                                         ++reloads;
                                     },
                                 .trigger = [] {},
                                 .exit_without_plugin = [](char const*) {}});
    kill(getpid(), SIGHUP);
    EXPECT_TRUE(soon([&] { return latch.reload_pending(); }));
    EXPECT_EQ(reloads, 1);
    EXPECT_FALSE(latched_before);
}

TEST_F(SignalWatch, SurvivesActionsThatFail) {
    signal_watch const watching(latch, progress, 1h,
                                {.reload = [] { throw std::runtime_error("no"); },
                                 .trigger = [] { throw std::runtime_error("no"); },
                                 .exit_without_plugin = [](char const*) {}});
    kill(getpid(), pretrigger_signal());
    kill(getpid(), SIGHUP);
    EXPECT_TRUE(soon([&] { return latch.reload_pending(); }));
    kill(getpid(), SIGTERM);
    EXPECT_TRUE(soon([&] { return watching.stop_requested(); }));
}

TEST_F(SignalWatch, CallsTheTriggerAction) {
    auto const watching = watch(1h);
    kill(getpid(), pretrigger_signal());
    EXPECT_TRUE(soon([&] { return triggers == 1; }));
    EXPECT_EQ(latch.poll(), signal_code::none);
}

TEST_F(SignalWatch, EndsAWaitOnAStop) {
    auto watching = watch(1h);
    EXPECT_FALSE(watching.stop_requested());
    kill(getpid(), SIGINT);
    EXPECT_TRUE(watching.wait_for_stop_or_reload(long_enough));
    EXPECT_TRUE(watching.stop_requested());
    EXPECT_EQ(exits, 0);
}

TEST_F(SignalWatch, EndsAWaitOnAReload) {
    auto watching = watch(1h);
    kill(getpid(), SIGHUP);
    EXPECT_TRUE(watching.wait_for_stop_or_reload(long_enough));
    EXPECT_FALSE(watching.stop_requested());
}

TEST_F(SignalWatch, EndsAWaitAtItsTimeout) {
    auto watching = watch(1h);
    EXPECT_FALSE(watching.wait_for_stop_or_reload(1ms));
}

TEST_F(SignalWatch, ExitsWithoutThePluginOnASecondStop) {
    auto const watching = watch(1h);
    kill(getpid(), SIGTERM);
    ASSERT_TRUE(soon([&] { return watching.stop_requested(); }));
    EXPECT_EQ(exits, 0);
    kill(getpid(), SIGTERM);
    ASSERT_TRUE(soon([&] { return exits == 1; }));
    EXPECT_EQ(reason, "stop requested twice");
}

TEST_F(SignalWatch, ExitsWithoutThePluginAfterTheGraceTime) {
    auto const watching = watch(1ms);
    kill(getpid(), SIGTERM);
    ASSERT_TRUE(soon([&] { return exits == 1; }));
    EXPECT_EQ(reason, "the plug-in did not stop within the grace time");
}
