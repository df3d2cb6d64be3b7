// SPDX-License-Identifier: MIT
#include "segments/recording_retention.hpp"

#include <fmt/format.h>
#include <pthread.h>
#include <sys/statvfs.h>

#include <limits>
#include <system_error>
#include <utility>

#include "base/host_log.hpp"
#include "base/thread_scheduling.hpp"
#include "segments/stored_recording.hpp"

namespace mediagrabber {

namespace fs = std::filesystem;

namespace {

/// Other programs fill the disk, too.
constexpr std::chrono::seconds interval{10};

}  // namespace

recording_retention::recording_retention(std::vector<std::string> const& configured, retention_limits limits,
                                         std::function<std::uint64_t(fs::path const&)> free_bytes)
    : places_(configured.begin(), configured.end()), limits_(limits), free_bytes_(std::move(free_bytes)) {}

std::size_t recording_retention::apply(std::chrono::system_clock::time_point now) const {
    auto const now_us =
        static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count());
    double const oldest_us = now_us - std::chrono::duration<double, std::micro>(limits_.age).count();
    std::uint64_t bytes = limits_.bytes == 0 ? 0 : bytes_of_all();
    std::size_t deleted = 0;
    for (recording_places const& places : places_) {
        places.visit_each([&](fs::path const& place) {
            if (!is_finished_recording(place)) {
                return true;
            }
            auto const extent = extent_of(place);
            bool const is_old = limits_.age.count() != 0 && static_cast<double>(extent.last_us) < oldest_us;
            if (!is_old && bytes <= limits_.bytes && free_bytes_(places.root()) >= limits_.min_free_bytes) {
                return false;
            }
            if (remove_recording(place)) {
                log_info(fmt::format("deleted {}, {:.1f} MB, because {}", place.string(),
                                     static_cast<double>(extent.bytes) / 1e6,
                                     is_old                  ? "its age exceeds output.keep_days"
                                     : bytes > limits_.bytes ? "all recordings exceed output.keep_bytes"
                                                             : "less than output.min_free_bytes is free"));
                bytes -= std::min(bytes, extent.bytes);
                ++deleted;
                std::error_code not_empty;
                for (fs::path parent = place.parent_path(); parent != places.root() && fs::remove(parent, not_empty);) {
                    parent = parent.parent_path();
                }
            }
            return true;
        });
    }
    return deleted;
}

std::uint64_t recording_retention::bytes_of_all() const {
    std::uint64_t bytes = 0;
    for (recording_places const& places : places_) {
        places.visit_each([&](fs::path const& place) {
            bytes += is_finished_recording(place) ? extent_of(place).bytes : 0;
            return true;
        });
    }
    return bytes;
}

std::uint64_t recording_retention::free_bytes_of(fs::path const& directory) {
    struct statvfs found {};
    return statvfs(directory.c_str(), &found) == 0 ? std::uint64_t{found.f_bavail} * found.f_frsize
                                                   : std::numeric_limits<std::uint64_t>::max();
}

retention_thread::retention_thread(recording_retention retention)
    : retention_(std::move(retention)), thread_([this](std::stop_token const& stop) { run(stop); }) {}

retention_thread::~retention_thread() = default;

void retention_thread::segment_finished() {
    std::lock_guard const lock(mutex_);
    finished_ = true;
    changed_.notify_all();
}

void retention_thread::run(std::stop_token const& stop) {
    schedule_as_idle();
    while (!stop.stop_requested()) {
        try {
            retention_.apply(std::chrono::system_clock::now());
        } catch (std::exception const& error) {
            log_warning(std::string("old recordings cannot be deleted: ") + error.what());
        }
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, stop, interval, [this] { return std::exchange(finished_, false); });
    }
}

}  // namespace mediagrabber
