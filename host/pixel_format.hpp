#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mediagrabber {

/// How a pixel format lies in memory and in a file. The codes are those of `MgGiMainCtx__GetFormat`.
struct pixel_format {
    std::uint8_t code;
    std::string_view codec;   ///< what the plug-in calls it when it publishes value 4
    std::string_view key;     ///< what a configuration calls it
    unsigned container_bits;  ///< bits that a pixel occupies in memory
    unsigned significant_bits;
    bool bayer;  ///< a mosaic of 2 x 2 pixels: red, green / green, blue

    /// Bytes of a line of `width` pixels without padding; every line begins on a whole byte.
    constexpr std::size_t line_bytes(std::uint32_t width) const {
        return (std::size_t{container_bits} * width + 7) / 8;
    }
};

/// All known formats: Mono8, Mono12Packed (GigE Vision's packing of two pixels in three bytes), Mono12 in 16-bit
/// little-endian containers, BayerRG8.
inline constexpr pixel_format pixel_formats[] = {
    {.code = 1, .codec = "MONO8T", .key = "mono8", .container_bits = 8, .significant_bits = 8, .bayer = false},
    {.code = 2, .codec = "MONO12PT", .key = "mono12p", .container_bits = 12, .significant_bits = 12, .bayer = false},
    {.code = 3, .codec = "MONO12T", .key = "mono12", .container_bits = 16, .significant_bits = 12, .bayer = false},
    {.code = 9, .codec = "BayerRG8T", .key = "bayer_rg8", .container_bits = 8, .significant_bits = 8, .bayer = true},
};

constexpr pixel_format const* pixel_format_of_codec(std::string_view codec) {
    for (pixel_format const& format : pixel_formats) {
        if (format.codec == codec) {
            return &format;
        }
    }
    return nullptr;
}

constexpr pixel_format const* pixel_format_of_code(std::uint8_t code) {
    for (pixel_format const& format : pixel_formats) {
        if (format.code == code) {
            return &format;
        }
    }
    return nullptr;
}

}  // namespace mediagrabber
