#pragma once
/// \file
/// A picture as plain numbers, and what a plug-in may do to one, pixel by pixel: slow and obvious, for comparisons.

#include <cstdint>
#include <vector>

/// Pixel values of a picture, line by line without gaps.
struct picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint16_t> values;

    std::uint16_t at(std::uint32_t x, std::uint32_t y) const { return values[std::size_t{y} * width + x]; }
    friend bool operator==(picture const&, picture const&) = default;
};

/// What the values of a picture mean.
struct pixel_meaning {
    unsigned bits = 8;  ///< 8 or 12
    bool bayer = false;

    friend bool operator==(pixel_meaning const&, pixel_meaning const&) = default;
};

/// By 180 degrees. The 2 x 2 cells of a Bayer picture change places and keep their inner order along sides of even
/// length.
picture turned(picture const& original, bool bayer);

/// A value means the same brightness in every depth; a Bayer picture becomes grey with the weights 1 2 1 / 2 4 2 / 1 2
/// 1, mirrored about its outermost pixels.
picture converted(picture const& original, pixel_meaning from, pixel_meaning to);
