// SPDX-License-Identifier: MIT
#include "config/settings.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "config/configuration_file.hpp"
#include "config/renamed_keys.hpp"
#include "config/toml_value.hpp"

namespace mediagrabber {

namespace {

configuration_key const* find_key(std::string const& path) {
    auto const& schema = configuration_schema();
    auto const found = std::find_if(schema.begin(), schema.end(), [&](auto const& key) { return key.path == path; });
    return found == schema.end() ? nullptr : &*found;
}

configuration_key const& known_key(std::string const& path, change_effect max_effect) {
    auto const* const key = find_key(path);
    if (key == nullptr) {
        throw setting_refused(exit_status::usage, unknown_key(path));
    }
    if (key->effect > max_effect) {
        bool const by_reload = key->effect == change_effect::restart;
        throw setting_refused(
            exit_status::not_changeable,
            fmt::format("{}: cannot be changed while frames arrive; edit the configuration file and {}", path,
                        by_reload ? "reload it (SIGHUP), or use --restart" : "restart mediagrabber"));
    }
    return *key;
}

void apply_one(setting const& one, configuration& to, change_effect max_effect) {
    auto const& key = known_key(one.path, max_effect);
    auto const parsed = parse_value(one.value);
    auto const& node = *parsed.get("value");
    if (!key.read(node, to)) {
        auto const text = node.value_exact<std::string>();
        auto const renaming = text ? renaming_of_value(one.path, *text) : std::nullopt;
        throw setting_refused(exit_status::usage, renaming.value_or(invalid_value(key, one.value)));
    }
}

/// Relative paths are refused, because the recording and the client may have different working directories.
void read_lut(configuration& values) {
    if (values.tone.has_lut_file() && !std::filesystem::path(*values.tone.lut_file).is_absolute()) {
        throw setting_refused(exit_status::usage, fmt::format("tone.lut: {} is not valid, expected an absolute path",
                                                              *values.tone.lut_file));
    }
    try {
        read_named_files(values, "/");
    } catch (std::runtime_error const& error) {
        throw setting_refused(exit_status::usage, fmt::format("tone.lut: {}", error.what()));
    }
}

}  // namespace

setting parse_setting(std::string const& text) {
    auto const equals = text.find('=');
    if (equals == text.npos || equals == 0) {
        throw setting_refused(exit_status::usage, fmt::format("\"{}\": expected KEY=VALUE", text));
    }
    return {.path = text.substr(0, equals), .value = text.substr(equals + 1)};
}

void apply_settings(std::vector<setting> const& settings, configuration& to, change_effect max_effect) {
    loaded_configuration changed{.values = to, .origins = {}};
    for (auto const& one : settings) {
        if (changed.origins.contains(one.path)) {
            throw setting_refused(exit_status::usage, fmt::format("{}: given twice", one.path));
        }
        apply_one(one, changed.values, max_effect);
        changed.origins[one.path] = {};
    }
    bool const other_lut = changed.origins.contains("tone.lut") || changed.origins.contains("tone.lut_bits");
    if (other_lut) {
        read_lut(changed.values);
    }
    auto const unused = unused_values(changed);
    if (!unused.empty()) {
        throw setting_refused(exit_status::usage, unused.front());
    }
    to = changed.values;
}

change_effect needed_for(std::vector<setting> const& settings) {
    auto needed = change_effect::live_update;
    for (auto const& one : settings) {
        auto const* const key = find_key(one.path);
        needed = key == nullptr ? needed : std::max(needed, key->effect);
    }
    return needed;
}

}  // namespace mediagrabber
