// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "image/pfnc.hpp"

namespace camsim {

/// A region of the sensor, in pixels. A line is `width` pixels, without padding.
struct region {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t offset_x = 0;
    std::uint32_t offset_y = 0;

    friend bool operator==(region const&, region const&) = default;
};

/// Bytes of a line. `width` must be even, so that a line of Mono12Packed ends at a byte boundary.
constexpr std::size_t line_bytes(std::uint32_t width, pixel_format format) {
    return static_cast<std::size_t>(width) * bits_per_pixel(format) / 8;
}

constexpr std::size_t frame_bytes(region const& area, pixel_format format) {
    return line_bytes(area.width, format) * area.height;
}

/// \param samples 12-bit values (0 to 4095), an even number of them
/// \param out receives exactly line_bytes(samples.size(), format) bytes; 8-bit formats get the upper 8 bits
void pack_line(std::span<std::uint16_t const> samples, pixel_format format, std::span<std::byte> out);

}  // namespace camsim
