#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "pixel_format.hpp"

namespace camsim {

/// A region of the sensor, in pixels. A line is `width` pixels, without padding.
struct region {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t offset_x = 0;
    std::uint32_t offset_y = 0;

    friend bool operator==(region const&, region const&) = default;
};

/// Bytes of one line of `width` pixels; `width` is even, so that a line of Mono12Packed ends with a whole byte.
constexpr std::size_t line_bytes(std::uint32_t width, pixel_format format) {
    return static_cast<std::size_t>(width) * bits_per_pixel(format) / 8;
}

constexpr std::size_t frame_bytes(region const& area, pixel_format format) {
    return line_bytes(area.width, format) * area.height;
}

void pack_line(std::span<std::uint16_t const> samples, pixel_format format, std::span<std::byte> out);

}  // namespace camsim
