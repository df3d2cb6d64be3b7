#pragma once
/// \file
/// What a recording's journal says of its frames' times and of the frames that are not there.

#include <cstdint>
#include <span>
#include <vector>

#include "report/recording_reader.hpp"

namespace mediagrabber {

/// Frames that are not in a recording, between two that are.
struct loss {
    double at_s = 0;                ///< after the first frame
    std::uint64_t in_host = 0;      ///< handed over, and not written: numbers are missing
    std::uint64_t before_host = 0;  ///< exposed, and never handed over: the camera's counter went on
};

struct interval_figures {
    double least_us = 0;
    double median_us = 0;
    double p99_us = 0;
    double most_us = 0;
};

struct recording_facts {
    std::size_t frames = 0;
    double duration_s = 0;  ///< from the first frame to the last one
    double frames_per_s = 0;
    std::vector<double> intervals_us;  ///< between frames with none missing between them, in ascending order
    interval_figures interval;
    std::vector<loss> losses;
    std::vector<double> restarts_s;  ///< where the camera began to count anew
    std::uint64_t lost_in_host = 0;
    std::uint64_t lost_before_host = 0;
};

recording_facts facts_of(std::span<journal_entry const> frames);

}  // namespace mediagrabber
