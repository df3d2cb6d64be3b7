#include "value_limits.hpp"

#include <array>
#include <charconv>

namespace openpv {
namespace {

std::string to_text(int64_t value) {
    return std::to_string(value);
}
std::string to_text(double value) {
    return number_to_text(value);
}

template <class number>
PvResult refuse(std::string const& name, number value, std::string const& reason) {
    return {PvResult::Code::INVALID_PARAMETER,
            (name + " cannot be set to " + to_text(value) + ": " + reason + ".").c_str()};
}

/// Unsigned, because the distance of two 64-bit integers may not fit into one.
uint64_t distance(int64_t from, int64_t to) {
    return static_cast<uint64_t>(to) - static_cast<uint64_t>(from);
}

}  // namespace

std::string number_to_text(double value) {
    std::array<char, 32> text{};
    auto const end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

PvResult check_limits(std::string const& name, int64_t value, PvGenParameter::impl::integer_limits const& limits) {
    if (value < limits.minimum || value > limits.maximum) {
        return refuse(name, value, "it must be from " + to_text(limits.minimum) + " to " + to_text(limits.maximum));
    }
    if (limits.increment > 1 && distance(limits.minimum, value) % static_cast<uint64_t>(limits.increment) != 0) {
        return refuse(name, value,
                      "it must be " + to_text(limits.minimum) + " plus a multiple of " + to_text(limits.increment));
    }
    return {};
}

PvResult check_limits(std::string const& name, double value, PvGenParameter::impl::float_limits const& limits) {
    if (!(value >= limits.minimum && value <= limits.maximum)) {
        return refuse(name, value, "it must be from " + to_text(limits.minimum) + " to " + to_text(limits.maximum));
    }
    return {};
}

}  // namespace openpv
