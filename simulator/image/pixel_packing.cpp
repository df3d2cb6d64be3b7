// SPDX-License-Identifier: MIT
#include "image/pixel_packing.hpp"

namespace camsim {

namespace {

void pack_8_bits(std::span<std::uint16_t const> samples, std::byte* out) {
    for (std::size_t index = 0; index < samples.size(); ++index) {
        out[index] = static_cast<std::byte>(samples[index] >> 4U);
    }
}

void pack_12_bits_little_endian(std::span<std::uint16_t const> samples, std::byte* out) {
    for (std::size_t index = 0; index < samples.size(); ++index) {
        out[2 * index] = static_cast<std::byte>(samples[index] & 0xFFU);
        out[2 * index + 1] = static_cast<std::byte>(samples[index] >> 8U);
    }
}

/// Two pixels in three bytes: the upper eight bits of the first, the lower four of both (second in the high nibble),
/// the upper eight of the second.
void pack_12_bits_in_pairs(std::span<std::uint16_t const> samples, std::byte* out) {
    for (std::size_t pair = 0; pair < samples.size() / 2; ++pair) {
        unsigned const first = samples[2 * pair];
        unsigned const second = samples[2 * pair + 1];
        out[3 * pair] = static_cast<std::byte>(first >> 4U);
        out[3 * pair + 1] = static_cast<std::byte>((second & 0xFU) << 4U | (first & 0xFU));
        out[3 * pair + 2] = static_cast<std::byte>(second >> 4U);
    }
}

}  // namespace

void pack_line(std::span<std::uint16_t const> samples, pixel_format format, std::span<std::byte> out) {
    switch (format) {
        case pixel_format::mono8:
        case pixel_format::bayer_rg8:
            return pack_8_bits(samples, out.data());
        case pixel_format::mono12:
            return pack_12_bits_little_endian(samples, out.data());
        case pixel_format::mono12_packed:
            return pack_12_bits_in_pairs(samples, out.data());
    }
}

}  // namespace camsim
