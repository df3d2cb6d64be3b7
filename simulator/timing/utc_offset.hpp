// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace camsim {

/// A thread that loses the processor between two readings makes an error of many microseconds, so the closest readings
/// of a few are used.
/// \param monotonic,real  return the present times of two clocks
/// \return by how much the second clock is ahead of the first one
template <typename first_clock, typename second_clock>
std::chrono::nanoseconds offset_between(first_clock&& monotonic, second_clock&& real) {
    using std::chrono::nanoseconds;
    constexpr int attempts = 4;
    constexpr nanoseconds close_enough(500);
    nanoseconds offset(0);
    auto shortest = nanoseconds::max();
    for (int i = 0; i < attempts && shortest > close_enough; ++i) {
        nanoseconds const before = monotonic();
        nanoseconds const other = real();
        nanoseconds const duration = monotonic() - before;
        if (duration < shortest) {
            shortest = duration;
            offset = other - before - duration / 2;
        }
    }
    return offset;
}

/// \return by how much the real-time clock is ahead of the monotonic clock at present
inline std::chrono::nanoseconds utc_offset() {
    return offset_between([] { return std::chrono::steady_clock::now().time_since_epoch(); },
                          [] { return std::chrono::system_clock::now().time_since_epoch(); });
}

}  // namespace camsim
