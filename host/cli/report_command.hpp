// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <ostream>

#include "base/exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber report`: creates an HTML report of a recording.
/// \param directory  of the recording
/// \param page       file to write; empty: report.html in the directory
/// \param json       print the figures of the recording as JSON instead of the page's name
/// \param errors     receives a line for each thumbnail that cannot be created
/// \throws std::exception with a message for the user
exit_status report_command(std::filesystem::path const& directory, std::filesystem::path page, bool json,
                           std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
