// SPDX-License-Identifier: MIT
#include "timing/device_clock.hpp"

#include <cmath>
#include <utility>

namespace camsim {

namespace {

constexpr long double million = 1e6L;
constexpr long double ns_per_s = 1e9L;

}  // namespace

device_clock::device_clock(host_time power_up, std::uint64_t tick_frequency, double drift_ppm, std::uint64_t first_tick)
    : power_up_(power_up), tick_frequency_(tick_frequency), drift_ppm_(drift_ppm), counter_start_(first_tick) {}

camera_time device_clock::at(host_time host) const {
    camera_time const nominal = host - power_up_;
    return nominal + nominal * drift_ppm_ / million;
}

device_clock::host_time device_clock::host_at(camera_time time) const {
    return power_up_ + std::chrono::round<host_time::duration>(time - time * drift_ppm_ / (million + drift_ppm_));
}

/// \return the counter's value without error
std::uint64_t device_clock::counter_at(camera_time time) const {
    // The rest of a second times the frequency is exact, however many seconds have passed.
    auto const ticks = [this](long double ns) {
        long double const seconds = std::floor(ns / ns_per_s);
        long double const rest = ns - seconds * ns_per_s;
        long double const of_rest = std::floor(rest * static_cast<long double>(tick_frequency_) / ns_per_s);
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(seconds)) * tick_frequency_ +
               static_cast<std::uint64_t>(static_cast<std::int64_t>(of_rest));
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
