#include "frame_strip.hpp"

#include <algorithm>

#include "chunk_data.hpp"

namespace camsim {

namespace {

constexpr std::size_t largest_bytes_per_pixel = 2;

}  // namespace

/// \param largest_window bytes that are asked for at once, at most
frame_strip::frame_strip(scene_settings const& scene, std::size_t largest_window)
    : renderer_(scene), memory_(largest_window + 2 * largest_bytes_per_pixel * scene.sensor_width + most_chunk_bytes) {}

/// \param behind_picture at most most_chunk_bytes
void frame_strip::begin(frame_settings const& frame, std::span<std::byte const> behind_picture) {
    renderer_.prepare(frame);
    behind_picture_.assign(behind_picture.begin(), behind_picture.end());
    first_line_ = 0;
    end_line_ = 0;
}

/// \return the payload's bytes `from` to `to` - 1, valid until the next call
std::span<std::byte const> frame_strip::bytes(std::size_t from, std::size_t to) {
    std::size_t const line_size = line_bytes(renderer_.frame().area.width, renderer_.frame().format);
    std::uint32_t const height = renderer_.frame().area.height;
    auto const first = static_cast<std::uint32_t>(std::min<std::size_t>(from / line_size, height));
    auto const end = static_cast<std::uint32_t>(std::min<std::size_t>((to + line_size - 1) / line_size, height));
    keep_from(first);
    if (end > end_line_) {
        std::span<std::byte> const missing =
            std::span(memory_).subspan((end_line_ - first_line_) * line_size, (end - end_line_) * line_size);
        renderer_.render_lines(end_line_, end - end_line_, missing);
        end_line_ = end;
    }
    if (to > height * line_size) {
        std::ranges::copy(behind_picture_,
                          memory_.begin() + static_cast<std::ptrdiff_t>((height - first_line_) * line_size));
    }
    return std::span(memory_).subspan(from - first_line_ * line_size, to - from);
}

/// Moves the lines from `line` on to the memory's beginning; forgets everything when `line` is not among them.
void frame_strip::keep_from(std::uint32_t line) {
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
