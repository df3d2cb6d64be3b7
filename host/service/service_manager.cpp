// SPDX-License-Identifier: MIT
#include "service/service_manager.hpp"

#include <fmt/format.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace mediagrabber {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds max_interval{5000};  ///< of status lines
constexpr milliseconds min_interval{50};

/// A quarter of the watchdog timeout: systemd recommends at most half.
milliseconds interval_for_watchdog() {
    constexpr std::uint64_t us_per_ms = 1000;
    constexpr std::uint64_t share = 4;
    std::uint64_t timeout_us = 0;
    if (sd_watchdog_enabled(0, &timeout_us) <= 0) {
        return max_interval;
    }
    return std::clamp(milliseconds(timeout_us / us_per_ms / share), min_interval, max_interval);
}

/// \return null if this process is not a service of systemd
service_manager::notifier systemd_notifier() {
    if (std::getenv("NOTIFY_SOCKET") == nullptr) {
        return nullptr;
    }
    return [](std::string const& what) { sd_notify(0, what.c_str()); };
}

}  // namespace

service_manager::service_manager(grab_progress const& progress, std::function<std::string()> describe)
    : service_manager(progress, std::move(describe), interval_for_watchdog(), systemd_notifier()) {}

service_manager::service_manager(grab_progress const& progress, std::function<std::string()> describe,
                                 milliseconds interval, notifier notify)
    : progress_(progress), describe_(std::move(describe)), notify_(std::move(notify)) {
    if (notify_) {
        thread_ = std::jthread([this, interval](std::stop_token const& stop) { run(stop, interval); });
    }
}

service_manager::~service_manager() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
        notify_("STOPPING=1");
    }
}

void service_manager::run(std::stop_token const& stop, milliseconds interval) {
    std::unique_lock lock(mutex_);
    std::uint64_t seen = 0;
    std::uint64_t retries = 0;
    notify_("STATUS=waiting for the camera");
    auto next_line = std::chrono::steady_clock::now();
    while (!changed_.wait_for(lock, stop, interval, [] { return false; }) && !stop.stop_requested()) {
        std::uint64_t const frames = progress_.good_frames;
        std::uint64_t const retries_now = progress_.retries;
        if (frames != seen) {
            notify_(seen == 0 ? "READY=1\nWATCHDOG=1" : "WATCHDOG=1");
            seen = frames;
        } else if (seen != 0 && (progress_.waits_for_retry || retries_now != retries)) {
            notify_("WATCHDOG=1");
        }
        retries = retries_now;
        auto const now = std::chrono::steady_clock::now();
        if (seen != 0 && now >= next_line) {
            notify_(fmt::format("STATUS={}", describe_()));
            next_line = now + max_interval;
        }
    }
}

}  // namespace mediagrabber
