#pragma once

#include <filesystem>
#include <optional>
#include <ostream>

#include "exit_status.hpp"

namespace mediagrabber {

struct calibrate_options {
    std::filesystem::path configuration;  ///< empty: the first camera, as it is
    std::filesystem::path plugin;         ///< empty: the one that belongs to this program
    double seconds = 60.0;
    std::optional<double> tick_hz;  ///< ticks that the camera calls a second; nothing: told from its frames
};

/// `mediagrabber calibrate`: measures how much slower the camera's clock runs than the host's, and prints it as a line
/// of a configuration. Frames are grabbed in camera time and not kept. \throws std::exception with a message for the
/// operator
exit_status calibrate_command(calibrate_options const& options, std::ostream& out);

}  // namespace mediagrabber
