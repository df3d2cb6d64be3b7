#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "pixel_format.hpp"

namespace mediagrabber {

/// A picture to be counted; `row_length` is the distance of lines in pixels.
struct counted_picture {
    std::byte const* pixels = nullptr;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t row_length = 0;
    pixel_format const* format = nullptr;
};

/// Counts pixel values: cumulative[v] becomes the number of pixels with a value of at most v. There is an entry for
/// each value of the format's significant bits; a value beyond them counts as the largest. The pixels of a mosaic count
/// alike, whatever their colour.
void count_values(counted_picture const& picture, std::span<std::uint32_t> cumulative);

/// How far an equalisation may go.
struct equalisation_limits {
    double contrast = 4.0;     ///< steepest slope, as a multiple of the straight line's; at least 1
    double black_share = 0.0;  ///< of the pixels, the darkest, that may become black; below white_share
    double white_share = 1.0;  ///< of the pixels, all but the brightest that may become white
};

/// Makes a table that evens out how often values occur, with limited contrast.
///
/// Histogram equalisation makes the slope of the tone curve at a value proportional to how many pixels have it, which
/// tears large even areas apart into their noise. S. M. Pizer and others, "Adaptive Histogram Equalization and Its
/// Variations" (Computer Vision, Graphics, and Image Processing 39, 1987, 355-368), limit the slope by clipping the
/// histogram and giving what was clipped to all values alike; K. Zuiderveld, "Contrast Limited Adaptive Histogram
/// Equalization" (Graphics Gems IV, 1994), made the method known as CLAHE. This is its global form, for a camera has
/// one table for the whole picture. The level to clip at is chosen so that the limit holds after what was clipped has
/// been given out, not only before.
///
/// The table begins with 0, ends with the largest value, and never falls. No step is larger than the limit allows, but
/// for rounding. Between black and white share it is equalised; it is flat beyond them, unless the limit keeps the part
/// between from reaching that far. An even distribution, or none, gives the straight line.
///
/// \param cumulative  as count_values makes it
/// \param value_bits  bits of the table's entries, 1 to 16
/// \param table       an entry for each pixel value, at least 2; their number may differ from that of `cumulative`
void equalise(std::span<std::uint32_t const> cumulative, equalisation_limits const& limits, unsigned value_bits,
              std::span<std::uint16_t> table);

}  // namespace mediagrabber
