#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "configuration.hpp"
#include "frame_record.hpp"
#include "live/log_memory.hpp"
#include "progress_report.hpp"
#include "reported_camera.hpp"

namespace mediagrabber {

/// How it stands with the broker that messages go to.
struct broker_status {
    bool connected = false;
    std::uint64_t sent = 0;     ///< messages that the broker's connection took; those that it answers: that it answered
    std::uint64_t dropped = 0;  ///< messages that were given up
};

/// How a recording goes, at one moment: what its page, its metrics and its messages tell. Counts are since its
/// beginning.
struct recording_status {
    progress_figures figures;
    double running_s = 0.0;         ///< since the beginning
    std::uint64_t good_frames = 0;  ///< that came from the camera; the first of a run is not handed over
    bool capturing = false;
    std::uint32_t period_us = 0;  ///< frame period in force, 0: not known
    std::optional<double> seconds_since_frame;
    std::optional<frame_record> newest;
    log_memory::counts said;
    std::vector<reported_camera::property> camera;
    std::string plugin_version;
    std::string directory;
    std::uint32_t instance = 0;
    configuration const* in_force = nullptr;  ///< lives as long as the recording

    std::optional<broker_status> broker;  ///< nothing: none is configured

    std::uint64_t ring_readers = 0;    ///< programs that read frames from memory now
    std::uint64_t ring_overtaken = 0;  ///< frames that were gone when they had read them, as they tell
};

}  // namespace mediagrabber
