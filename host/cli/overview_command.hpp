// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/exit_status.hpp"

namespace mediagrabber {

struct overview_options {
    std::vector<std::string> pages;      ///< URLs of live pages
    std::filesystem::path machines;      ///< file with further ones; empty: none
    std::string web = "127.0.0.1:8090";  ///< address and port to serve the overview at
    std::filesystem::path web_token;     ///< file with the access token; empty: none
};

/// `mediagrabber overview`: serves one page that shows the recordings of this machine and of others, until SIGINT or
/// SIGTERM.
/// \throws usage_error if the options are not valid, unavailable_error if the page cannot be served at present
exit_status overview_command(overview_options const& options);

}  // namespace mediagrabber
