// SPDX-License-Identifier: MIT
#include "features/feature_value.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include "genicam/value_limits.hpp"

namespace gevctl {

std::string to_text(feature_value const& value) {
    if (auto const* const truth = std::get_if<bool>(&value)) {
        return *truth ? "true" : "false";
    }
    if (auto const* const integer = std::get_if<std::int64_t>(&value)) {
        return std::to_string(*integer);
    }
    auto const* const real = std::get_if<double>(&value);
    return real != nullptr ? openpv::number_to_text(*real) : std::get<std::string>(value);
}

nlohmann::ordered_json to_json(feature_value const& value) {
    return std::visit([](auto const& one) { return nlohmann::ordered_json(one); }, value);
}

namespace {

/// \return null for a value that is not a number
std::optional<double> number_of(feature_value const& value) {
    if (auto const* const integer = std::get_if<std::int64_t>(&value)) {
        return static_cast<double>(*integer);
    }
    auto const* const real = std::get_if<double>(&value);
    return real != nullptr ? std::optional(*real) : std::nullopt;
}

}  // namespace

bool is_same(feature_value const& present, feature_value const& wanted) {
    auto const one = number_of(present);
    auto const other = number_of(wanted);
    if (present.index() == wanted.index() && !std::holds_alternative<double>(present)) {
        return present == wanted;  // integers of 64 bits exactly
    }
    if (!one || !other) {
        return false;
    }
    constexpr double float_precision = 1e-7;  // a float has 24 bits: 6e-8
    return std::abs(*one - *other) <= float_precision * std::max(std::abs(*one), std::abs(*other));
}

}  // namespace gevctl
