// SPDX-License-Identifier: MIT
#pragma once

#include <toml++/toml.h>

#include <string>

namespace mediagrabber {

/// Parses a value of a command line. Text that is not valid TOML is a string, so that quotes can be omitted there.
/// \return a table with the value at "value"
inline toml::table parse_value(std::string const& text) {
    try {
        toml::table parsed = toml::parse("value = " + text);
        if (parsed.size() == 1 && text.find_first_of("\r\n#") == text.npos) {
            return parsed;
        }
    } catch (toml::parse_error const&) {
        // a string
    }
    return toml::table{{"value", text}};
}

}  // namespace mediagrabber
