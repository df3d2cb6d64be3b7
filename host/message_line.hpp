#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "file_handle.hpp"

namespace mediagrabber {

/// Reads up to a line end, which is left out. \param interrupt  a descriptor whose readiness ends the wait; -1 for none
/// \return nothing when no whole line of at most `longest` bytes came in time
std::optional<std::string> read_line(file_handle const& connection, std::size_t longest,
                                     std::chrono::steady_clock::time_point until, int interrupt = -1);

/// \return whether all of it was taken
bool write_all(file_handle const& connection, std::string const& text);

}  // namespace mediagrabber
