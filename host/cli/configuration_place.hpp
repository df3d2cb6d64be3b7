// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace mediagrabber {

/// The environment variable with the configuration of commands that get none.
inline constexpr char configuration_variable[] = "MEDIAGRABBER_CONFIG";

/// Finds a configuration file. A path, or the name of a file in the working directory, is that file. Another name
/// without a slash is looked for as NAME.toml in the directory "mediagrabber" of $XDG_CONFIG_HOME (or ~/.config), and
/// in /etc/mediagrabber. \param given  path or name; empty: $MEDIAGRABBER_CONFIG \return the file; empty if neither is
/// given \throws usage_error  if the file does not exist; the text lists where it was looked for
std::filesystem::path find_configuration(std::filesystem::path const& given);

/// The same for commands that cannot do without a configuration.
/// \param option  of the command line, "--config"
/// \throws usage_error  also if none is given
std::filesystem::path require_configuration(std::filesystem::path const& given, char const* option);

}  // namespace mediagrabber
