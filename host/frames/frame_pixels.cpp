// SPDX-License-Identifier: MIT
#include "frames/frame_pixels.hpp"

#include <cstring>

namespace mediagrabber {

namespace {

bool is_packed(frame_format const& format) {
    return format.container_bits == 12;
}

}  // namespace

unsigned unpacked_bits(frame_format const& format) {
    return format.significant_bits > 8 ? 16 : 8;
}

std::span<std::byte const> without_padding(frame_view const& frame, std::vector<std::byte>& copy) {
    frame_record const& record = frame.record;
    std::size_t const line_bytes = record.format->line_bytes(record.width);
    if (record.stride == line_bytes) {
        return frame.pixels;
    }
    copy.resize(line_bytes * record.height);
    for (std::size_t y = 0; y < record.height; ++y) {
        std::memcpy(copy.data() + y * line_bytes, frame.pixels.data() + y * record.stride, line_bytes);
    }
    return copy;
}

std::span<std::byte const> unpacked(frame_view const& frame, std::vector<std::byte>& copy) {
    frame_record const& record = frame.record;
    if (!is_packed(*record.format)) {
        return without_padding(frame, copy);
    }
    std::size_t const line_bytes = std::size_t{record.width} * unpacked_bits(*record.format) / 8;
    copy.resize(line_bytes * record.height);
    for (std::uint32_t y = 0; y < record.height; ++y) {
        unpack_line(frame, y, std::span(copy).subspan(y * line_bytes, line_bytes));
    }
    return copy;
}

void unpack_line(frame_view const& frame, std::uint32_t y, std::span<std::byte> line) {
    frame_record const& record = frame.record;
    auto const from = frame.pixels.subspan(std::size_t{y} * record.stride, record.format->line_bytes(record.width));
    if (is_packed(*record.format)) {
        unpack_mono12packed(from.data(), record.width, [out = line.data()](std::uint32_t x, unsigned value) {
            out[2 * std::size_t{x}] = static_cast<std::byte>(value & 0xFFU);
            out[2 * std::size_t{x} + 1] = static_cast<std::byte>(value >> 8U);
        });
    } else {
        std::memcpy(line.data(), from.data(), from.size());
    }
}

}  // namespace mediagrabber
