// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <ostream>

#include "base/exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber check`: prints every resulting value of a configuration file, and its origin.
/// \throws configuration_error if the file has errors
exit_status check_command(std::filesystem::path const& file, std::ostream& out);

}  // namespace mediagrabber
