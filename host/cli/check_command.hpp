// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <ostream>

#include "base/exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber check`: prints every resulting value of a configuration file, and its origin.
/// \throws configuration_error if the file has errors
exit_status check_command(std::filesystem::path const& file, std::ostream& out);

/// `mediagrabber check --json`: the same for programs. Errors are part of the result, with their positions.
exit_status check_as_json(std::filesystem::path const& file, std::ostream& out);

/// `mediagrabber check --print-default`: a configuration file in which every key is a comment with its default.
void print_default_configuration(std::ostream& out);

}  // namespace mediagrabber
