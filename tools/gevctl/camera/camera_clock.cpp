// SPDX-License-Identifier: MIT
#include "camera/camera_clock.hpp"

#include <algorithm>
#include <cmath>

namespace gevctl {

namespace {

std::int64_t round_trip(clock_reading const& one) {
    return one.after_ns - one.before_ns;
}

std::int64_t middle(clock_reading const& one) {
    return one.before_ns + round_trip(one) / 2;
}

std::int64_t uncertainty(clock_reading const& one) {
    return (round_trip(one) + 1) / 2;
}

std::int64_t offset(clock_reading const& one) {
    return one.camera_ns - middle(one);
}

}  // namespace

clock_comparison compare_clocks(std::vector<clock_reading> const& readings) {
    auto const quarter = static_cast<std::ptrdiff_t>(std::max<std::size_t>(readings.size() / 4, 1));
    auto const best = *std::ranges::min_element(readings, {}, round_trip);
    auto const first = *std::ranges::min_element(readings.begin(), readings.begin() + quarter, {}, round_trip);
    auto const last = *std::ranges::min_element(readings.end() - quarter, readings.end(), {}, round_trip);
    auto const seconds = static_cast<double>(middle(last) - middle(first)) / 1e9;
    clock_comparison found{offset(best), uncertainty(best), middle(best), 0, 0};
    if (seconds > 0) {  // ns per s are parts per billion
        found.drift_ppb = static_cast<double>(offset(last) - offset(first)) / seconds;
        found.drift_uncertainty_ppb = static_cast<double>(uncertainty(first) + uncertainty(last)) / seconds;
    }
    return found;
}

std::optional<std::uint64_t> frequency_of_unit(std::string_view unit) {
    if (unit == "ns") {
        return 1'000'000'000;
    }
    if (unit == "us") {
        return 1'000'000;
    }
    if (unit == "ms") {
        return 1000;
    }
    return unit == "s" ? std::optional<std::uint64_t>(1) : std::nullopt;
}

std::int64_t ticks_to_ns(std::uint64_t ticks, std::uint64_t frequency) {
    // Seconds and the remainder apart: a product of both would exceed 64 bits, and a double has only 53.
    constexpr std::uint64_t ns_per_s = 1'000'000'000;
    auto const remainder = static_cast<long double>(ticks % frequency) * ns_per_s / static_cast<long double>(frequency);
    return static_cast<std::int64_t>(ticks / frequency * ns_per_s + static_cast<std::uint64_t>(remainder));
}

std::uint64_t ns_to_ticks(std::int64_t ns, std::uint64_t frequency) {
    constexpr std::uint64_t ns_per_s = 1'000'000'000;
    auto const counted = static_cast<std::uint64_t>(ns);
    auto const remainder =
        static_cast<long double>(counted % ns_per_s) * static_cast<long double>(frequency) / ns_per_s;
    return counted / ns_per_s * frequency + static_cast<std::uint64_t>(std::llround(remainder));
}

}  // namespace gevctl
