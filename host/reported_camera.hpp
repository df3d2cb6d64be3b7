#pragma once

#include <string>
#include <string_view>
#include <vector>

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

/// Whether a line, without a log's prefix, is the heading of a camera.
bool is_camera_heading(std::string_view line);

}  // namespace mediagrabber
