// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace mediagrabber {

/// A key of earlier versions.
struct renamed_key {
    std::string_view old_path;  ///< "output.keep_s"
    std::string_view new_path;
};

/// A value of earlier versions; `path` is the present name of its key.
struct renamed_value {
    std::string_view path;
    std::string_view old_value;
    std::string_view new_value;
};

std::span<renamed_key const> renamed_keys();
std::span<renamed_value const> renamed_values();

/// \return the error message for a key of earlier versions, nothing for any other
std::optional<std::string> renaming_of_key(std::string_view path);
/// \param value  a string, without quotes
/// \return the error message for a value of earlier versions, nothing for any other
std::optional<std::string> renaming_of_value(std::string_view path, std::string_view value);

/// The error message for a key that does not exist: its new name, or the known keys with the nearest names.
std::string unknown_key(std::string_view path);

}  // namespace mediagrabber
