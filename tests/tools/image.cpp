// SPDX-License-Identifier: MIT
#include "image.hpp"

#include <stdexcept>

namespace {

/// The position that moves to `at` when a side of `length` pixels is reversed.
std::uint32_t reversed(std::uint32_t at, std::uint32_t length, camsim::cfa filters) {
    bool const by_cells = filters == camsim::cfa::bayer_rg && length % 2 == 0;
    return by_cells ? length - 2 - at / 2 * 2 + at % 2 : length - 1 - at;
}

std::uint32_t mirrored(std::int64_t at, std::uint32_t length) {
    if (length == 1) {
        return 0;
    }
    std::int64_t const last = std::int64_t{length} - 1;
    return static_cast<std::uint32_t>(at < 0 ? -at : at > last ? 2 * last - at : at);
}

/// The brightness of a pixel on a 12-bit scale.
unsigned brightness(image const& original, sample_format format, std::uint32_t x, std::uint32_t y) {
    if (format.filters == camsim::cfa::none) {
        return format.bits == 8 ? original.at(x, y) * 16U : original.at(x, y);
    }
    unsigned sum = 0;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            unsigned const weight = (dx == 0 ? 2U : 1U) * (dy == 0 ? 2U : 1U);
            sum += weight * original.at(mirrored(std::int64_t{x} + dx, original.width),
                                        mirrored(std::int64_t{y} + dy, original.height));
        }
    }
    return sum;  // the weights add up to 16
}

}  // namespace

image rotated_180(image const& original, camsim::cfa filters) {
    image result = original;
    for (std::uint32_t y = 0; y < original.height; ++y) {
        for (std::uint32_t x = 0; x < original.width; ++x) {
            result.values[std::size_t{y} * original.width + x] =
                original.at(reversed(x, original.width, filters), reversed(y, original.height, filters));
        }
    }
    return result;
}

image converted(image const& original, sample_format from, sample_format to) {
    if (from == to) {
        return original;
    }
    if (to.filters != camsim::cfa::none) {
        throw std::runtime_error("a monochrome image cannot become a Bayer image");
    }
    image result = original;
    for (std::uint32_t y = 0; y < original.height; ++y) {
        for (std::uint32_t x = 0; x < original.width; ++x) {
            unsigned const value = brightness(original, from, x, y);
            result.values[std::size_t{y} * original.width + x] =
                static_cast<std::uint16_t>(to.bits == 8 ? value / 16 : value);
        }
    }
    return result;
}
