#include "device_clock.hpp"

#include <cmath>

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

/// The counter is 64 bits wide and wraps; a time before its last reset counts backwards from there, as the wrap has it.
std::uint64_t device_clock::ticks_at(camera_time time) const {
    long double const ticks =
        std::floor((time - counter_origin_).count() * static_cast<long double>(tick_frequency_) * 1e-9L);
    auto const ahead = static_cast<std::int64_t>(error_.ahead_s * static_cast<double>(tick_frequency_));
    std::uint64_t const all = ~std::uint64_t{0} >> (64 - error_.bits);
    return (counter_start_ + static_cast<std::uint64_t>(static_cast<std::int64_t>(ticks)) +
            static_cast<std::uint64_t>(ahead)) &
           all;
}

/// What the counter shows is wrong from now on; the oscillator, and so the frame period, is not.
void device_clock::falsify_counter(counter_error const& error) {
    error_ = error;
}

void device_clock::reset_counter(camera_time now) {
    counter_origin_ = now;
    counter_start_ = 0;
}

}  // namespace camsim
