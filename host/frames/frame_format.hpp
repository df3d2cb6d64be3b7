// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "mg_host_api.hpp"

namespace mediagrabber {

using mg_host_api::format_code;

/// The colour filter array (CFA) on the sensor.
enum class colour_filter : std::uint8_t {
    none,      ///< monochrome
    bayer_rg,  ///< cells of 2 x 2 pixels: red, green / green, blue
};

/// The layout of a pixel format in memory and in files. The codes are the return values of `MgGiMainCtx__GetFormat`.
struct frame_format {
    format_code code;
    std::string_view codec;   ///< the plug-in's name, published as parameter 4
    std::string_view name;    ///< of GenICam's PixelFormat enumeration
    unsigned container_bits;  ///< bits per pixel in memory
    unsigned significant_bits;
    colour_filter cfa;

    /// Bytes of a line of `width` pixels without padding; every line begins at a byte boundary.
    constexpr std::size_t line_bytes(std::uint32_t width) const {
        return (std::size_t{container_bits} * width + 7) / 8;
    }
};

/// All known formats. Mono12Packed is GigE Vision's packing, two pixels in three bytes; Mono12 has 16-bit little-endian
/// containers.
inline constexpr frame_format frame_formats[] = {
    {.code = format_code::Mono8,
     .codec = "MONO8T",
     .name = "Mono8",
     .container_bits = 8,
     .significant_bits = 8,
     .cfa = colour_filter::none},
    {.code = format_code::Mono12Packed,
     .codec = "MONO12PT",
     .name = "Mono12Packed",
     .container_bits = 12,
     .significant_bits = 12,
     .cfa = colour_filter::none},
    {.code = format_code::Mono12,
     .codec = "MONO12T",
     .name = "Mono12",
     .container_bits = 16,
     .significant_bits = 12,
     .cfa = colour_filter::none},
    {.code = format_code::BayerRG8,
     .codec = "BayerRG8T",
     .name = "BayerRG8",
     .container_bits = 8,
     .significant_bits = 8,
     .cfa = colour_filter::bayer_rg},
};

/// \return null for an unknown codec
constexpr frame_format const* frame_format_of_codec(std::string_view codec) {
    for (frame_format const& format : frame_formats) {
        if (format.codec == codec) {
            return &format;
        }
    }
    return nullptr;
}

/// \return null for an unknown name
constexpr frame_format const* frame_format_named(std::string_view name) {
    for (frame_format const& format : frame_formats) {
        if (format.name == name) {
            return &format;
        }
    }
    return nullptr;
}

/// \return null for format_code::none and unknown codes
constexpr frame_format const* frame_format_of_code(format_code code) {
    for (frame_format const& format : frame_formats) {
        if (format.code == code) {
            return &format;
        }
    }
    return nullptr;
}

}  // namespace mediagrabber
