// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <ostream>
#include <string>

#include "base/exit_status.hpp"

namespace mediagrabber {

struct doctor_options {
    std::filesystem::path configuration;  ///< empty: assume the data rate of a gigabit link
    std::string interface;                ///< empty: all
    std::filesystem::path directory;      ///< for the recording; empty: as configured
    bool json = false;                    ///< print the findings as JSON
    std::filesystem::path plan;           ///< directory for the files of fix_plan(); empty: none
    std::filesystem::path root = "/";     ///< the directory that contains proc and sys
};

/// `mediagrabber doctor`: checks this machine for settings that cause frame loss, and suggests fixes.
/// \throws std::exception with a message for the user
exit_status doctor_command(doctor_options const& options, std::ostream& out);

}  // namespace mediagrabber
