// SPDX-License-Identifier: MIT
#include "rotation.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include "packed12.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

namespace {

constexpr size_t _S_word = sizeof(uint64_t);  ///< bytes that are moved at once

uint64_t _T_load(uint8_t const* at) {
    uint64_t word;
    std::memcpy(&word, at, _S_word);
    return word;
}

void _T_store(uint8_t* at, uint64_t word) {
    std::memcpy(at, &word, _S_word);
}

uint64_t _T_reverse_bytes(uint64_t word) {
    return __builtin_bswap64(word);
}

/// Reverses the order of the four 16-bit units of a word; each unit keeps its bytes.
uint64_t _T_reverse_pairs(uint64_t word) {
    uint64_t const reversed = __builtin_bswap64(word);
    return (reversed & 0x00FF00FF00FF00FF) << 8 | (reversed >> 8 & 0x00FF00FF00FF00FF);
}

/// Reverses two runs of units and swaps them, from their outer ends inwards. If `first` is `second`, it reverses one
/// run in place. It moves words first, then the remaining units one by one.
template <typename unit, uint64_t (*reverse)(uint64_t)>
void _T_swap_reversed(uint8_t* first, uint8_t* second, size_t units) {
    size_t const bytes = units * sizeof(unit);
    // In a single run, the counterpart of a word is in the other half.
    size_t const end = first == second ? bytes / 2 : bytes;
    size_t done = 0;
    for (; done + _S_word <= end; done += _S_word) {
        uint8_t* const low = first + done;
        uint8_t* const high = second + bytes - done - _S_word;
        uint64_t const kept = _T_load(low);
        _T_store(low, reverse(_T_load(high)));
        _T_store(high, reverse(kept));
    }
    for (; done + sizeof(unit) <= end; done += sizeof(unit)) {
        unit low;
        unit high;
        uint8_t* const highAt = second + bytes - done - sizeof(unit);
        std::memcpy(&low, first + done, sizeof low);
        std::memcpy(&high, highAt, sizeof high);
        std::memcpy(first + done, &high, sizeof high);
        std::memcpy(highAt, &low, sizeof low);
    }
}

void _T_rotate_units8(uint8_t* pixels, size_t count) {
    _T_swap_reversed<uint8_t, _T_reverse_bytes>(pixels, pixels, count);
}

void _T_rotate_units16(uint8_t* pixels, size_t count) {
    _T_swap_reversed<uint16_t, _T_reverse_pairs>(pixels, pixels, count);
}

/// \return the line with which line `y` of a Bayer frame changes places. With an even height, cells of two lines change
///         places; with an odd height, a plain mirror image keeps the phase.
size_t _T_bayer_counterpart(size_t y, size_t height) {
    return height % 2 == 0 ? height - 2 - y / 2 * 2 + y % 2 : height - 1 - y;
}

void _T_rotate_bayer(uint8_t* pixels, size_t width, size_t height) {
    for (size_t y = 0; y < height; ++y) {
        size_t const counterpart = _T_bayer_counterpart(y, height);
        if (counterpart < y) {
            continue;
        }
        uint8_t* const line = pixels + y * width;
        uint8_t* const other = pixels + counterpart * width;
        if (width % 2 == 0) {
            _T_swap_reversed<uint16_t, _T_reverse_pairs>(line, other, width / 2);
        } else {
            _T_swap_reversed<uint8_t, _T_reverse_bytes>(line, other, width);
        }
    }
}

/// Swaps the two pixels of a three-byte group: the outer bytes, and the halves of the middle byte.
void _T_rotate_group(uint8_t* group) {
    std::swap(group[0], group[2]);
    group[1] = static_cast<uint8_t>(group[1] << 4 | group[1] >> 4);
}

/// Eight groups of three bytes, as three words.
struct packed_block {
    static constexpr size_t bytes = 3 * _S_word;
    uint64_t words[3];

    void load(uint8_t const* at) { std::memcpy(words, at, bytes); }
    void store(uint8_t* at) const { std::memcpy(at, words, bytes); }
    void turn() {
        // The middle bytes of the groups in each word, after the words have been reversed.
        constexpr uint64_t middles[3] = {0xFF0000FF0000FF00, 0x0000FF0000FF0000, 0x00FF0000FF0000FF};
        constexpr uint64_t lowHalves = 0x0F0F0F0F0F0F0F0F;
        std::swap(words[0], words[2]);
        for (size_t i = 0; i < 3; ++i) {
            uint64_t const reversed = __builtin_bswap64(words[i]);
            uint64_t const swapped = (reversed & lowHalves) << 4 | (reversed >> 4 & lowHalves);
            words[i] = (reversed & ~middles[i]) | (swapped & middles[i]);
        }
    }
};

/// Rotates a frame with an even width: it is one sequence of groups, reversed from its ends inwards.
void _T_rotate_packed_groups(uint8_t* pixels, size_t groups) {
    uint8_t* low = pixels;
    uint8_t* high = pixels + groups * 3;
    while (high - low >= static_cast<ptrdiff_t>(2 * packed_block::bytes)) {
        high -= packed_block::bytes;
        packed_block first;
        packed_block second;
        first.load(low);
        second.load(high);
        first.turn();
        second.turn();
        first.store(high);
        second.store(low);
        low += packed_block::bytes;
    }
    for (; high - low >= 6; low += 3) {
        high -= 3;
        _T_rotate_group(low);
        _T_rotate_group(high);
        std::swap_ranges(low, low + 3, high);
    }
    if (low < high) {
        _T_rotate_group(low);
    }
}

/// Rotates a frame with an odd width pixel by pixel: its lines end in half a group.
void _T_rotate_packed_pixels(uint8_t* pixels, size_t width, size_t height) {
    size_t const stride = packed12::lineBytes(width);
    size_t const count = width * height;
    for (size_t i = 0; i < count / 2; ++i) {
        size_t const j = count - 1 - i;
        uint8_t* const line = pixels + i / width * stride;
        uint8_t* const other = pixels + j / width * stride;
        uint16_t const kept = packed12::get(line, i % width);
        packed12::put(line, i % width, packed12::get(other, j % width));
        packed12::put(other, j % width, kept);
    }
}

}  // namespace

bool Rotation__TurnBy180(pixel_format const& format, std::span<uint8_t> frame, uint32_t width, uint32_t height) {
    if (frame.size() < format.frameBytes(width, height)) {
        return false;
    }
    size_t const pixels = size_t{width} * height;
    switch (format.code) {
        case format_code::Mono8:
            _T_rotate_units8(frame.data(), pixels);
            return true;
        case format_code::Mono12:
            _T_rotate_units16(frame.data(), pixels);
            return true;
        case format_code::BayerRG8:
            _T_rotate_bayer(frame.data(), width, height);
            return true;
        case format_code::Mono12Packed:
            if (width % 2 == 0) {
                _T_rotate_packed_groups(frame.data(), pixels / 2);
            } else {
                _T_rotate_packed_pixels(frame.data(), width, height);
            }
            return true;
        case format_code::none:
            break;
    }
    return false;
}

}  // namespace Vorn::Support::MediaGrabber::Jai
