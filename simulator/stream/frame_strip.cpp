// SPDX-License-Identifier: MIT
#include "stream/frame_strip.hpp"

#include <algorithm>

#include "protocol/chunk_data.hpp"

namespace camsim {

namespace {

constexpr std::size_t max_bytes_per_pixel = 2;  // Mono12

}  // namespace

frame_strip::frame_strip(scene_settings const& scene, std::size_t max_window)
    : renderer_(scene), memory_(max_window + 2 * max_bytes_per_pixel * scene.sensor_width + max_chunk_bytes) {}

void frame_strip::begin(frame_settings const& frame, std::span<std::byte const> chunk_data) {
    renderer_.prepare(frame);
    chunk_data_.assign(chunk_data.begin(), chunk_data.end());
    first_line_ = 0;
    end_line_ = 0;
}

std::span<std::byte const> frame_strip::bytes(std::size_t from, std::size_t to) {
    std::size_t const line_size = line_bytes(renderer_.frame().area.width, renderer_.frame().format);
    std::uint32_t const height = renderer_.frame().area.height;
    auto const first = static_cast<std::uint32_t>(std::min<std::size_t>(from / line_size, height));
    auto const end = static_cast<std::uint32_t>(std::min<std::size_t>((to + line_size - 1) / line_size, height));
    discard_before(first);
    if (end > end_line_) {
        std::span<std::byte> const missing =
            std::span(memory_).subspan((end_line_ - first_line_) * line_size, (end - end_line_) * line_size);
        renderer_.render_lines(end_line_, end - end_line_, missing);
        end_line_ = end;
    }
    if (to > height * line_size) {
        std::ranges::copy(chunk_data_,
                          memory_.begin() + static_cast<std::ptrdiff_t>((height - first_line_) * line_size));
    }
    return std::span(memory_).subspan(from - first_line_ * line_size, to - from);
}

/// Moves `line` and those after it to the start of the memory; discards all lines if `line` is not among them.
void frame_strip::discard_before(std::uint32_t line) {
    if (line >= first_line_ && line < end_line_) {
        std::size_t const line_size = line_bytes(renderer_.frame().area.width, renderer_.frame().format);
        std::span<std::byte const> const kept =
            std::span(memory_).subspan((line - first_line_) * line_size, (end_line_ - line) * line_size);
        std::ranges::copy(kept, memory_.begin());
    } else {
        end_line_ = line;
    }
    first_line_ = line;
}

}  // namespace camsim
