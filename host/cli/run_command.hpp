// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/exit_status.hpp"

namespace mediagrabber {

struct run_options {
    std::filesystem::path configuration;
    std::vector<std::string> values;  ///< KEY=VALUE, instead of those of the file
    std::filesystem::path plugin;     ///< empty: the default plug-in
    std::optional<std::uint32_t> frames;
    std::filesystem::path output;         ///< empty: as configured
    std::optional<std::string> pipeline;  ///< empty string: none
    std::string web;                      ///< ADDRESS:PORT of the live page; empty: as configured
    std::filesystem::path web_token;      ///< file; empty: as configured
};

/// `mediagrabber run`: records until all requested frames are saved or a signal stops it.
/// \throws std::exception with a message for the user if the recording cannot start
exit_status run_command(run_options const& options);

}  // namespace mediagrabber
