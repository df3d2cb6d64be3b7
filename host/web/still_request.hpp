// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>

#include "images/full_pixels.hpp"
#include "web/http_message.hpp"

namespace mediagrabber {

/// A request is not valid; the message is for the client.
class still_refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The query of a request for a frame in full depth.
struct still_request {
    std::optional<std::uint64_t> frame;  ///< this one; otherwise the latest
    std::uint64_t after = 0;             ///< the latest one but this
    bool colour = true;                  ///< demosaic a Bayer pattern
    bool in_8_bits = false;
    pixel_rectangle part;  ///< of a tile
    std::uint32_t by = 1;  ///< of a tile
};

/// The maximum number of values in a tile: bounds memory and time of one request.
constexpr std::uint64_t max_tile_values = 1U << 20U;

/// Reads `frame`, `after` and `colour`. \throws still_refused
still_request read_image_request(http_request const& request, bool may_have_8_bits);
/// Reads `frame`, `after`, `x`, `y`, `width`, `height` and `by`. \throws still_refused
still_request read_tile_request(http_request const& request);
/// \throws still_refused if the tile is not within the frame
void check_tile(still_request const& request, frame_record const& frame);

}  // namespace mediagrabber
