#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace camsim {

/// Codes of the Pixel Format Naming Convention (PFNC); bits 16 to 23 of a code are the bits that a pixel occupies.
enum class pixel_format : std::uint32_t {
    mono8 = 0x01080001,
    mono12_packed = 0x010C0006,  ///< GigE Vision's own packing, not PFNC's Mono12p
    mono12 = 0x01100005,
    bayer_rg8 = 0x01080009,
};

struct named_pixel_format {
    std::string_view name;  ///< as GenICam's PixelFormat enumeration spells it
    pixel_format format;
};

inline constexpr std::array<named_pixel_format, 4> pixel_formats{{
    {"Mono8", pixel_format::mono8},
    {"Mono12Packed", pixel_format::mono12_packed},
    {"Mono12", pixel_format::mono12},
    {"BayerRG8", pixel_format::bayer_rg8},
}};

constexpr std::uint32_t bits_per_pixel(pixel_format format) {
    return static_cast<std::uint32_t>(format) >> 16U & 0xFFU;
}

constexpr std::optional<std::string_view> name_of(pixel_format format) {
    for (named_pixel_format const& known : pixel_formats) {
        if (known.format == format) {
            return known.name;
        }
    }
    return std::nullopt;
}

constexpr std::optional<pixel_format> pixel_format_named(std::string_view name) {
    for (named_pixel_format const& known : pixel_formats) {
        if (known.name == name) {
            return known.format;
        }
    }
    return std::nullopt;
}

}  // namespace camsim
