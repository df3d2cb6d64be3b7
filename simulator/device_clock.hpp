#pragma once

#include <chrono>
#include <cstdint>

namespace camsim {

/// Time since power-up as the camera's oscillator counts it.
using camera_time = std::chrono::duration<long double, std::nano>;

/// What is wrong with a timestamp counter.
struct counter_error {
    double ahead_s = 0.0;  ///< behind when negative
    unsigned bits = 64;    ///< that it has
};

/// The camera's oscillator and its timestamp counter.
///
/// The oscillator runs (1 + drift_ppm / 1e6) times as fast as the host's monotonic clock; frame periods and timestamps
/// both come from it, as they do in a camera. The counter can be reset, the oscillator cannot. Time points of the host
/// come in as arguments, so that a test needs no waiting. A long double holds 64 bits of a nanosecond count: exact for
/// centuries.
class device_clock {
public:
    using host_time = std::chrono::steady_clock::time_point;

    device_clock(host_time power_up, std::uint64_t tick_frequency, double drift_ppm, std::uint64_t first_tick);

    camera_time at(host_time host) const;
    host_time host_at(camera_time time) const;
    std::uint64_t ticks_at(camera_time time) const;
    void reset_counter(camera_time now);
    void falsify_counter(counter_error const& error);

    host_time power_up() const { return power_up_; }
    std::uint64_t tick_frequency() const { return tick_frequency_; }

private:
    host_time power_up_;
    std::uint64_t tick_frequency_;  ///< nominal, in Hz
    long double rate_;              ///< camera seconds in a second of the host
    camera_time counter_origin_{0};
    std::uint64_t counter_start_;
    counter_error error_;
};

}  // namespace camsim
