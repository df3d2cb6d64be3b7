// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "clock/frame_clock.hpp"
#include "frames/frame_format.hpp"

namespace mediagrabber {

/// The metadata of a frame, as the plug-in published it. An empty optional was not published.
struct frame_record {
    std::uint64_t number = 0;          ///< counts the exported frames of this recording from 1, including dropped ones
    std::uint64_t timestamp_us = 0;    ///< us since 1970, on the host time base
    std::uint64_t handed_over_us = 0;  ///< us since 1970: when the plug-in exported the frame
    std::optional<std::uint64_t> announced_us;  ///< the timestamp that was announced before the frame arrived
    std::optional<std::uint64_t> ticks;         ///< camera clock
    std::optional<exposure_time> exposed;       ///< when the exposure began, estimated from `ticks` and arrivals
    std::optional<float> gain_db;
    std::optional<float> exposure_us;
    std::optional<std::uint32_t> counter;  ///< exposure start counter
    std::optional<float> temperature_c;
    std::uint32_t width = 0;   ///< pixels
    std::uint32_t height = 0;  ///< pixels
    std::uint32_t stride = 0;  ///< bytes from the beginning of a line to that of the next
    frame_format const* format = nullptr;

    /// Bytes from the first pixel to the last one, without padding behind the last line.
    std::size_t bytes() const {
        return height == 0 ? 0 : std::size_t{stride} * (height - 1) + format->line_bytes(width);
    }
};

/// A frame: its record and its pixels, both valid only during a call.
struct frame_view {
    frame_record const& record;
    std::span<std::byte const> pixels;  ///< record.bytes() bytes; empty: without pixels
};

}  // namespace mediagrabber
