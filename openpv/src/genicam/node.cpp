// SPDX-License-Identifier: MIT
#include "genicam/node.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include "genicam/formula.hpp"
#include "genicam/register_window.hpp"

namespace openpv {

std::optional<node_access> parse_node_access(std::string_view text) {
    if (text == "RO") {
        return node_access::read_only;
    }
    if (text == "WO") {
        return node_access::write_only;
    }
    return text == "RW" ? std::optional(node_access::read_write) : std::nullopt;
}

std::optional<std::int64_t> parse_integer(std::string_view text) {
    bool const negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint64_t magnitude = 0;
    auto const [end, status] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (status == std::errc::invalid_argument || end != text.data() + text.size()) {
        return std::nullopt;
    }
    constexpr auto highest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (status == std::errc::result_out_of_range || magnitude > highest) {
        return negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    }
    return negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
}

std::optional<double> parse_double(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
    }
    double value = 0;
    auto const [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (status == std::errc() && end == text.data() + text.size()) {
        return value;
    }
    auto const whole = parse_integer(text);  // hexadecimal
    return whole ? std::optional(static_cast<double>(*whole)) : std::nullopt;
}

std::string_view text_of(pugi::xml_node element) {
    constexpr std::string_view spaces = " \t\r\n";
    std::string_view text = element.text().get();
    text.remove_prefix(std::min(text.find_first_not_of(spaces), text.size()));
    return text.substr(0, text.find_last_not_of(spaces) + 1);
}

bool to_integer(evaluation& state, double value, std::int64_t& whole) {
    return to_integer(value, whole) ||
           state.fail(PvResult::Code::GENERIC_ERROR, "its value is outside the range of integers");
}

bool to_nearest_integer(evaluation& state, double value, std::int64_t& whole) {
    return to_integer(state, std::round(value), whole);
}

bool node::fail_as(evaluation& state, char const* what) const {
    return state.fail(PvResult::Code::NOT_SUPPORTED, (name_.empty() ? "a part of it" : name_) + " is not " + what);
}

bool node::read(evaluation& state, std::int64_t& /*value*/) {
    return fail_as(state, "an integer");
}
bool node::read(evaluation& state, double& /*value*/) {
    return fail_as(state, "a number");
}
bool node::read(evaluation& state, std::string& /*value*/) {
    return fail_as(state, "a text");
}
bool node::write_value(evaluation& state, std::int64_t /*value*/) {
    return fail_as(state, "an integer");
}
bool node::write_value(evaluation& state, double /*value*/) {
    return fail_as(state, "a number");
}

bool node::write_value(evaluation& state, std::string const& /*value*/) {
    return fail_as(state, "a text");
}

bool node::write(evaluation& state, std::int64_t value) {
    bool const done = write_value(state, value);
    changed();
    return done;
}

bool node::write(evaluation& state, double value) {
    bool const done = write_value(state, value);
    changed();
    return done;
}

bool node::write(evaluation& state, std::string const& value) {
    bool const done = write_value(state, value);
    changed();
    return done;
}

void node::changed() const {
    for (register_window* const each : invalidates_) {
        each->invalidate();
    }
}

bool node::get_limits(evaluation& state, integer_limits& limits) {
    static_cast<void>(state);
    limits = {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), 1};
    return true;
}

bool node::get_limits(evaluation& state, float_limits& limits) {
    static_cast<void>(state);
    limits = {std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max()};
    return true;
}

bool node::state_of(evaluation& state, node* node::*condition, bool without, bool& value) const {
    value = without;
    for (node const* one = this; one != nullptr && value == without; one = one->value_source()) {
        if (one->*condition != nullptr) {
            std::int64_t number = 0;
            if (!(one->*condition)->read(state, number)) {
                return false;
            }
            value = number != 0;
        }
    }
    return true;
}

bool node::is_implemented(evaluation& state, bool& value) const {
    return state_of(state, &node::implemented_, true, value);
}
bool node::is_available(evaluation& state, bool& value) const {
    return state_of(state, &node::available_, true, value);
}
bool node::is_locked(evaluation& state, bool& value) const {
    return state_of(state, &node::locked_, false, value);
}

node_access node::access() const {
    node_access mode = node_access::read_write;
    for (node const* one = this; one != nullptr; one = one->value_source()) {
        mode = mode & one->imposed_ & one->own_access();
    }
    return mode;
}

bool integer_node::read(evaluation& state, double& value) {
    std::int64_t whole = 0;
    if (!read(state, whole)) {
        return false;
    }
    value = static_cast<double>(whole);
    return true;
}

bool integer_node::write_value(evaluation& state, double value) {
    std::int64_t whole = 0;
    return to_nearest_integer(state, value, whole) && write_value(state, whole);
}

bool integer_node::get_limits(evaluation& state, float_limits& limits) {
    integer_limits own;
    if (!get_limits(state, own)) {
        return false;
    }
    limits = {static_cast<double>(own.minimum), static_cast<double>(own.maximum)};
    return true;
}

bool float_node::read(evaluation& state, std::int64_t& value) {
    double real = 0;
    return read(state, real) && to_integer(state, real, value);
}

bool float_node::write_value(evaluation& state, std::int64_t value) {
    return write_value(state, static_cast<double>(value));
}

/// Limits outside the range of integers are those of the type.
bool float_node::get_limits(evaluation& state, integer_limits& limits) {
    float_limits own;
    if (!get_limits(state, own)) {
        return false;
    }
    evaluation ignored;
    limits = {};
    if (!to_integer(ignored, std::ceil(own.minimum), limits.minimum)) {
        limits.minimum = std::numeric_limits<std::int64_t>::min();
    }
    if (!to_integer(ignored, std::floor(own.maximum), limits.maximum)) {
        limits.maximum = std::numeric_limits<std::int64_t>::max();
    }
    return true;
}

}  // namespace openpv
