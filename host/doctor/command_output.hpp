// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Output of other programs.

#include <optional>
#include <string>

namespace mediagrabber {

/// Runs a command in a shell.
/// \param command  a text that is known when this program is compiled, nothing that anybody can choose
/// \return its standard output; null if it fails or does not exist
std::optional<std::string> output_of(char const* command);

}  // namespace mediagrabber
