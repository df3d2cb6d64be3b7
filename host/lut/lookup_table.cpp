// SPDX-License-Identifier: MIT
#include "lut/lookup_table.hpp"

#include <fmt/format.h>

#include <cmath>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

namespace mediagrabber {

namespace {

constexpr double table_full_scale = (1U << lut_value_bits) - 1U;
constexpr std::size_t max_reported_entries = 65'535;  ///< the size is a std::uint16_t on the host interface

void check_length(std::size_t count) {
    if (count < min_lut_entries || count > max_lut_entries) {
        throw std::runtime_error(
            fmt::format("has {} entries, expected {} to {}", count, min_lut_entries, max_lut_entries));
    }
}

double full_scale_of(raw_lut const& raw, std::optional<unsigned> bits) {
    return raw.bits ? static_cast<double>((1U << bits.value_or(*raw.bits)) - 1U) : 1.0;
}

void check_values(raw_lut const& raw, double full_scale) {
    for (std::size_t i = 0; i < raw.values.size(); ++i) {
        // Negated, so that NaN fails as well.
        if (!(raw.values[i] >= 0.0 && raw.values[i] <= full_scale)) {
            throw std::runtime_error(
                fmt::format("entry {} is {:f}, expected 0 to {}", i, raw.values[i], static_cast<long>(full_scale)));
        }
    }
}

std::vector<double> thinned(std::vector<double> const& values, std::size_t step) {
    std::vector<double> remaining;
    for (std::size_t i = 0; i < values.size(); i += step) {
        remaining.push_back(values[i]);
    }
    return remaining;
}

std::vector<double> interpolated(std::vector<double> const& values, std::size_t count) {
    std::vector<double> between(count);
    for (std::size_t i = 0; i < count; ++i) {
        double const place =
            static_cast<double>(i) * static_cast<double>(values.size() - 1) / static_cast<double>(count - 1);
        auto const below = static_cast<std::size_t>(place);
        std::size_t const above = std::min(below + 1, values.size() - 1);
        between[i] = std::lerp(values[below], values[above], place - static_cast<double>(below));
    }
    return between;
}

std::vector<double> with_supported_size(std::vector<double> const& values) {
    if (values.size() % min_lut_entries != 0) {
        return interpolated(values, min_lut_entries);
    }
    return values.size() > max_reported_entries ? thinned(values, 2) : values;
}

}  // namespace

lookup_table scaled_lut(raw_lut const& raw, std::optional<unsigned> bits) {
    check_length(raw.values.size());
    double const full_scale = full_scale_of(raw, bits);
    check_values(raw, full_scale);
    lookup_table table;
    for (double const value : with_supported_size(raw.values)) {
        table.push_back(static_cast<std::uint16_t>(std::lround(value / full_scale * table_full_scale)));
    }
    return table;
}

lookup_table const* interned_lut(lookup_table table) {
    static std::mutex mutex;
    static std::set<lookup_table> tables;
    std::lock_guard const lock(mutex);
    return &*tables.insert(std::move(table)).first;
}

}  // namespace mediagrabber
