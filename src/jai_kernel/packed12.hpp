// SPDX-License-Identifier: MIT
#pragma once
#include <cstddef>
#include <cstdint>

namespace Vorn::Support::MediaGrabber::Jai {

/// Pixel access to the GigE Vision format Mono12Packed: two pixels in three bytes. The outer bytes hold the upper 8
/// bits of the pixels. The middle byte holds the lower 4 bits of the first pixel in its low half and those of the
/// second in its high half. The last pixel of a line with an odd width occupies two bytes.
struct packed12 {
    /// \param width in pixels
    /// \return bytes of a line
    static constexpr size_t lineBytes(size_t width) { return (width * 12 + 7) / 8; }

    /// \param pixels four pixels, each in the low 12 of 16 bits
    /// \return six bytes of packed pixels in the low bits
    static constexpr uint64_t packFour(uint64_t pixels) {
        uint64_t const upper = pixels >> 4 & 0x00FF00FF00FF00FF;
        uint64_t const firstLower = (pixels & 0x0000000F0000000F) << 8;
        uint64_t const secondLower = (pixels & 0x000F0000000F0000) >> 4;
        uint64_t const pairs = upper | firstLower | secondLower;  // 24 bits in each half
        return (pairs & 0xFFFFFF) | pairs >> 32 << 24;
    }
    /// The reverse of `packFour`.
    /// \param bytes six bytes of packed pixels in the low bits; the other bits are ignored
    /// \return four pixels, each in the low 12 of 16 bits
    static constexpr uint64_t unpackFour(uint64_t bytes) {
        uint64_t const pairs = (bytes & 0xFFFFFF) | (bytes >> 24 & 0xFFFFFF) << 32;
        return (pairs & 0x000000FF000000FF) << 4 | (pairs >> 8 & 0x0000000F0000000F) |
               (pairs & 0x00FF000000FF0000) << 4 | (pairs & 0x0000F0000000F000) << 4;
    }

    /// \param line its first byte
    /// \param x position in the line
    /// \return the pixel, 12 bits
    static constexpr uint16_t get(uint8_t const* line, size_t x) {
        uint8_t const* const pair = line + x / 2 * 3;
        return static_cast<uint16_t>(x % 2 == 0 ? pair[0] << 4 | (pair[1] & 0x0F) : pair[2] << 4 | pair[1] >> 4);
    }

    /// \param line its first byte
    /// \param x position in the line
    /// \param value of the pixel, 12 bits
    static constexpr void put(uint8_t* line, size_t x, uint16_t value) {
        uint8_t* const pair = line + x / 2 * 3;
        if (x % 2 == 0) {
            pair[0] = static_cast<uint8_t>(value >> 4);
            pair[1] = static_cast<uint8_t>((pair[1] & 0xF0) | (value & 0x0F));
        } else {
            pair[2] = static_cast<uint8_t>(value >> 4);
            pair[1] = static_cast<uint8_t>((pair[1] & 0x0F) | (value & 0x0F) << 4);
        }
    }
};

}  // namespace Vorn::Support::MediaGrabber::Jai
