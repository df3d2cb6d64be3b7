// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace camsim {

/// \return by how much the real-time clock is ahead of the monotonic clock at present
inline std::chrono::nanoseconds utc_offset() {
    auto const real = std::chrono::system_clock::now().time_since_epoch();
    auto const monotonic = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(real - monotonic);
}

}  // namespace camsim
