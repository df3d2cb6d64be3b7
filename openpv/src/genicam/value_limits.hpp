// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Checks values against limits.

#include <cstdint>
#include <string>

#include <PvResult.h>

#include "genicam/PvGenParameter_impl.hpp"

namespace openpv {

/// Checks that a value is within its limits and a whole number of increments above the minimum. A value is refused, not
/// rounded, so a successful call sets exactly this value. Increments below 1 are treated as 1.
/// \param name of the parameter, for the description
/// \return OK, or INVALID_PARAMETER with the limits in the description
PvResult check_limits(std::string const& name, std::int64_t value, PvGenParameter::impl::integer_limits const& limits);
/// Checks that a value is within its limits. NaN never is.
PvResult check_limits(std::string const& name, double value, PvGenParameter::impl::float_limits const& limits);

/// As `check_limits`. \return the reason why the value is refused, without full stop; empty if it is allowed
std::string find_limit_error(std::int64_t value, PvGenParameter::impl::integer_limits const& limits);
std::string find_limit_error(double value, PvGenParameter::impl::float_limits const& limits);

/// \return the shortest text that converts back to the same number
std::string number_to_text(double value);

}  // namespace openpv
