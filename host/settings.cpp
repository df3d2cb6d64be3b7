#include "settings.hpp"

#include <algorithm>
#include <memory>

#include "configuration_file.hpp"

namespace mediagrabber {

namespace {

configuration_key const* find_key(std::string const& path) {
    auto const& schema = configuration_schema();
    auto const found = std::find_if(schema.begin(), schema.end(), [&](auto const& key) { return key.path == path; });
    return found == schema.end() ? nullptr : &*found;
}

std::string changeable_keys(change_effect most) {
    std::string list;
    for (auto const& key : configuration_schema()) {
        list += key.effect <= most ? (list.empty() ? "" : ", ") + key.path : "";
    }
    return list;
}

configuration_key const& known_key(std::string const& path, change_effect most) {
    auto const* const key = find_key(path);
    if (key == nullptr) {
        throw setting_refused(exit_status::usage, path + ": unknown, expected one of " + changeable_keys(most));
    }
    if (key->effect > most) {
        bool const by_reload = key->effect == change_effect::new_run;
        throw setting_refused(
            exit_status::not_changeable,
            path + ": can't be changed while frames arrive, " +
                (by_reload ? "change the configuration file and reload it (SIGHUP), or give --another-run"
                           : "change the configuration file and start mediagrabber again"));
    }
    return *key;
}

/// What a text means as TOML; what is no TOML is a text.
std::unique_ptr<toml::node> node_of(std::string const& text) {
    try {
        toml::table parsed = toml::parse("value = " + text);
        if (parsed.size() == 1 && text.find_first_of("\r\n#") == text.npos) {
            return std::make_unique<toml::table>(std::move(parsed));
        }
    } catch (toml::parse_error const&) {
    }
    return std::make_unique<toml::table>(toml::table{{"value", text}});
}

void apply_one(setting const& one, configuration& to, change_effect most) {
    auto const& key = known_key(one.path, most);
    auto const parsed = node_of(one.value);
    if (!key.read(*parsed->as_table()->get("value"), to)) {
        throw setting_refused(exit_status::usage, one.path + ": " + one.value + " is refused, expected " + key.expects +
                                                      (key.unit.empty() ? "" : " (" + key.unit + ")"));
    }
}

/// The recording does not know what directory a relative name was meant in.
void read_table(configuration& values) {
    if (values.lut_file && !std::filesystem::path(*values.lut_file).is_absolute()) {
        throw setting_refused(exit_status::usage,
                              "tone.lut: " + *values.lut_file + " is refused, expected a whole path");
    }
    try {
        read_named_files(values, "/");
    } catch (std::runtime_error const& error) {
        throw setting_refused(exit_status::usage, std::string("tone.lut: ") + error.what());
    }
}

}  // namespace

setting parse_setting(std::string const& text) {
    auto const equals = text.find('=');
    if (equals == text.npos || equals == 0) {
        throw setting_refused(exit_status::usage, "\"" + text + "\": expected KEY=VALUE");
    }
    return {.path = text.substr(0, equals), .value = text.substr(equals + 1)};
}

void apply_settings(std::vector<setting> const& settings, configuration& to, change_effect most) {
    loaded_configuration changed{.values = to, .origins = {}};
    for (auto const& one : settings) {
        if (changed.origins.contains(one.path)) {
            throw setting_refused(exit_status::usage, one.path + ": given twice");
        }
        apply_one(one, changed.values, most);
        changed.origins[one.path] = {};
    }
    bool const other_table = changed.origins.contains("tone.lut") || changed.origins.contains("tone.lut_bits");
    if (other_table) {
        read_table(changed.values);
    }
    auto const unused = unused_values(changed);
    if (!unused.empty()) {
        throw setting_refused(exit_status::usage, unused.front());
    }
    to = changed.values;
}

change_effect needed_for(std::vector<setting> const& settings) {
    auto most = change_effect::small_change;
    for (auto const& one : settings) {
        auto const* const key = find_key(one.path);
        most = key == nullptr ? most : std::max(most, key->effect);
    }
    return most;
}

}  // namespace mediagrabber
