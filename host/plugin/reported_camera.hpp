// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mediagrabber {

/// A camera in a plug-in's report: labels and values, as the plug-in prints them.
struct reported_camera {
    struct property {
        std::string label;
        std::string value;
    };
    std::vector<property> properties;
};

/// Parses a plug-in's report. Each camera begins with a heading "== ... Camera Device Information ==", followed by its
/// properties as "LABEL : VALUE" until the first other line. Lines may begin with the log prefix "[TAG:level]: ".
std::vector<reported_camera> find_reported_cameras(std::string const& report);

/// Whether a line, without a log prefix, is the heading of a camera.
bool is_camera_heading(std::string_view line);

}  // namespace mediagrabber
