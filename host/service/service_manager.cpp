#include "service/service_manager.hpp"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace mediagrabber {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds longest_interval{5000};
constexpr milliseconds shortest_interval{50};

/// A few times within what the watchdog waits for.
milliseconds interval_for_watchdog() {
    constexpr std::uint64_t us_per_ms = 1000;
    constexpr std::uint64_t share = 4;
    std::uint64_t patience_us = 0;
    if (sd_watchdog_enabled(0, &patience_us) <= 0) {
        return longest_interval;
    }
    return std::clamp(milliseconds(patience_us / us_per_ms / share), shortest_interval, longest_interval);
}

/// \return nothing when no service manager started this process
service_manager::tell teller() {
    if (std::getenv("NOTIFY_SOCKET") == nullptr) {
        return nullptr;
    }
    return [](std::string const& what) { sd_notify(0, what.c_str()); };
}

}  // namespace

service_manager::service_manager(grab_progress const& progress, std::function<std::string()> describe)
    : service_manager(progress, std::move(describe), interval_for_watchdog(), teller()) {}

service_manager::service_manager(grab_progress const& progress, std::function<std::string()> describe,
                                 milliseconds interval, tell say)
    : progress_(progress), describe_(std::move(describe)), say_(std::move(say)) {
    if (say_) {
        thread_ = std::jthread([this, interval](std::stop_token const& stop) { run(stop, interval); });
    }
}

service_manager::~service_manager() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
        say_("STOPPING=1");
    }
}

void service_manager::run(std::stop_token const& stop, milliseconds interval) {
    std::unique_lock lock(mutex_);
    std::uint64_t seen = 0;
    say_("STATUS=waiting for the camera");
    auto next_line = std::chrono::steady_clock::now();
    while (!changed_.wait_for(lock, stop, interval, [] { return false; }) && !stop.stop_requested()) {
        std::uint64_t const frames = progress_.good_frames;
        if (frames != seen) {
            say_(seen == 0 ? "READY=1\nWATCHDOG=1" : "WATCHDOG=1");
            seen = frames;
        }
        auto const now = std::chrono::steady_clock::now();
        if (seen != 0 && now >= next_line) {
            say_("STATUS=" + describe_());
            next_line = now + longest_interval;
        }
    }
}

}  // namespace mediagrabber
