#include "recording/frame_pixels.hpp"

#include <cstring>

namespace mediagrabber {

namespace {

/// GigE Vision packing: two pixels in three bytes; the first byte holds the upper 8 bits of the first, the second the
/// lower 4 bits of both, the first pixel's below, the third the upper 8 bits of the second.
void unpack_pairs(std::span<std::byte const> packed, std::byte* line, std::uint32_t width) {
    auto const byte_at = [&](std::size_t i) { return std::to_integer<unsigned>(packed[i]); };
    auto const put = [line](std::uint32_t x, unsigned value) {
        line[2 * std::size_t{x}] = static_cast<std::byte>(value & 0xFFU);
        line[2 * std::size_t{x} + 1] = static_cast<std::byte>(value >> 8U);
    };
    std::size_t at = 0;
    for (std::uint32_t x = 0; x < width; x += 2, at += 3) {
        unsigned const low_bits = byte_at(at + 1);
        put(x, byte_at(at) << 4U | (low_bits & 0xFU));
        if (x + 1 < width) {
            put(x + 1, byte_at(at + 2) << 4U | low_bits >> 4U);
        }
    }
}

bool is_packed(pixel_format const& format) {
    return format.container_bits == 12;
}

}  // namespace

unsigned unpacked_bits(pixel_format const& format) {
    return format.significant_bits > 8 ? 16 : 8;
}

std::span<std::byte const> without_gaps(frame_view const& frame, std::vector<std::byte>& room) {
    frame_record const& record = frame.record;
    std::size_t const line_bytes = record.format->line_bytes(record.width);
    if (record.stride == line_bytes) {
        return frame.pixels;
    }
    room.resize(line_bytes * record.height);
    for (std::size_t y = 0; y < record.height; ++y) {
        std::memcpy(room.data() + y * line_bytes, frame.pixels.data() + y * record.stride, line_bytes);
    }
    return room;
}

std::span<std::byte const> unpacked(frame_view const& frame, std::vector<std::byte>& room) {
    frame_record const& record = frame.record;
    if (!is_packed(*record.format)) {
        return without_gaps(frame, room);
    }
    std::size_t const line_bytes = std::size_t{record.width} * unpacked_bits(*record.format) / 8;
    room.resize(line_bytes * record.height);
    for (std::uint32_t y = 0; y < record.height; ++y) {
        unpack_line(frame, y, std::span(room).subspan(y * line_bytes, line_bytes));
    }
    return room;
}

void unpack_line(frame_view const& frame, std::uint32_t y, std::span<std::byte> line) {
    frame_record const& record = frame.record;
    auto const from = frame.pixels.subspan(std::size_t{y} * record.stride, record.format->line_bytes(record.width));
    if (is_packed(*record.format)) {
        unpack_pairs(from, line.data(), record.width);
    } else {
        std::memcpy(line.data(), from.data(), from.size());
    }
}

}  // namespace mediagrabber
