#pragma once

#include <cstddef>
#include <filesystem>

namespace mediagrabber {

/// How fast a directory takes frames: writes a file until it is on the disk, and removes it again.
/// \return bytes a second \throws std::system_error when it can't be written
double measure_disk(std::filesystem::path const& directory, std::size_t bytes);

}  // namespace mediagrabber
