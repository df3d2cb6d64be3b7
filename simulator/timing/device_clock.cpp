// SPDX-License-Identifier: MIT
#include "timing/device_clock.hpp"

#include <cmath>
#include <utility>

namespace camsim {

device_clock::device_clock(host_time power_up, std::uint64_t tick_frequency, double drift_ppm, std::uint64_t first_tick)
    : power_up_(power_up),
      tick_frequency_(tick_frequency),
      rate_(1.0L + static_cast<long double>(drift_ppm) * 1e-6L),
      counter_start_(first_tick) {}

camera_time device_clock::at(host_time host) const {
    return camera_time(host - power_up_) * rate_;
}

device_clock::host_time device_clock::host_at(camera_time time) const {
    return power_up_ + std::chrono::duration_cast<host_time::duration>(time / rate_);
}

/// \return the counter's value without error
std::uint64_t device_clock::counter_at(camera_time time) const {
    auto const ticks = [this](long double ns) {
        return static_cast<std::uint64_t>(
            static_cast<std::int64_t>(std::floor(ns * static_cast<long double>(tick_frequency_) * 1e-9L)));
    };
    if (ahead_) {
        return ticks(static_cast<long double>((host_at(time).time_since_epoch() + ahead_()).count()));
    }
    return counter_start_ + ticks((time - counter_origin_).count());
}

std::uint64_t device_clock::ticks_at(camera_time time) const {
    auto const offset = static_cast<std::int64_t>(error_.offset_s * static_cast<double>(tick_frequency_));
    std::uint64_t const mask = ~std::uint64_t{0} >> (64 - error_.bits);
    return (counter_at(time) + static_cast<std::uint64_t>(offset)) & mask;
}

void device_clock::set_counter_error(counter_error const& error) {
    error_ = error;
}

void device_clock::reset_counter(camera_time now) {
    if (!is_following()) {
        counter_origin_ = now;
        counter_start_ = 0;
    }
}

void device_clock::follow(std::function<std::chrono::nanoseconds()> ahead, camera_time now) {
    counter_start_ = counter_at(now);
    counter_origin_ = now;
    ahead_ = std::move(ahead);
}

}  // namespace camsim
