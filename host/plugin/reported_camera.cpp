// SPDX-License-Identifier: MIT
#include "plugin/reported_camera.hpp"

#include <sstream>

namespace mediagrabber {

namespace {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    auto const first = text.find_first_not_of(blanks);
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view without_log_prefix(std::string_view line) {
    auto const end = line.find("]: ");
    return line.starts_with('[') && end != line.npos ? line.substr(end + 3) : line;
}

}  // namespace

bool is_camera_heading(std::string_view line) {
    return line.starts_with("== ") && line.find("Camera Device Information") != line.npos;
}

std::vector<reported_camera> find_reported_cameras(std::string const& report) {
    std::vector<reported_camera> cameras;
    bool inside = false;
    std::istringstream lines(report);
    for (std::string raw; std::getline(lines, raw);) {
        auto const line = trimmed(without_log_prefix(raw));
        auto const separator = line.find(" : ");
        bool const rule = !line.empty() && line.find_first_not_of('=') == line.npos;
        if (is_camera_heading(line)) {
            cameras.emplace_back();
            inside = true;
        } else if (inside && separator != line.npos) {
            cameras.back().properties.push_back(
                {std::string(trimmed(line.substr(0, separator))), std::string(trimmed(line.substr(separator + 3)))});
        } else if (!rule) {
            inside = false;
        }
    }
    return cameras;
}

}  // namespace mediagrabber
