// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// The configuration as JSON, for programs and editors.

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "config/configuration.hpp"

namespace mediagrabber {

/// \param shown  as schema_key::show() prints it; empty: null
nlohmann::ordered_json json_of_value(std::string const& shown);

/// \return the values of a [[line]] table, without the name of the table
nlohmann::ordered_json json_of_line(io_line const& line);

/// The JSON schema (draft 2020-12) of a configuration file, for editors that check TOML files as they are written. What
/// it cannot state, such as limits in bytes and values that require each other, `mediagrabber check` does.
std::string configuration_json_schema();

}  // namespace mediagrabber
