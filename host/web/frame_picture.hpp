#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "frame_record.hpp"

namespace mediagrabber {

/// How often pixel values occur in a frame, all colours alike.
struct value_histogram {
    static constexpr std::size_t bins = 256;
    std::array<std::uint32_t, bins> counts{};  ///< each of as many neighbouring values as full scale has bins
    std::uint64_t pixels = 0;
    std::uint64_t black = 0;  ///< pixels of value 0
    std::uint64_t white = 0;  ///< pixels of the largest value
    double mean = 0.0;        ///< fraction of full scale
};
value_histogram count_frame(frame_view const& frame);

/// The values that a picture shows as black and as white, on a scale of 256 steps of full scale; between them it is a
/// straight line.
struct value_window {
    std::uint32_t black = 0;
    std::uint32_t white = 256;  ///< above black
};
/// The narrowest that all but 1 of 1000 pixels at either end lie in.
value_window window_of(value_histogram const& histogram);

/// A picture to look at: 8 bits, one channel or red, green, blue, no gaps.
struct shown_pixels {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    unsigned channels = 1;
    std::vector<std::uint8_t> values;
};

/// Makes it of a frame: 12 bits become 8 by the window, colours come from a mosaic. What is wider or higher than
/// `largest_side` becomes smaller by a whole factor, pixels being averaged.
shown_pixels shown(frame_view const& frame, value_window const& window, std::uint32_t largest_side);

/// Encodes pictures one after the other; of one thread at a time.
class jpeg_encoder {
public:
    jpeg_encoder();
    ~jpeg_encoder();
    jpeg_encoder(jpeg_encoder const&) = delete;
    jpeg_encoder& operator=(jpeg_encoder const&) = delete;

    /// \throws std::runtime_error when a picture can't be encoded
    std::string encode(shown_pixels const& picture);

private:
    void* turbo_;
};

}  // namespace mediagrabber
