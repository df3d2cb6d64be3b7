// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

/// Tone mapping: a look-up table (LUT) or a gamma, applied to the sensor's 12-bit values before the pixel format is
/// encoded.
namespace camsim {

inline constexpr std::size_t lut_entries = 256;

/// A LUT as the application writes it. Entry i is the 12-bit output for input 16 * i; values above 4095 are white too.
using lut_table = std::array<std::uint16_t, lut_entries>;

enum class lut_channel : std::uint8_t { red, green, blue };
inline constexpr std::size_t lut_channels = 3;

/// The LUTs of a frame. Immutable once a frame refers to them, so threads share them without a lock.
struct lut_tables {
    std::uint64_t number = 0;  ///< counts the LUTs that frames have used, from 1
    std::array<lut_table, lut_channels> channels;
};

/// The tone mapping of a frame: a gamma, a LUT, or neither.
struct tone {
    std::optional<double> gamma{};
    std::shared_ptr<lut_tables const> lut{};

    friend bool operator==(tone const&, tone const&) = default;  // compares the address of the LUTs
};

/// The 12-bit output for each 12-bit input.
inline constexpr std::size_t curve_points = 4096;
using tone_curve = std::array<std::uint16_t, curve_points>;

/// An entry of the feature JAIGamma.
struct named_gamma {
    std::string_view name;  ///< as in the feature JAIGamma
    double gamma;
};

inline constexpr std::array<named_gamma, 12> gammas{{
    {"Gamma045", 0.45},
    {"Gamma050", 0.50},
    {"Gamma055", 0.55},
    {"Gamma060", 0.60},
    {"Gamma065", 0.65},
    {"Gamma070", 0.70},
    {"Gamma075", 0.75},
    {"Gamma080", 0.80},
    {"Gamma085", 0.85},
    {"Gamma090", 0.90},
    {"Gamma095", 0.95},
    {"Gamma100", 1.00},
}};

/// The LUT that maps each value to itself.
lut_table identity_lut();

/// Interpolates linearly between entries, and extrapolates after the last one.
tone_curve curve_of(lut_table const& table);

/// Black and white stay; a gamma below 1 brightens the values between them.
tone_curve curve_of(double gamma);

}  // namespace camsim
