// SPDX-License-Identifier: MIT
#include "timing/packet_pacing.hpp"

#include <charconv>
#include <cmath>
#include <string_view>

namespace camsim {

namespace {

constexpr double bytes_per_megabyte = 1e6;

std::optional<double> parse_number(std::string_view text) {
    double number = 0.0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const complete = error == std::errc{} && end == text.data() + text.size() && std::isfinite(number);
    return complete ? std::optional(number) : std::nullopt;
}

}  // namespace

std::chrono::duration<double> packet_pacing::packet_interval(std::size_t packet_bytes, std::uint32_t packets,
                                                             std::chrono::duration<double> frame_period) const {
    switch (how) {
        case kind::rate:
            return std::chrono::duration<double>(static_cast<double>(packet_bytes) / value);
        case kind::spread:
            return frame_period * value / packets;
        case kind::burst:
            break;
    }
    return std::chrono::duration<double>(0);
}

std::optional<packet_pacing> parse_pacing(std::string const& text) {
    if (text == "burst") {
        return packet_pacing{packet_pacing::kind::burst, 0.0};
    }
    constexpr std::string_view spread = "spread:";
    if (text.starts_with(spread)) {
        auto const fraction = parse_number(std::string_view(text).substr(spread.size()));
        bool const valid = fraction && *fraction > 0.0 && *fraction <= 1.0;
        return valid ? std::optional(packet_pacing{packet_pacing::kind::spread, *fraction}) : std::nullopt;
    }
    auto const megabytes = parse_number(text);
    bool const valid = megabytes && *megabytes > 0.0;
    return valid ? std::optional(packet_pacing{packet_pacing::kind::rate, *megabytes * bytes_per_megabyte})
                 : std::nullopt;
}

}  // namespace camsim
