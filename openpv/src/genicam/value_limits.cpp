// SPDX-License-Identifier: MIT
#include "genicam/value_limits.hpp"

#include <array>
#include <charconv>

namespace openpv {
namespace {

std::string to_text(std::int64_t value) {
    return std::to_string(value);
}
std::string to_text(double value) {
    return number_to_text(value);
}

template <class number, class limits_type>
PvResult check(std::string const& name, number value, limits_type const& limits) {
    std::string const reason = find_limit_error(value, limits);
    return reason.empty() ? PvResult()
                          : PvResult(PvResult::Code::INVALID_PARAMETER,
                                     (name + " cannot be set to " + to_text(value) + ": " + reason + ".").c_str());
}

/// Unsigned, because the distance between two 64-bit integers may exceed the signed type.
std::uint64_t distance(std::int64_t from, std::int64_t to) {
    return static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from);
}

}  // namespace

std::string number_to_text(double value) {
    std::array<char, 32> text{};
    auto const end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

std::string find_limit_error(std::int64_t value, PvGenParameter::impl::integer_limits const& limits) {
    if (value < limits.minimum || value > limits.maximum) {
        return "it must be from " + to_text(limits.minimum) + " to " + to_text(limits.maximum);
    }
    if (limits.increment > 1 && distance(limits.minimum, value) % static_cast<std::uint64_t>(limits.increment) != 0) {
        return "it must be " + to_text(limits.minimum) + " plus a multiple of " + to_text(limits.increment);
    }
    return {};
}

std::string find_limit_error(double value, PvGenParameter::impl::float_limits const& limits) {
    if (!(value >= limits.minimum && value <= limits.maximum)) {
        return "it must be from " + to_text(limits.minimum) + " to " + to_text(limits.maximum);
    }
    return {};
}

PvResult check_limits(std::string const& name, std::int64_t value, PvGenParameter::impl::integer_limits const& limits) {
    return check(name, value, limits);
}

PvResult check_limits(std::string const& name, double value, PvGenParameter::impl::float_limits const& limits) {
    return check(name, value, limits);
}

}  // namespace openpv
