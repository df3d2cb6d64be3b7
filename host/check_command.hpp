#pragma once

#include <filesystem>
#include <ostream>

#include "exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber check`: prints every value that the configuration file puts in force, and where each comes from.
/// \throws configuration_error when the file is refused
exit_status check_command(std::filesystem::path const& file, std::ostream& out);

}  // namespace mediagrabber
