// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "frames/frame_format.hpp"

namespace mediagrabber {

/// An image for count_values(); `row_length` is the distance of lines, pixels.
struct counted_image {
    std::byte const* pixels = nullptr;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t row_length = 0;
    frame_format const* format = nullptr;
};

/// Calculates a cumulative histogram: cumulative[v] is the number of pixels with a value of at most v. Values beyond
/// the format's significant bits count as the maximum. The pixels of a Bayer pattern count regardless of their colour.
/// \param cumulative  one entry per value of the format's significant bits
void count_values(counted_image const& image, std::span<std::uint32_t> cumulative);

/// Limits of an equalisation.
struct equalisation_limits {
    double contrast = 4.0;     ///< maximum slope, as a multiple of the slope of the identity; at least 1
    double black_share = 0.0;  ///< share of the darkest pixels that may become black; below white_share
    double white_share = 1.0;  ///< share of the pixels below those that may become white
};

/// Calculates a histogram-equalised LUT with limited contrast.
///
/// Histogram equalisation makes the slope of the tone curve at a value proportional to the number of pixels with that
/// value, which amplifies the noise in large uniform areas. S. M. Pizer and others, "Adaptive Histogram Equalization
/// and Its Variations" (Computer Vision, Graphics, and Image Processing 39, 1987, 355-368), limit the slope by clipping
/// the histogram and distributing the clipped part evenly; K. Zuiderveld, "Contrast Limited Adaptive Histogram
/// Equalization" (Graphics Gems IV, 1994), made the method known as CLAHE. This is its global form, because a camera
/// has one LUT for the entire image. The clipping level is chosen so that the limit holds after the clipped part has
/// been distributed.
///
/// The LUT begins with 0, ends with the maximum value, and is monotonic. Apart from rounding, no step exceeds the
/// limit. It is equalised between the black and the white share and flat outside, unless the limit prevents it from
/// reaching the full range in between. A uniform histogram, or an empty one, results in the identity.
///
/// \param cumulative  from count_values()
/// \param value_bits  bits of the LUT's entries, 1 to 16
/// \param table       receives the LUT: one entry per pixel value, at least 2; may have another size than `cumulative`
void equalise(std::span<std::uint32_t const> cumulative, equalisation_limits const& limits, unsigned value_bits,
              std::span<std::uint16_t> table);

}  // namespace mediagrabber
