// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace mediagrabber {

/// Location of a frame's pixels in a recording. All members are absent if the pixels were not written.
struct frame_place {
    std::optional<std::string> file;      ///< name in the recording's directory
    std::optional<std::uint64_t> page;    ///< from 0; only in a file of several pages
    std::optional<std::uint64_t> offset;  ///< of the first pixel, bytes; only in a raw file
    std::optional<std::uint64_t> bytes;   ///< from the first pixel to the last; only in a raw file
};

}  // namespace mediagrabber
