#pragma once

#include <filesystem>
#include <ostream>

#include "exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber report`: writes a page about a recording.
/// \param directory of the recording \param page file to write; empty: report.html in the directory
/// \throws std::exception with a message for the operator
exit_status report_command(std::filesystem::path const& directory, std::filesystem::path page, std::ostream& out,
                           std::ostream& complaints);

}  // namespace mediagrabber
