// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Statistics of a recording: frame intervals, and the frames that are missing from it.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "report/recording_reader.hpp"

namespace mediagrabber {

/// Frames that are missing between two frames of a recording.
struct loss {
    double at_s = 0;                ///< time of the frame after the loss, from the first frame
    std::uint64_t in_host = 0;      ///< handed over to the host and dropped there: a gap in the frame numbers
    std::uint64_t before_host = 0;  ///< exposed and never handed over: a gap in the camera's exposure counter
};

struct interval_figures {
    double min_us = 0;
    double median_us = 0;
    double p99_us = 0;  ///< 99th percentile
    double max_us = 0;
};

struct recording_facts {
    std::size_t frames = 0;
    double duration_s = 0;  ///< from the first frame to the last
    double frames_per_s = 0;
    std::vector<double> intervals_us;  ///< between consecutive frames without a loss between them, ascending
    interval_figures interval;
    std::vector<loss> losses;
    std::optional<double> time_uncertainty_us;  ///< median of the frames with an exposure time
    std::string time_source;                    ///< of the last one
    std::optional<double> clock_drift_ppm;      ///< at the last one
    std::vector<double> restarts_s;             ///< times at which the camera's exposure counter was reset
    std::uint64_t lost_in_host = 0;
    std::uint64_t lost_before_host = 0;
};

/// \param frames  in the order of the frame index
recording_facts facts_of(std::span<index_entry const> frames);

}  // namespace mediagrabber
