// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace camsim {

/// Codes of the Pixel Format Naming Convention (PFNC). Bits 16 to 23 of a code are the bits that a pixel occupies.
enum class pixel_format : std::uint32_t {
    mono8 = 0x01080001,
    mono12_packed = 0x010C0006,  ///< the packing of GigE Vision; PFNC's Mono12p is another one
    mono12 = 0x01100005,
    bayer_rg8 = 0x01080009,
};

/// Colour filter arrays of sensors.
enum class cfa : std::uint8_t {
    none,      ///< monochrome
    bayer_rg,  ///< Bayer pattern: even lines R G R G, odd lines G B G B
};

/// A pixel format and its name.
struct named_pixel_format {
    std::string_view name;  ///< as in GenICam's PixelFormat enumeration
    pixel_format format;
};

/// The formats that the camera sends, in the order of its PixelFormat entries.
inline constexpr std::array<named_pixel_format, 4> pixel_formats{{
    {"Mono8", pixel_format::mono8},
    {"Mono12Packed", pixel_format::mono12_packed},
    {"Mono12", pixel_format::mono12},
    {"BayerRG8", pixel_format::bayer_rg8},
}};

constexpr std::uint32_t bits_per_pixel(pixel_format format) {
    return static_cast<std::uint32_t>(format) >> 16U & 0xFFU;
}

constexpr cfa cfa_of(pixel_format format) {
    return format == pixel_format::bayer_rg8 ? cfa::bayer_rg : cfa::none;
}

/// \return the GenICam name; empty for a code that is not in the enumeration
constexpr std::optional<std::string_view> name_of(pixel_format format) {
    for (named_pixel_format const& known : pixel_formats) {
        if (known.format == format) {
            return known.name;
        }
    }
    return std::nullopt;
}

/// \param name a GenICam name
constexpr std::optional<pixel_format> pixel_format_named(std::string_view name) {
    for (named_pixel_format const& known : pixel_formats) {
        if (known.name == name) {
            return known.format;
        }
    }
    return std::nullopt;
}

}  // namespace camsim
