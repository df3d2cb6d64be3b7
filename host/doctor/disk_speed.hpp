// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>

namespace mediagrabber {

/// Measures the sustained write speed of a directory: writes a temporary file and waits until it is on the disk.
/// \param bytes  size of the file; more than the disk's own cache
/// \return bytes per second
/// \throws std::system_error if the file cannot be written
double measure_disk(std::filesystem::path const& directory, std::size_t bytes);

}  // namespace mediagrabber
