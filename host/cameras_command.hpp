#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "exit_status.hpp"

namespace mediagrabber {

/// A camera as a plug-in reports it: lines of a label and a value, in the plug-in's words.
struct reported_camera {
    struct property {
        std::string label;
        std::string value;
    };
    std::vector<property> properties;
};

/// Finds the cameras in a plug-in's report: each begins with a heading "== ... Camera Device Information ==", and its
/// properties follow as "LABEL : VALUE", until a line that is neither. Lines may begin with a log's "[TAG:level]: ".
std::vector<reported_camera> find_reported_cameras(std::string const& report);

/// `mediagrabber cameras`: prints what cameras the plug-in finds. It has no call for that, but it reports what it finds
/// before it looks for its camera; so it is run with no camera to look for.
exit_status cameras_command(std::filesystem::path const& plugin, std::ostream& out);

}  // namespace mediagrabber
