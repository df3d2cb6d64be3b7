// SPDX-License-Identifier: MIT
#include "features/feature_access.hpp"

#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <limits>

#include "base/printable_text.hpp"
#include "genicam/value_limits.hpp"
#include "gvcp/connection_id.hpp"
#include "net/ipv4_address.hpp"
#include "report/failure.hpp"

namespace gevctl {

namespace {

using openpv::direction;
using openpv::evaluation;
using openpv::node;
using openpv::node_access;

evaluation from_camera() {
    evaluation state;
    state.uncached = true;
    return state;
}

[[noreturn]] void fail(std::string const& what, evaluation const& state) {
    exit_status status = exit_status::refused;
    if (state.code == PvResult::Code::TIMEOUT || state.code == PvResult::Code::NOT_CONNECTED) {
        status = exit_status::lost;
    } else if (state.code == PvResult::Code::INVALID_PARAMETER) {
        status = exit_status::usage;
    }
    throw failure(status, openpv::printable(what + ": " + state.reason));
}

[[noreturn]] void fail_value(feature_info const& one, std::string const& text, std::string const& expected) {
    throw failure(exit_status::usage, one.name + ": \"" + text + "\" is not " + expected);
}

/// `openpv::parse_integer` gives a number that is too large the limit of its type.
bool is_saturated(std::string const& text, std::int64_t number) {
    using limits = std::numeric_limits<std::int64_t>;
    std::size_t const digits = text.find_last_of("xX+-") + 1;  // 0 without a sign and prefix
    bool const is_hex = digits > 0 && std::tolower(static_cast<unsigned char>(text[digits - 1])) == 'x';
    std::uint64_t magnitude = 0;
    auto const parsed = std::from_chars(text.data() + digits, text.data() + text.size(), magnitude, is_hex ? 16 : 10);
    std::uint64_t const limit = static_cast<std::uint64_t>(limits::max()) + (number == limits::min() ? 1 : 0);
    return parsed.ec == std::errc::result_out_of_range || magnitude > limit;
}

openpv::enumeration_node& as_enumeration(node& one) {
    return dynamic_cast<openpv::enumeration_node&>(one);
}

bool is_usable_now(node const& one) {
    evaluation state = from_camera();
    bool yes = false;
    return is_usable(state, one, yes) && yes;
}

std::string join(std::vector<std::string> const& texts) {
    std::string joined;
    for (std::string const& each : texts) {
        joined += (joined.empty() ? "" : ", ") + each;
    }
    return joined;
}

template <class number, class limits_type>
void write_number(node& to, evaluation& state, std::string const& what, number value) {
    limits_type limits;
    if (!to.get_limits(state, limits)) {
        fail(what, state);
    }
    if (std::string const error = openpv::find_limit_error(value, limits); !error.empty()) {
        throw failure(exit_status::usage, what + ": " + error);
    }
    if (!to.write(state, value)) {
        fail(what, state);
    }
}

std::unique_ptr<openpv::node_graph> load_graph(std::string_view xml, openpv::register_port& port) {
    std::string error;
    auto graph = openpv::node_graph::load(xml, port, error);
    if (graph == nullptr) {
        throw failure(exit_status::refused, openpv::printable("the camera's GenICam XML is invalid: " + error));
    }
    return graph;
}

}  // namespace

std::string to_text(feature_range const& range) {
    if (!range.entries.empty()) {
        return join(range.entries);
    }
    std::string text;
    if (range.minimum || range.maximum) {
        text = (range.minimum ? to_text(*range.minimum) : "") + " .. " + (range.maximum ? to_text(*range.maximum) : "");
    }
    return range.increment ? text + " step " + to_text(*range.increment) : text;
}

camera_features::camera_features(std::string_view xml, openpv::register_port& port, std::function<void()> prepare_write)
    : prepare_write_(std::move(prepare_write)),
      graph_(load_graph(xml, port)),
      catalogue_(std::make_unique<feature_catalogue>(xml, *graph_)) {}

feature_info const& camera_features::require(std::string const& name) const {
    if (feature_info const* const found = catalogue_->find(name)) {
        return *found;
    }
    auto const similar = catalogue_->similar(name);
    throw failure(exit_status::usage,
                  "the camera does not have the feature \"" + name + "\"" +
                      (similar.empty() ? ". List its features with: gevctl features" : ". Similar: " + join(similar)));
}

node& camera_features::node_of(feature_info const& one) const {
    return *graph_->find(one.name);
}

/// \return the features that decide over the condition, with their values: " (TriggerMode = Off)"
std::string camera_features::explain(feature_info const& one, char const* condition) {
    std::vector<std::string> parts;
    for (std::string const& name : catalogue_->find_conditions(one.name, condition)) {
        try {
            parts.push_back(name + " = " + to_text(read(require(name))));
        } catch (failure const&) {
            parts.push_back(name);  // a condition that cannot be read is named without its value
        }
    }
    return parts.empty() ? "" : " (" + join(parts) + ")";
}

bool camera_features::is_write_only(feature_info const& one) const {
    return (node_of(one).access() & node_access::read_only) == node_access::none;
}

bool camera_features::is_read_only(feature_info const& one) const {
    return (node_of(one).access() & node_access::write_only) == node_access::none;
}

feature_access camera_features::access_to(feature_info const& one) {
    node const& found = node_of(one);
    evaluation state = from_camera();
    bool yes = false;
    if (!found.is_implemented(state, yes)) {
        fail(one.name, state);
    }
    if (!yes) {
        return {.reason = "not implemented" + explain(one, "pIsImplemented")};
    }
    if (!found.is_available(state, yes)) {
        fail(one.name, state);
    }
    if (!yes) {
        return {.reason = "not available now" + explain(one, "pIsAvailable")};
    }
    node_access const mode = found.access();
    feature_access now;
    now.readable = (mode & node_access::read_only) != node_access::none && one.type != PvGenTypeCommand;
    now.settable = (mode & node_access::write_only) != node_access::none;
    now.writable = now.settable;
    if (!now.settable) {
        return now;
    }
    if (!found.is_locked(state, yes)) {
        fail(one.name, state);
    }
    if (yes) {
        now.writable = false;
        now.reason = "locked now" + explain(one, "pIsLocked");
    }
    return now;
}

feature_range camera_features::range_of(feature_info const& one) {
    node& found = node_of(one);
    evaluation state = from_camera();
    feature_range range;
    if (one.type == PvGenTypeInteger) {
        node::integer_limits limits;
        if (!found.get_limits(state, limits)) {
            fail(one.name, state);
        }
        using type = std::numeric_limits<std::int64_t>;
        range.minimum = limits.minimum != type::min() ? std::optional<feature_value>(limits.minimum) : std::nullopt;
        range.maximum = limits.maximum != type::max() ? std::optional<feature_value>(limits.maximum) : std::nullopt;
        range.increment = limits.increment > 1 ? std::optional<feature_value>(limits.increment) : std::nullopt;
    } else if (one.type == PvGenTypeFloat) {
        node::float_limits limits;
        if (!found.get_limits(state, limits)) {
            fail(one.name, state);
        }
        using type = std::numeric_limits<double>;
        range.minimum = limits.minimum > type::lowest() ? std::optional<feature_value>(limits.minimum) : std::nullopt;
        range.maximum = limits.maximum < type::max() ? std::optional<feature_value>(limits.maximum) : std::nullopt;
        if (auto const step = openpv::parse_double(one.increment); step && *step > 0) {
            range.increment = *step;
        }
    } else if (one.type == PvGenTypeEnum) {
        for (auto const& entry : as_enumeration(found).entries()) {
            if (is_usable_now(*entry)) {
                range.entries.push_back(entry->entry_name());
            }
        }
    }
    return range;
}

feature_value camera_features::read(feature_info const& one) {
    node& from = node_of(one);
    evaluation state = from_camera();
    std::string const what = one.name + " cannot be read";
    if (!check_access(state, from, direction::read)) {
        fail(what, state);
    }
    if (one.type == PvGenTypeFloat) {
        double value = 0;
        return from.read(state, value) ? feature_value(value) : (fail(what, state), feature_value());
    }
    if (one.type == PvGenTypeString) {
        std::string value;
        return from.read(state, value) ? feature_value(openpv::printable(value)) : (fail(what, state), feature_value());
    }
    if (one.type == PvGenTypeCommand) {
        throw failure(exit_status::usage, one.name + " is a command. Use: gevctl execute");
    }
    std::int64_t value = 0;
    if (!from.read(state, value)) {
        fail(what, state);
    }
    if (one.type == PvGenTypeBoolean) {
        return value != 0;
    }
    if (one.type == PvGenTypeEnum) {
        for (auto const& entry : as_enumeration(from).entries()) {
            if (entry->value() == value) {
                return entry->entry_name();
            }
        }
        throw failure(exit_status::refused,
                      what + ": its value " + std::to_string(value) + " matches none of its entries");
    }
    return value;
}

void camera_features::write(feature_info const& one, feature_value const& value) {
    node& to = node_of(one);
    evaluation state = from_camera();
    std::string const what = one.name + " cannot be set to " + to_text(value);
    if (one.type == PvGenTypeCommand) {
        throw failure(exit_status::usage, one.name + " is a command. Use: gevctl execute");
    }
    if (auto const now = access_to(one); !now.reason.empty() && !now.writable) {
        throw failure(exit_status::refused, what + ": it is " + now.reason);
    }
    prepare_write_();
    if (!check_access(state, to, direction::write)) {
        fail(what, state);
    }
    if (one.type == PvGenTypeFloat) {
        return write_number<double, node::float_limits>(to, state, what, std::get<double>(value));
    }
    if (one.type == PvGenTypeInteger) {
        return write_number<std::int64_t, node::integer_limits>(to, state, what, std::get<std::int64_t>(value));
    }
    bool done = false;
    if (one.type == PvGenTypeString) {
        done = to.write(state, std::get<std::string>(value));
    } else if (one.type == PvGenTypeBoolean) {
        done = to.write(state, std::int64_t{std::get<bool>(value)});
    } else {
        auto const& name = std::get<std::string>(value);
        for (auto const& entry : as_enumeration(to).entries()) {
            if (entry->entry_name() == name && is_usable_now(*entry)) {
                done = to.write(state, entry->value());
                return done ? void() : fail(what, state);
            }
        }
        throw failure(exit_status::usage, what + ": it must be one of " + join(range_of(one).entries));
    }
    if (!done) {
        fail(what, state);
    }
}

void camera_features::execute(feature_info const& one) {
    auto* const command = dynamic_cast<openpv::command_node*>(&node_of(one));
    if (command == nullptr) {
        throw failure(exit_status::usage, one.name + " is not a command. Use: gevctl set");
    }
    std::string const what = one.name + " cannot be executed";
    if (auto const now = access_to(one); !now.reason.empty() && !now.writable) {
        throw failure(exit_status::refused, what + ": it is " + now.reason);
    }
    prepare_write_();
    evaluation state = from_camera();
    if (!check_access(state, *command, direction::write) || !command->execute(state)) {
        fail(what, state);
    }
}

feature_value camera_features::parse(feature_info const& one, std::string const& text) const {
    switch (one.type) {
        case PvGenTypeInteger: {
            auto const address = openpv::parse_ipv4(text);
            auto const number = address ? std::optional(std::int64_t{address->value}) : openpv::parse_integer(text);
            if (number && !address && is_saturated(text, *number)) {
                fail_value(one, text, "an integer of 64 bits");
            }
            return number ? feature_value(*number) : (fail_value(one, text, "an integer"), feature_value());
        }
        case PvGenTypeFloat: {
            auto const number = openpv::parse_double(text);
            return number ? feature_value(*number) : (fail_value(one, text, "a number"), feature_value());
        }
        case PvGenTypeBoolean:
            if (text != "true" && text != "false" && text != "1" && text != "0") {
                fail_value(one, text, "true or false");
            }
            return text == "true" || text == "1";
        case PvGenTypeEnum:
        case PvGenTypeString:
        case PvGenTypeCommand:
            break;
    }
    return text;
}

feature_value camera_features::convert(feature_info const& one, feature_value const& value) const {
    if (auto const* const text = std::get_if<std::string>(&value)) {
        return parse(one, *text);
    }
    if (one.type == PvGenTypeFloat && std::holds_alternative<std::int64_t>(value)) {
        return static_cast<double>(std::get<std::int64_t>(value));
    }
    bool const fits = (one.type == PvGenTypeFloat && std::holds_alternative<double>(value)) ||
                      (one.type == PvGenTypeInteger && std::holds_alternative<std::int64_t>(value)) ||
                      (one.type == PvGenTypeBoolean && std::holds_alternative<bool>(value));
    if (!fits) {
        throw failure(exit_status::usage,
                      one.name + ": " + to_text(value) + " is not a value of a feature of type " + name_of(one.type));
    }
    return value;
}

std::string camera_features::show(feature_info const& one, feature_value const& value) const {
    auto const* const number = std::get_if<std::int64_t>(&value);
    if (number != nullptr && one.representation == "IPV4Address") {
        return to_text(openpv::ipv4_address{static_cast<std::uint32_t>(*number)});
    }
    if (number != nullptr && one.representation == "MACAddress") {
        return openpv::mac_to_text(static_cast<std::uint64_t>(*number));
    }
    if (number != nullptr && one.representation == "HexNumber") {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "0x%llX", static_cast<unsigned long long>(*number));
        return text.data();
    }
    return to_text(value);
}

}  // namespace gevctl
