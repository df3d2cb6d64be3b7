// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Converts frames to images for the page: histogram, contrast window, demosaicing, downscaling, JPEG.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// Histogram of a frame's pixel values; all colours of a Bayer pattern together.
struct value_histogram {
    static constexpr std::size_t bins = 256;
    std::array<std::uint32_t, bins> counts{};  ///< each bin covers 1/256 of full scale
    std::uint64_t pixels = 0;
    std::uint64_t black = 0;  ///< pixels of value 0
    std::uint64_t white = 0;  ///< pixels of the maximum value
    double mean = 0.0;        ///< fraction of full scale
};
value_histogram count_frame(frame_view const& frame);

/// The values shown as black and as white, in steps of 1/256 of full scale. Values between them are mapped linearly.
struct value_window {
    std::uint32_t black = 0;
    std::uint32_t white = 256;  ///< above black
};
/// \return the narrowest window outside of which lies at most 1 pixel in 1000 at either end
value_window window_of(value_histogram const& histogram);

/// An image of 8 bits per channel without padding.
struct shown_pixels {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    unsigned channels = 1;  ///< 1: grey; 3: red, green, blue
    std::vector<std::uint8_t> values;
};

/// Maps a frame to 8 bits by the window, and demosaics a Bayer pattern.
/// \param max_side  pixels; a frame with a longer side is downscaled by an integer factor, averaging pixels
shown_pixels shown(frame_view const& frame, value_window const& window, std::uint32_t max_side);

/// JPEG encoder. Reuses its compressor's memory; used by one thread at a time.
class jpeg_encoder {
public:
    /// \throws std::runtime_error if libjpeg-turbo cannot be initialised
    jpeg_encoder();
    ~jpeg_encoder();
    jpeg_encoder(jpeg_encoder const&) = delete;
    jpeg_encoder& operator=(jpeg_encoder const&) = delete;

    /// \return a JPEG file \throws std::runtime_error if the image cannot be encoded
    std::string encode(shown_pixels const& image);

private:
    void* turbo_;
};

}  // namespace mediagrabber
