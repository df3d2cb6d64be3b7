// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <optional>
#include <ostream>

#include "base/exit_status.hpp"

namespace mediagrabber {

struct calibrate_options {
    std::filesystem::path configuration;  ///< empty: the first camera with its present settings
    std::filesystem::path plugin;         ///< empty: the default plug-in
    double seconds = 60.0;
    std::optional<double> tick_hz;  ///< timestamp tick frequency, Hz; nothing: measured
};

/// `mediagrabber calibrate`: measures how much slower the camera clock runs than the host clock, and prints the result
/// as a line of a configuration. Frames are grabbed with camera timestamps and not saved. \throws std::exception with a
/// message for the user
exit_status calibrate_command(calibrate_options const& options, std::ostream& out);

}  // namespace mediagrabber
