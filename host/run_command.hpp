#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "exit_status.hpp"

namespace mediagrabber {

struct run_options {
    std::filesystem::path configuration;
    std::filesystem::path plugin;  ///< empty: the one that belongs to this program
    std::optional<std::uint32_t> frames;
    std::filesystem::path output;         ///< empty: as configured
    std::optional<std::string> pipeline;  ///< empty text: none
    std::string web;                      ///< ADDRESS:PORT of the live page; empty: as configured
    std::filesystem::path web_token;      ///< file; empty: as configured
};

/// `mediagrabber run`: records until the frames asked for are there, or a signal asks for the end.
/// \throws std::exception with a message for the operator when it can't begin
exit_status run_command(run_options const& options);

}  // namespace mediagrabber
