// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "frames/frame_record.hpp"

/// A frame with pixels of its own, made from pixel values one by one.
struct sample_frame {
    mediagrabber::frame_record record;
    std::vector<std::uint16_t> values;  ///< line by line
    std::vector<std::byte> bytes;       ///< as the camera sends them, the last line without padding

    mediagrabber::frame_view view() const { return {record, bytes}; }
};

/// Writes one pixel of a line.
inline void put_pixel(std::byte* line, std::uint32_t x, unsigned value, mediagrabber::frame_format const& format) {
    auto const low_byte = [](unsigned bits) { return static_cast<std::byte>(bits & 0xFFU); };
    if (format.container_bits == 8) {
        line[x] = low_byte(value);
    } else if (format.container_bits == 16) {
        line[2 * x] = low_byte(value);
        line[2 * x + 1] = low_byte(value >> 8U);
    } else if (x % 2 == 0) {
        line[x / 2 * 3] = low_byte(value >> 4U);
        line[x / 2 * 3 + 1] = (line[x / 2 * 3 + 1] & std::byte{0xF0}) | low_byte(value & 0xFU);
    } else {
        line[x / 2 * 3 + 2] = low_byte(value >> 4U);
        line[x / 2 * 3 + 1] = (line[x / 2 * 3 + 1] & std::byte{0x0F}) | low_byte(value << 4U);
    }
}

/// \param padding  bytes behind each line; they hold 0xA5
template <typename value_at>
sample_frame make_frame(mediagrabber::frame_format const& format, std::uint32_t width, std::uint32_t height,
                        std::uint32_t padding, value_at&& value) {
    sample_frame frame;
    frame.record.number = 1;
    frame.record.width = width;
    frame.record.height = height;
    frame.record.stride = static_cast<std::uint32_t>(format.line_bytes(width)) + padding;
    frame.record.format = &format;
    frame.bytes.assign(std::size_t{frame.record.stride} * height, std::byte{0xA5});
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            unsigned const pixel = static_cast<unsigned>(value(x, y)) & ((1U << format.significant_bits) - 1U);
            frame.values.push_back(static_cast<std::uint16_t>(pixel));
            put_pixel(frame.bytes.data() + std::size_t{y} * frame.record.stride, x, pixel, format);
        }
    }
    frame.bytes.resize(frame.record.bytes());
    return frame;
}

/// Values from the full range; neighbouring pixels differ.
inline sample_frame make_frame(mediagrabber::frame_format const& format, std::uint32_t width, std::uint32_t height,
                               std::uint32_t padding = 0) {
    return make_frame(format, width, height, padding,
                      [](std::uint32_t x, std::uint32_t y) { return x * 2654435761U + y * 40503U; });
}
