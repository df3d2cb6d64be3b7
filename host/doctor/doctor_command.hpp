#pragma once

#include <filesystem>
#include <ostream>
#include <string>

#include "exit_status.hpp"

namespace mediagrabber {

struct doctor_options {
    std::filesystem::path configuration;  ///< empty: a gigabit line's worth of frames
    std::string interface;                ///< empty: all of them
    std::filesystem::path directory;      ///< where the recording would go; empty: the configuration's, or here
    std::filesystem::path root = "/";     ///< where the files of /proc and /sys are found
};

/// `mediagrabber doctor`: says what of this machine would lose frames, and how it is mended.
/// \return whether nothing is bad \throws std::exception with a message for the operator
exit_status doctor_command(doctor_options const& options, std::ostream& out);

}  // namespace mediagrabber
