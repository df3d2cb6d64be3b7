#include "picture.hpp"

#include <stdexcept>

namespace {

std::uint32_t turned_place(std::uint32_t at, std::uint32_t length, bool bayer) {
    bool const by_cells = bayer && length % 2 == 0;
    return by_cells ? length - 2 - at / 2 * 2 + at % 2 : length - 1 - at;
}

std::uint32_t mirrored(std::int64_t at, std::uint32_t length) {
    if (length == 1) {
        return 0;
    }
    std::int64_t const last = std::int64_t{length} - 1;
    return static_cast<std::uint32_t>(at < 0 ? -at : at > last ? 2 * last - at : at);
}

/// On a scale of 12 bits.
unsigned brightness(picture const& original, pixel_meaning meaning, std::uint32_t x, std::uint32_t y) {
    if (!meaning.bayer) {
        return meaning.bits == 8 ? original.at(x, y) * 16U : original.at(x, y);
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

picture turned(picture const& original, bool bayer) {
    picture result = original;
    for (std::uint32_t y = 0; y < original.height; ++y) {
        for (std::uint32_t x = 0; x < original.width; ++x) {
            result.values[std::size_t{y} * original.width + x] =
                original.at(turned_place(x, original.width, bayer), turned_place(y, original.height, bayer));
        }
    }
    return result;
}

picture converted(picture const& original, pixel_meaning from, pixel_meaning to) {
    if (from == to) {
        return original;
    }
    if (to.bayer) {
        throw std::runtime_error("nothing but a Bayer picture becomes one");
    }
    picture result = original;
    for (std::uint32_t y = 0; y < original.height; ++y) {
        for (std::uint32_t x = 0; x < original.width; ++x) {
            unsigned const value = brightness(original, from, x, y);
            result.values[std::size_t{y} * original.width + x] =
                static_cast<std::uint16_t>(to.bits == 8 ? value / 16 : value);
        }
    }
    return result;
}
