// SPDX-License-Identifier: MIT
#include "timing/network_delay.hpp"

#include <charconv>
#include <string_view>

namespace camsim {

namespace {

constexpr double max_ms = 10'000.0;  // rejects typing errors, such as microseconds

std::optional<double> parse_milliseconds(std::string_view text) {
    double number = 0.0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const complete = error == std::errc{} && end == text.data() + text.size();
    return complete && number >= 0.0 && number <= max_ms ? std::optional(number) : std::nullopt;
}

bool varies(network_delay_settings const& settings) {
    return settings.any() && settings.deviation_ms > 0.0;
}

/// The shape is (mean / deviation)^2 and the scale deviation^2 / mean.
std::gamma_distribution<double> distribution(network_delay_settings const& settings) {
    if (!varies(settings)) {
        return {};
    }
    double const ratio = settings.mean_ms / settings.deviation_ms;
    return std::gamma_distribution<double>(ratio * ratio, settings.deviation_ms / ratio);
}

}  // namespace

std::optional<network_delay_settings> parse_network_delay(std::string const& text) {
    std::string_view const all = text;
    std::size_t const colon = all.find(':');
    auto const mean = parse_milliseconds(all.substr(0, colon));
    auto const deviation =
        colon == std::string_view::npos ? std::optional(0.0) : parse_milliseconds(all.substr(colon + 1));
    if (!mean || !deviation || (*mean == 0.0 && *deviation > 0.0)) {
        return std::nullopt;
    }
    return network_delay_settings{.mean_ms = *mean, .deviation_ms = *deviation};
}

network_delay::network_delay(network_delay_settings const& settings, std::uint64_t seed)
    : settings_(settings), random_(seed), milliseconds_(distribution(settings)) {}

std::chrono::nanoseconds network_delay::next() {
    double const delay = varies(settings_) ? milliseconds_(random_) : settings_.mean_ms;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double, std::milli>(delay));
}

}  // namespace camsim
