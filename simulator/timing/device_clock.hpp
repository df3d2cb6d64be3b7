// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace camsim {

/// Time since power-up, measured by the camera's oscillator. A long double has 64 bits of mantissa or more, so
/// nanoseconds are exact for centuries. Calculations divide by powers of ten, which are exact; factors such as 1e-9 are
/// not, and are rounded in another way on each architecture.
using camera_time = std::chrono::duration<long double, std::nano>;

/// An error of the timestamp counter, injected by a fault.
struct counter_error {
    double offset_s = 0.0;  ///< added to the counter
    unsigned bits = 64;     ///< width of the counter
};

/// The camera's oscillator and its timestamp counter.
///
/// The oscillator runs (1 + drift_ppm / 1e6) times as fast as the host's monotonic clock. Frame periods and timestamps
/// both come from it, as in a camera. The counter can be reset, the oscillator cannot. Times of the host are arguments,
/// so that tests need not wait. Not synchronised; part of camera_state.
class device_clock {
public:
    using host_time = std::chrono::steady_clock::time_point;

    /// \param tick_frequency nominal, in Hz
    /// \param first_tick counter value at power-up
    device_clock(host_time power_up, std::uint64_t tick_frequency, double drift_ppm, std::uint64_t first_tick);

    camera_time at(host_time host) const;
    host_time host_at(camera_time time) const;

    /// \return the counter's value at `time`. The counter wraps; times before its last reset give values before 0.
    std::uint64_t ticks_at(camera_time time) const;

    /// Has no effect while the counter follows another clock.
    void reset_counter(camera_time now);

    /// From now on the counter shows the time of another clock, as with IEEE 1588. The oscillator is not disciplined.
    /// \param ahead  returns by how much the other clock is ahead of the host's monotonic clock; null: the counter
    ///               counts the oscillator again
    void follow(std::function<std::chrono::nanoseconds()> ahead, camera_time now);
    bool is_following() const { return ahead_ != nullptr; }

    /// Falsifies the counter from now on, but not the oscillator and thus not the frame period.
    void set_counter_error(counter_error const& error);

    host_time power_up() const { return power_up_; }
    std::uint64_t tick_frequency() const { return tick_frequency_; }

private:
    std::uint64_t counter_at(camera_time time) const;

    host_time power_up_;
    std::uint64_t tick_frequency_;
    long double drift_ppm_;
    camera_time counter_origin_{0};
    std::uint64_t counter_start_;
    std::function<std::chrono::nanoseconds()> ahead_;
    counter_error error_;
};

}  // namespace camsim
