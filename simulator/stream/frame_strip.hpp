// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "image/frame_renderer.hpp"

namespace camsim {

/// A window onto the payload of a block, which renders image lines on demand. The payload is the image and, after it,
/// the block's chunk data.
///
/// A frame is never in memory completely: a strip of it is rendered, sent while it is in the CPU cache, and overwritten
/// by the next strip. A resend renders its packets again. Used by one thread.
class frame_strip {
public:
    /// \param max_window largest number of bytes that bytes() returns
    frame_strip(scene_settings const& scene, std::size_t max_window);

    /// Selects the frame that following calls refer to.
    /// \param chunk_data bytes after the image, at most max_chunk_bytes
    void begin(frame_settings const& frame, std::span<std::byte const> chunk_data = {});

    /// \return the payload's bytes `from` to `to` - 1, valid until the next call
    std::span<std::byte const> bytes(std::size_t from, std::size_t to);

private:
    void discard_before(std::uint32_t line);

    frame_renderer renderer_;
    std::vector<std::byte> memory_;
    std::vector<std::byte> chunk_data_;
    std::uint32_t first_line_ = 0;  ///< lines first_line_ to end_line_ - 1 are in memory_
    std::uint32_t end_line_ = 0;
};

}  // namespace camsim
