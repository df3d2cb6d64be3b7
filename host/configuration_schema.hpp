#pragma once

#include <toml++/toml.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "configuration.hpp"

namespace mediagrabber {

/// What it takes to bring a changed value into force; the more it takes, the later it stands.
enum class change_effect : std::uint8_t {
    small_change,     ///< the plug-in applies it when it is told that something has changed
    reconfiguration,  ///< the plug-in applies it to the running camera when it is told to reconfigure
    new_run,          ///< the plug-in's run ends and begins again with it
    next_start,       ///< mediagrabber has to be started again
};

/// One key of a configuration file: what it means, and how it gets into a `target` and out of it.
template <typename target>
struct schema_key {
    std::string path;     ///< table and key, "image.width"
    std::string expects;  ///< what a value has to be, "an integer from 1 to 65535"
    std::string unit;     ///< empty: none
    std::string default_text;
    std::string meaning;
    std::string getter;  ///< the host functions that answer with it; empty: the host itself uses it
    change_effect effect = change_effect::small_change;
    /// Takes the value over. \return whether it is what is expected; if not, `target` is unchanged
    std::function<bool(toml::node const&, target&)> read;
    /// The value in force as TOML, empty when nothing is configured.
    std::function<std::string(target const&)> show;
    /// Whether two values mean different things; empty: when they are shown differently.
    std::function<bool(target const&, target const&)> differs;

    bool changed(target const& before, target const& after) const {
        return differs ? differs(before, after) : show(before) != show(after);
    }
};

using configuration_key = schema_key<configuration>;
using io_line_key = schema_key<io_line>;

/// Every key outside of [[line]], in the order of the documentation.
std::vector<configuration_key> const& configuration_schema();
/// Every key of a [[line]] table.
std::vector<io_line_key> const& io_line_schema();

/// All keys as a Markdown table: the reference in the manual is this text.
std::string configuration_reference();

/// Paths of the keys whose values differ and whose change has the effect `effect`; [[line]] counts as "line".
std::vector<std::string> changed_keys(configuration const& before, configuration const& after, change_effect effect);

}  // namespace mediagrabber
