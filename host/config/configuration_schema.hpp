// SPDX-License-Identifier: MIT
#pragma once

#include <fmt/format.h>
#include <toml++/toml.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/configuration.hpp"

namespace mediagrabber {

/// What is needed for a changed value to take effect, in increasing order of effort.
enum class change_effect : std::uint8_t {
    live_update,      ///< the plug-in applies it after it has been notified of a change
    reconfiguration,  ///< the plug-in applies it to the running camera when it reconfigures
    restart,          ///< acquisition restarts: the plug-in's run ends, and another begins
    next_start,       ///< mediagrabber must be restarted
};

/// One key of the configuration file: its documentation, and functions that read it into a `target` and print it.
///
/// The schema is the only list of the keys. The file reader, `mediagrabber set`, `get`, `check`, `keys` and the live
/// page all iterate over it, so a new key is one entry here and one member of a configuration part.
template <typename target>
struct schema_key {
    std::string path;         ///< table and key, "image.width"
    std::string expects;      ///< valid values, "an integer from 1 to 65535"
    std::string json_schema;  ///< the same as a JSON schema, {"type": "integer", "minimum": 1, "maximum": 65535}
    std::string unit;         ///< empty: none
    std::string default_text;
    std::string meaning;
    std::string example;  ///< as TOML; empty if there is a default value
    std::string getter;   ///< host functions that return it; empty: only the host uses it
    change_effect effect = change_effect::live_update;
    /// Stores a value. \return whether it is valid; if not, `target` is unchanged
    std::function<bool(toml::node const&, target&)> read;
    /// The value as TOML; empty if it is not configured.
    std::function<std::string(target const&)> show;
    /// Whether two values have different meanings. If empty, values differ if show() prints them differently.
    std::function<bool(target const&, target const&)> differs;

    bool changed(target const& before, target const& after) const {
        return differs ? differs(before, after) : show(before) != show(after);
    }
};

using configuration_key = schema_key<configuration>;
using io_line_key = schema_key<io_line>;

/// All keys except those of [[line]], in the order of the manual.
std::vector<configuration_key> const& configuration_schema();
/// The keys of a [[line]] table.
std::vector<io_line_key> const& io_line_schema();

/// The error message for a value that a key refuses.
/// \param shown  the value as the user wrote it
template <typename target>
std::string invalid_value(schema_key<target> const& key, std::string_view shown) {
    return fmt::format("{}: {} is not valid, expected {}{}", key.path, shown, key.expects,
                       key.unit.empty() ? "" : fmt::format(" ({})", key.unit));
}

/// When a change takes effect, as in the manual: "while running".
std::string_view effect_text(change_effect effect);

/// All keys as a Markdown table, for the manual.
std::string configuration_reference();

/// The paths of the keys that have the effect `effect` and differ between two configurations. All [[line]] tables
/// together count as "line".
std::vector<std::string> changed_keys(configuration const& before, configuration const& after, change_effect effect);

}  // namespace mediagrabber
