// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Comparison of two clocks by timed readings.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace gevctl {

/// A reading of the camera's clock, and this machine's time before and after it.
struct clock_reading {
    std::int64_t before_ns = 0;
    std::int64_t after_ns = 0;
    std::int64_t camera_ns = 0;
};

/// What the readings show, as NTP evaluates them: the camera's clock was read between `before` and `after`, so the
/// offset is that of the middle, with half a round trip of uncertainty.
struct clock_comparison {
    std::int64_t offset_ns = 0;       ///< camera minus machine, of the reading with the shortest round trip
    std::int64_t uncertainty_ns = 0;  ///< of the offset
    std::int64_t at_ns = 0;           ///< machine time of that reading
    double drift_ppb = 0;             ///< positive: the camera's clock is faster
    double drift_uncertainty_ppb = 0;
};

/// \param readings at least two, in order of time. The drift is that between the best readings of the first and of the
///     last quarter.
clock_comparison compare_clocks(std::vector<clock_reading> const& readings);

/// \param unit of a timestamp feature in the GenICam XML
/// \return what the feature counts per second, Hz; null for ticks, whose frequency the camera has in a register
std::optional<std::uint64_t> frequency_of_unit(std::string_view unit);

/// \return the ticks that a camera's counter of this frequency shows at `ns`
/// \param frequency Hz
std::uint64_t ns_to_ticks(std::int64_t ns, std::uint64_t frequency);

/// \return ticks in nanoseconds
/// \param frequency Hz, not 0
std::int64_t ticks_to_ns(std::uint64_t ticks, std::uint64_t frequency);

}  // namespace gevctl
