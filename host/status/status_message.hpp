// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The status of a recording, as the page's /status.json and `mediagrabber status` show it.

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "status/recording_status.hpp"

namespace mediagrabber {

/// \return an object; texts may have bytes that are not valid UTF-8, which dump() must replace
nlohmann::json status_message(recording_status const& status);

/// The same for people, one line for each subject.
std::vector<std::string> status_lines(recording_status const& status);

}  // namespace mediagrabber
