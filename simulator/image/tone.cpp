// SPDX-License-Identifier: MIT
#include "image/tone.hpp"

#include <algorithm>
#include <cmath>

namespace camsim {

namespace {

constexpr int full_scale = curve_points - 1;
constexpr int values_per_entry = curve_points / lut_entries;

}  // namespace

lut_table identity_lut() {
    lut_table table{};
    for (std::size_t index = 0; index < table.size(); ++index) {
        table[index] = static_cast<std::uint16_t>(index * values_per_entry);
    }
    return table;
}

tone_curve curve_of(lut_table const& table) {
    tone_curve curve{};
    for (int value = 0; value <= full_scale; ++value) {
        auto const entry = static_cast<std::size_t>(value / values_per_entry);
        std::size_t const left = std::min(entry, lut_entries - 2);
        int const from = table[left];
        int const to = table[left + 1];
        int const offset = value - static_cast<int>(left) * values_per_entry;
        int const output =
            from + static_cast<int>(std::floor(static_cast<double>((to - from) * offset) / values_per_entry + 0.5));
        curve[static_cast<std::size_t>(value)] = static_cast<std::uint16_t>(std::clamp(output, 0, full_scale));
    }
    return curve;
}

tone_curve curve_of(double gamma) {
    tone_curve curve{};
    for (std::size_t value = 0; value < curve.size(); ++value) {
        double const fraction = static_cast<double>(value) / full_scale;
        curve[value] = static_cast<std::uint16_t>(std::lround(full_scale * std::pow(fraction, gamma)));
    }
    return curve;
}

}  // namespace camsim
