// SPDX-License-Identifier: MIT
#include "config/renamed_keys.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <numeric>
#include <utility>
#include <vector>

#include "config/configuration_schema.hpp"

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

constexpr std::size_t max_compared = 64;  ///< characters; longer than any key

/// The number of characters to insert, delete or replace (Levenshtein), without regard to case.
/// \param to  at most max_compared characters
std::size_t distance(std::string_view from, std::string_view to) {
    auto const lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    std::array<std::size_t, max_compared + 1> row{};
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < to.size(); ++j) {
            std::size_t const replaced = diagonal + (lower(from[i]) == lower(to[j]) ? 0 : 1);
            diagonal = std::exchange(row[j + 1], std::min({replaced, row[j] + 1, row[j + 1] + 1}));
        }
    }
    return row[to.size()];
}

/// A part of a key, such as its table or its name alone, is as near as one wrong character.
std::size_t distance_to_key(std::string_view path, std::string const& key) {
    auto const name = std::string_view(key).substr(key.find('.') + 1);
    bool const is_part = path.size() > 2 && key.find(path) != key.npos;
    return is_part ? 1 : std::min(distance(path, key), distance(path, name) + 1);
}

/// At most three keys, the nearest first; none if all are too different to be meant.
std::vector<std::string> nearest_keys(std::string_view path) {
    constexpr std::size_t max_keys = 3;
    std::vector<std::pair<std::size_t, std::string>> found;
    for (auto const& key : configuration_schema()) {
        std::size_t const apart = distance_to_key(path.substr(0, max_compared), key.path);
        if (apart <= std::max<std::size_t>(2, path.size() / 3)) {
            found.emplace_back(apart, key.path);
        }
    }
    std::ranges::stable_sort(found, {}, [](auto const& one) { return one.first; });
    std::vector<std::string> names;
    for (std::size_t i = 0; i < std::min(max_keys, found.size()); ++i) {
        names.push_back(found[i].second);
    }
    return names;
}

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

std::string unknown_key(std::string_view path) {
    if (auto renaming = renaming_of_key(path)) {
        return *renaming;
    }
    auto const nearest = nearest_keys(path);
    return fmt::format("{}: unknown key; {}`mediagrabber keys` lists all", path,
                       nearest.empty() ? "" : fmt::format("did you mean {}? ", fmt::join(nearest, ", ")));
}

}  // namespace mediagrabber
