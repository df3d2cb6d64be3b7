#include "signal_watch.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
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

/// A watch over this process's signals, and what it asked for.
class SignalWatch : public testing::Test {
protected:
    SignalWatch() { signal_watch::block_signals(); }

    signal_watch watch(std::chrono::duration<double> grace) {
        return {latch,
                progress,
                grace,
                {.reload = [this] { ++reloads; },
                 .keep = [this] { ++keeps; },
                 .cut_short =
                     [this](char const* why) {
                         latch.run_ended();
                         reason = why;
                         ++cuts;
                     }}};
    }

    signal_latch latch;
    grab_progress progress;
    std::atomic<int> reloads{0};
    std::atomic<int> keeps{0};
    std::atomic<int> cuts{0};
    std::string reason;
};

}  // namespace

TEST_F(SignalWatch, LatchesEverySignalAsItsRequest) {
    std::pair<int, request> const pairs[] = {{SIGTERM, request::stop},
                                             {SIGINT, request::stop_second},
                                             {SIGHUP, request::reload},
                                             {SIGUSR1, request::user_1},
                                             {SIGUSR2, request::user_2}};
    for (auto const& [number, asked] : pairs) {
        signal_latch fresh;
        signal_watch const watching(fresh, progress, 1h,
                                    {.reload = [] {}, .keep = [] {}, .cut_short = [](char const*) {}});
        kill(getpid(), number);
        EXPECT_TRUE(soon([&, wanted = asked] { return fresh.poll() == wanted; })) << number;
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
                                 .keep = [] {},
                                 .cut_short = [](char const*) {}});
    kill(getpid(), SIGHUP);
    EXPECT_TRUE(soon([&] { return latch.reload_pending(); }));
    EXPECT_EQ(reloads, 1);
    EXPECT_FALSE(latched_before);
}

TEST_F(SignalWatch, PassesOnThatFramesAreToBeKept) {
    auto const watching = watch(1h);
    kill(getpid(), keep_signal());
    EXPECT_TRUE(soon([&] { return keeps == 1; }));
    EXPECT_EQ(latch.poll(), request::none);
}

TEST_F(SignalWatch, EndsAWaitWithAStop) {
    auto watching = watch(1h);
    EXPECT_FALSE(watching.stop_asked());
    kill(getpid(), SIGINT);
    EXPECT_TRUE(watching.wait_for_stop_or_reload(long_enough));
    EXPECT_TRUE(watching.stop_asked());
    EXPECT_EQ(cuts, 0);
}

TEST_F(SignalWatch, EndsAWaitWithAReload) {
    auto watching = watch(1h);
    kill(getpid(), SIGHUP);
    EXPECT_TRUE(watching.wait_for_stop_or_reload(long_enough));
    EXPECT_FALSE(watching.stop_asked());
}

TEST_F(SignalWatch, WaitsNoLongerThanItIsTold) {
    auto watching = watch(1h);
    EXPECT_FALSE(watching.wait_for_stop_or_reload(1ms));
}

TEST_F(SignalWatch, CutsShortAtTheSecondStop) {
    auto const watching = watch(1h);
    kill(getpid(), SIGTERM);
    ASSERT_TRUE(soon([&] { return watching.stop_asked(); }));
    EXPECT_EQ(cuts, 0);
    kill(getpid(), SIGTERM);
    ASSERT_TRUE(soon([&] { return cuts == 1; }));
    EXPECT_EQ(reason, "a stop was asked for twice");
}

TEST_F(SignalWatch, CutsShortWhenAStopIsNotAnsweredInTime) {
    auto const watching = watch(1ms);
    kill(getpid(), SIGTERM);
    ASSERT_TRUE(soon([&] { return cuts == 1; }));
    EXPECT_EQ(reason, "the plug-in did not stop within the grace time");
}
