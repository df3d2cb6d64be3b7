// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Values of features.

#include <cstdint>
#include <string>
#include <variant>

#include <nlohmann/json.hpp>

namespace gevctl {

/// Entries of enumerations are texts.
using feature_value = std::variant<bool, std::int64_t, double, std::string>;

std::string to_text(feature_value const& value);
nlohmann::ordered_json to_json(feature_value const& value);

/// Whether a camera that has `present` need not be set to `wanted`. Floats may differ by the rounding of a 32-bit
/// register; an integer is the same as a float with its value.
bool is_same(feature_value const& present, feature_value const& wanted);

}  // namespace gevctl
