#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

/// How the camera bends the brightness of its picture: a look-up table or a gamma, between the sensor's 12-bit values
/// and the pixel format.
namespace camsim {

inline constexpr std::size_t lut_entries = 256;
/// An entry of this value, the full scale rounded up, is as white as 4095; tables made from more bits contain it.
inline constexpr std::uint16_t largest_lut_value = 4096;

/// A table as the application writes it, on a 12-bit scale. Entry i is for the value 16 i.
using lut_table = std::array<std::uint16_t, lut_entries>;

enum class lut_channel : std::uint8_t { red, green, blue };
inline constexpr std::size_t lut_channels = 3;

/// What every pixel of a frame is bent by. It never changes once a frame has it, so that threads share it without a
/// lock.
struct lut_tables {
    std::uint64_t number = 0;  ///< counts the tables that frames had, from 1
    std::array<lut_table, lut_channels> channels;
};

/// The tone of a frame: a gamma, a table, or neither.
struct tone {
    std::optional<double> gamma{};
    std::shared_ptr<lut_tables const> lut{};

    friend bool operator==(tone const&, tone const&) = default;  // tables are the same when they are one object
};

/// The 12-bit value that each 12-bit value becomes.
inline constexpr std::size_t curve_points = 4096;
using tone_curve = std::array<std::uint16_t, curve_points>;

struct named_gamma {
    std::string_view name;  ///< as the feature JAIGamma spells it
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

lut_table straight_lut();
tone_curve curve_of(lut_table const& table);
tone_curve curve_of(double gamma);

}  // namespace camsim
