// SPDX-License-Identifier: MIT
#include "config/renamed_keys.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace mediagrabber {

namespace {

constexpr std::array keys{
    renamed_key{"image.rotate", "image.rotation_deg"},
    renamed_key{"transport.packet_size", "transport.packet_size_bytes"},
    renamed_key{"timing.frame_rate", "timing.frame_rate_hz"},
    renamed_key{"timing.clock_correction", "timing.clock_correction_ppb"},
    renamed_key{"exposure.mode", "exposure.auto"},
    renamed_key{"gain.mode", "gain.auto"},
    renamed_key{"output.keep_s", "pretrigger.seconds"},
    renamed_key{"output.keep_when_lost", "pretrigger.trigger_on_loss"},
    renamed_key{"mqtt.queue", "mqtt.queue_frames"},
};

constexpr std::array values{
    renamed_value{"image.format", "mono8", "Mono8"},
    renamed_value{"image.format", "mono12p", "Mono12Packed"},
    renamed_value{"image.format", "mono12", "Mono12"},
    renamed_value{"image.format", "bayer_rg8", "BayerRG8"},
    renamed_value{"image.convert_to", "mono8", "Mono8"},
    renamed_value{"image.convert_to", "mono12p", "Mono12Packed"},
    renamed_value{"image.convert_to", "mono12", "Mono12"},
    renamed_value{"image.convert_to", "bayer_rg8", "BayerRG8"},
    renamed_value{"exposure.auto", "untouched", "unchanged"},
    renamed_value{"exposure.auto", "manual", "Off"},
    renamed_value{"exposure.auto", "auto", "Continuous"},
    renamed_value{"gain.auto", "untouched", "unchanged"},
    renamed_value{"gain.auto", "manual", "Off"},
    renamed_value{"gain.auto", "auto", "Continuous"},
    renamed_value{"line.source", "low", "Low"},
    renamed_value{"line.source", "exposure_active", "ExposureActive"},
};

}  // namespace

std::span<renamed_key const> renamed_keys() {
    return keys;
}

std::span<renamed_value const> renamed_values() {
    return values;
}

std::optional<std::string> renaming_of_key(std::string_view path) {
    auto const* const found = std::ranges::find(keys, path, &renamed_key::old_path);
    if (found == keys.end()) {
        return std::nullopt;
    }
    return fmt::format("\"{}\" was renamed to \"{}\"", path, found->new_path);
}

std::optional<std::string> renaming_of_value(std::string_view path, std::string_view value) {
    auto const* const found = std::ranges::find_if(
        values, [&](renamed_value const& one) { return one.path == path && one.old_value == value; });
    if (found == values.end()) {
        return std::nullopt;
    }
    return fmt::format("{}: the value \"{}\" was renamed to \"{}\"", path, value, found->new_value);
}

}  // namespace mediagrabber
