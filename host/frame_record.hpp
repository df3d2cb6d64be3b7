#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pixel_format.hpp"

namespace mediagrabber {

/// What is known of a frame beside its pixels, as the plug-in published it. An empty optional was not published.
struct frame_record {
    std::uint64_t number = 0;  ///< counts the frames that were handed over in this recording, from 1; lost ones too
    std::uint64_t timestamp_us = 0;             ///< host time base
    std::uint64_t handed_over_us = 0;           ///< host time base: when the plug-in gave the frame out of its hands
    std::optional<std::uint64_t> announced_us;  ///< the timestamp that was announced for the frame before it came
    std::optional<std::uint64_t> ticks;         ///< camera clock
    std::optional<float> gain_db;
    std::optional<float> exposure_us;
    std::optional<std::uint32_t> counter;  ///< exposure start counter
    std::optional<float> temperature_c;
    std::uint32_t width = 0;   ///< pixels
    std::uint32_t height = 0;  ///< pixels
    std::uint32_t stride = 0;  ///< bytes from line to line in memory
    pixel_format const* format = nullptr;

    /// Bytes from the first pixel to the last.
    std::size_t bytes() const {
        return height == 0 ? 0 : std::size_t{stride} * (height - 1) + format->line_bytes(width);
    }
};

/// A frame: its record, and its pixels for the length of a call.
struct frame_view {
    frame_record const& record;
    std::span<std::byte const> pixels;  ///< record.bytes() of them
};

}  // namespace mediagrabber
