// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "base/file_handle.hpp"

namespace mediagrabber {

enum class line_state { incomplete, complete, failed };

/// Appends to `line` what has arrived, without waiting. When the line is complete, `line` is without its line end; what
/// follows is discarded.
/// \return failed: the peer has closed the connection, or the line exceeds `max_bytes`
line_state receive_line(file_handle const& connection, std::string& line, std::size_t max_bytes);

/// Reads one line, without its line end.
/// \param max_bytes  maximum length of the line
/// \param interrupt  a descriptor that ends the wait when it is readable; -1: none
/// \return nothing if no complete line arrived in time
std::optional<std::string> read_line(file_handle const& connection, std::size_t max_bytes,
                                     std::chrono::steady_clock::time_point until, int interrupt = -1);

/// \return whether the peer has accepted all bytes
bool write_all(file_handle const& connection, std::string const& text);

}  // namespace mediagrabber
