// SPDX-License-Identifier: MIT
#pragma once
#include <array>
#include <cstdint>

namespace Vorn::Support::MediaGrabber::Jai {

/// The last 20 durations of one activity, which the loop prints at its end. An aggregate without a constructor, so that
/// static objects are zero-initialised at load time.
struct profile_ring {
    std::array<uint32_t, 20> durations;  ///< in microseconds
    uint32_t currPos;                    ///< index of the next duration

    /// Replaces the oldest duration.
    void add(uint32_t microseconds) {
        durations[currPos] = microseconds;
        currPos = (currPos + 1) % static_cast<uint32_t>(durations.size());
    }
};

}  // namespace Vorn::Support::MediaGrabber::Jai
