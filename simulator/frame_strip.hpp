#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "frame_renderer.hpp"

namespace camsim {

/// A window onto the payload of a frame's block that renders the lines it needs when they are asked for. The payload is
/// the frame's lines and, behind them, what the block carries beside its picture.
///
/// A frame is never in memory as a whole: a strip of it is rendered, handed to the kernel while it is in the
/// processor's cache, and overwritten by the next one. A resend renders its packets again.
class frame_strip {
public:
    frame_strip(scene_settings const& scene, std::size_t largest_window);

    void begin(frame_settings const& frame, std::span<std::byte const> behind_picture = {});
    std::span<std::byte const> bytes(std::size_t from, std::size_t to);

private:
    void keep_from(std::uint32_t line);

    frame_renderer renderer_;
    std::vector<std::byte> memory_;
    std::vector<std::byte> behind_picture_;
    std::uint32_t first_line_ = 0;  ///< lines first_line_ to end_line_ - 1 are in memory_
    std::uint32_t end_line_ = 0;
};

}  // namespace camsim
