#pragma once
#include <cstddef>
#include <cstdint>

namespace Vorn::Support::MediaGrabber::Jai {

/// Pixels of GigE Vision's Mono12Packed: two in three bytes, the outer bytes holding their upper 8 bits, the middle one
/// the lower 4 bits of the first pixel in its low half and those of the second in its high half. The last pixel of a
/// line of odd length has two bytes.
struct packed12 {
    /// Bytes of a line of `width` pixels.
    static constexpr size_t lineBytes(size_t width) { return (width * 12 + 7) / 8; }

    /// Four pixels of 12 bits, each in the low bits of 16, become six bytes in the low bits of the result, and back.
    /// What `unpackFour` is given beyond six bytes does not matter.
    static constexpr uint64_t packFour(uint64_t pixels) {
        uint64_t const upper = pixels >> 4 & 0x00FF00FF00FF00FF;
        uint64_t const firstLower = (pixels & 0x0000000F0000000F) << 8;
        uint64_t const secondLower = (pixels & 0x000F0000000F0000) >> 4;
        uint64_t const pairs = upper | firstLower | secondLower;  // 24 bits of each 32
        return (pairs & 0xFFFFFF) | pairs >> 32 << 24;
    }
    static constexpr uint64_t unpackFour(uint64_t bytes) {
        uint64_t const pairs = (bytes & 0xFFFFFF) | (bytes >> 24 & 0xFFFFFF) << 32;
        return (pairs & 0x000000FF000000FF) << 4 | (pairs >> 8 & 0x0000000F0000000F) |
               (pairs & 0x00FF000000FF0000) << 4 | (pairs & 0x0000F0000000F000) << 4;
    }

    static constexpr uint16_t get(uint8_t const* line, size_t x) {
        uint8_t const* const pair = line + x / 2 * 3;
        return static_cast<uint16_t>(x % 2 == 0 ? pair[0] << 4 | (pair[1] & 0x0F) : pair[2] << 4 | pair[1] >> 4);
    }

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
