#pragma once
#include <array>
#include <cstdint>

namespace Vorn::Support::MediaGrabber::Jai {

/// The last 20 durations of one activity, in microseconds. Zero-initialised without a constructor call.
struct profile_ring {
    std::array<uint32_t, 20> durations;
    uint32_t currPos;  ///< where the next duration goes

    void add(uint32_t microseconds) {
        durations[currPos] = microseconds;
        currPos = (currPos + 1) % static_cast<uint32_t>(durations.size());
    }
};

}  // namespace Vorn::Support::MediaGrabber::Jai
