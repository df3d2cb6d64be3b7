#pragma once

#include <filesystem>
#include <ostream>

#include "exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber cameras`: prints what cameras the plug-in finds. It has no call for that, but it reports what it finds
/// before it looks for its camera; so it is run with no camera to look for.
exit_status cameras_command(std::filesystem::path const& plugin, std::ostream& out);

}  // namespace mediagrabber
