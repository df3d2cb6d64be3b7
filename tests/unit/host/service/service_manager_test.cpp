// SPDX-License-Identifier: MIT
#include "service/service_manager.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

using namespace mediagrabber;
using namespace std::chrono_literals;
using testing::ElementsAre;

namespace {

/// Collects notifications, and waits for one.
class notifications {
public:
    void add(std::string const& what) {
        std::lock_guard const lock(mutex_);
        all_.push_back(what);
        changed_.notify_all();
    }
    void wait_for(std::string const& what) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, 60s, [&] { return std::ranges::find(all_, what) != all_.end(); })) << what;
    }
    std::vector<std::string> all() {
        std::lock_guard const lock(mutex_);
        return all_;
    }
    long count(std::string const& what) {
        std::lock_guard const lock(mutex_);
        return std::ranges::count(all_, what);
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> all_;
};

struct ServiceManager : testing::Test {
    grab_progress progress;
    notifications received;

    service_manager make() {
        return service_manager(
            progress, [] { return std::string("7 frames"); }, 1ms,
            [this](std::string const& what) { received.add(what); });
    }
};

}  // namespace

TEST_F(ServiceManager, ReportsReadyWithTheFirstFrame) {
    auto const manager = make();
    received.wait_for("STATUS=waiting for the camera");
    EXPECT_EQ(received.count("READY=1\nWATCHDOG=1"), 0);
    progress.good_frames = 1;
    received.wait_for("READY=1\nWATCHDOG=1");
    received.wait_for("STATUS=7 frames");
}

TEST_F(ServiceManager, IsNotifiedOfFramesOnly) {
    auto const manager = make();
    progress.good_frames = 1;
    received.wait_for("READY=1\nWATCHDOG=1");
    progress.empty_fetches = 100;
    progress.good_frames = 2;
    received.wait_for("WATCHDOG=1");
    EXPECT_EQ(received.count("WATCHDOG=1"), 1);
}

TEST_F(ServiceManager, IsAliveWhileItWaitsForALostCamera) {
    auto const manager = make();
    progress.good_frames = 1;
    received.wait_for("READY=1\nWATCHDOG=1");
    progress.waits_for_retry = true;
    received.wait_for("WATCHDOG=1");
    progress.waits_for_retry = false;
}

TEST_F(ServiceManager, IsAliveAfterAWaitThatEndedBetweenTwoChecks) {
    auto const manager = make();
    progress.good_frames = 1;
    received.wait_for("READY=1\nWATCHDOG=1");
    ++progress.retries;
    received.wait_for("WATCHDOG=1");
    EXPECT_EQ(received.count("WATCHDOG=1"), 1);
}

TEST_F(ServiceManager, ReportsTheEndOfTheRecording) {
    {
        auto const manager = make();
        received.wait_for("STATUS=waiting for the camera");
    }
    EXPECT_EQ(received.all().back(), "STOPPING=1");
}

TEST_F(ServiceManager, DoesNothingWithoutANotifier) {
    service_manager const manager(
        progress, [] { return std::string(); }, 1ms, nullptr);
}
