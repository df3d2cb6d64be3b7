#pragma once

#include <cstdint>
#include <span>

namespace mediagrabber {

/// What the plug-in published with a frame: the camera's timestamp, and the timestamp announced for the next frame.
struct announced_ticks {
    std::uint64_t ticks = 0;
    std::uint64_t announced_us = 0;
};

/// Ticks that the camera calls a second.
struct tick_frequency {
    double hz = 0.0;
    double relative_uncertainty = 0.0;  ///< 0 where it is taken for exact
};

/// Tells a camera's tick frequency from a run in camera time, in which announced timestamps advance by the camera's own
/// microseconds: no host function carries the frequency itself. Where the plug-in sets its time base anew they jump;
/// jumps are left out. A round frequency that agrees is taken for the exact one.
///
/// \throws std::runtime_error with a message for the operator when it can't be told
tick_frequency find_tick_frequency(std::span<announced_ticks const> frames);

}  // namespace mediagrabber
