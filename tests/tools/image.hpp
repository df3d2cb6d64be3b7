// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "image/pfnc.hpp"

/// \file
/// Images as plain numbers, and straightforward implementations of the plug-in's image operations to compare with.

/// The pixel values of an image, line by line without padding.
struct image {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint16_t> values;

    std::uint16_t at(std::uint32_t x, std::uint32_t y) const { return values[std::size_t{y} * width + x]; }
    friend bool operator==(image const&, image const&) = default;
};

/// How the values of an image are to be interpreted.
struct sample_format {
    unsigned bits = 8;  ///< 8 or 12
    camsim::cfa filters = camsim::cfa::none;

    friend bool operator==(sample_format const&, sample_format const&) = default;
};

/// Rotates an image by 180 degrees. The 2 x 2 cells of a Bayer image exchange their positions and keep their inner
/// order along sides of even length.
image rotated_180(image const& original, camsim::cfa filters);

/// Converts an image to another sample format. A value keeps its brightness in any depth. A Bayer image becomes grey
/// with the weights 1 2 1 / 2 4 2 / 1 2 1; pixels beyond the border are mirrored. \throws std::runtime_error if a
/// monochrome image is to become a Bayer image
image converted(image const& original, sample_format from, sample_format to);
