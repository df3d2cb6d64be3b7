// SPDX-License-Identifier: MIT
#pragma once
#include <PvImage.h>

#include <cstdint>

#include "mg_host_api.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

using mg_host_api::format_code;

/// Colour filter array of the sensor, as far as a format shows it.
enum class color_filter : uint8_t { none, bayerRg };

/// One pixel format: its numbers and names on the host's and the camera's side, and its layout in memory.
///
/// The known formats are constants of the program: use them through `PixelFormat__Find`, compare them by `code`.
struct pixel_format {
    format_code code;
    char const* name;         ///< codec, the name of the format on the host interface
    char const* printedName;  ///< in messages
    PvPixelType type;         ///< value of the camera's "PixelFormat"
    uint8_t containerBits;    ///< bits that a pixel occupies in memory
    uint8_t significantBits;
    color_filter filter;    ///< none: monochrome
    bool fallsBackToMono8;  ///< whether Mono8 replaces it on a camera that refuses it

    /// \param width in pixels
    /// \return bytes of a line; every line starts on a whole byte
    constexpr uint64_t lineBytes(uint32_t width) const { return (uint64_t{containerBits} * width + 7) / 8; }
    /// \param width in pixels
    /// \param height in pixels
    /// \return bytes of a frame without padding
    constexpr uint64_t frameBytes(uint32_t width, uint32_t height) const { return lineBytes(width) * height; }
};

/// \name Lookup
/// \param code number of the format on the host's interface
/// \return the format, which lives as long as the program; null: the code stands for none
/// @{
pixel_format const* PixelFormat__Find(uint8_t code);
inline pixel_format const* PixelFormat__Find(format_code code) {
    return PixelFormat__Find(value_of(code));
}
/// @}

}  // namespace Vorn::Support::MediaGrabber::Jai
