// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <ostream>

#include "base/exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber cameras`: lists the cameras that the plug-in finds. The plug-in has no function for that, but it logs
/// all cameras before it selects one; so it is run without a camera to select, and its log is parsed.
/// \param json  print the list as JSON
exit_status cameras_command(std::filesystem::path const& plugin, bool json, std::ostream& out);

}  // namespace mediagrabber
