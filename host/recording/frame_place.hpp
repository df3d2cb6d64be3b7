#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace mediagrabber {

/// Where a frame's pixels are in a recording. All absent: they were not written.
struct frame_place {
    std::optional<std::string> file;      ///< name in the recording's directory
    std::optional<std::uint64_t> page;    ///< of a file with many, from 0
    std::optional<std::uint64_t> offset;  ///< of the first pixel, bytes; of a file without a structure
    std::optional<std::uint64_t> bytes;   ///< from the first pixel to the last; of a file without a structure
};

}  // namespace mediagrabber
