#pragma once
/// \file
/// Whether a value may be set: a value outside its limits is refused, never moved inside.

#include <cstdint>
#include <string>

#include <PvResult.h>

#include "PvGenParameter_impl.hpp"

namespace openpv {

/// Within the limits, and a whole number of increments above the minimum.
PvResult check_limits(std::string const& name, int64_t value, PvGenParameter::impl::integer_limits const& limits);
/// Within the limits; not-a-number never is.
PvResult check_limits(std::string const& name, double value, PvGenParameter::impl::float_limits const& limits);

/// Shortest text that reads back as the same number.
std::string number_to_text(double value);

}  // namespace openpv
