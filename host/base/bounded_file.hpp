// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace mediagrabber {

/// Reads a regular file. Anything else (a pipe, a device) is refused before a byte is read, because reading could
/// block. \param max_bytes  a larger file is refused \throws std::runtime_error with the reason, without the file's
/// name
std::string read_bounded_file(std::filesystem::path const& file, std::size_t max_bytes);

}  // namespace mediagrabber
