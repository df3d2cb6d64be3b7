#include "tone.hpp"

#include <algorithm>
#include <cmath>

namespace camsim {

namespace {

constexpr int full_scale = curve_points - 1;
constexpr int values_per_entry = curve_points / lut_entries;

}  // namespace

/// The table that changes nothing.
lut_table straight_lut() {
    lut_table table{};
    for (std::size_t index = 0; index < table.size(); ++index) {
        table[index] = static_cast<std::uint16_t>(index * values_per_entry);
    }
    return table;
}

/// Values between two entries lie on the straight line between them, so that a table pulls apart what an 8-bit picture
/// would not tell from each other. Beyond the last entry its line goes on.
tone_curve curve_of(lut_table const& table) {
    tone_curve curve{};
    for (int value = 0; value <= full_scale; ++value) {
        auto const entry = static_cast<std::size_t>(value / values_per_entry);
        std::size_t const left = std::min(entry, lut_entries - 2);
        int const from = table[left];
        int const to = table[left + 1];
        int const beyond = value - static_cast<int>(left) * values_per_entry;
        int const bent =
            from + static_cast<int>(std::floor(static_cast<double>((to - from) * beyond) / values_per_entry + 0.5));
        curve[static_cast<std::size_t>(value)] = static_cast<std::uint16_t>(std::clamp(bent, 0, full_scale));
    }
    return curve;
}

/// Black and white stay; below 1 a gamma brightens what is between them.
tone_curve curve_of(double gamma) {
    tone_curve curve{};
    for (std::size_t value = 0; value < curve.size(); ++value) {
        double const share = static_cast<double>(value) / full_scale;
        curve[value] = static_cast<std::uint16_t>(std::lround(full_scale * std::pow(share, gamma)));
    }
    return curve;
}

}  // namespace camsim
