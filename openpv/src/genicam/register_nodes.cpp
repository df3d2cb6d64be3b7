// SPDX-License-Identifier: MIT
/// \file
/// Nodes with a register: Register, IntReg, MaskedIntReg, StructEntry, FloatReg, StringReg.

#include "genicam/register_nodes.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "genicam/node_loader.hpp"

namespace openpv {
namespace {

constexpr std::size_t max_integer_bytes = 8;
using integer_bytes = std::array<std::byte, max_integer_bytes>;

std::uint64_t to_bits(std::span<std::byte const> content, bool big_endian) {
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < content.size(); ++i) {
        std::size_t const at = big_endian ? i : content.size() - 1 - i;
        bits = bits << 8 | std::to_integer<std::uint64_t>(content[at]);
    }
    return bits;
}

void to_content(std::uint64_t bits, bool big_endian, std::span<std::byte> content) {
    for (std::size_t i = 0; i < content.size(); ++i) {
        std::size_t const at = big_endian ? content.size() - 1 - i : i;
        content[at] = static_cast<std::byte>(bits >> (8 * i));
    }
}

std::uint64_t lowest_bits(unsigned count) {
    return count >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
}

/// A register of any content. It serves as an invalidator, and holds what the entries of a structure depend on.
class raw_register : public node {
public:
    explicit raw_register(std::shared_ptr<register_window> window) : window_(std::move(window)) {}

protected:
    void link(pugi::xml_node element, node_loader& loader) override { window_->link(element, loader); }
    node_access own_access() const override { return window_->access(); }
    register_window* window() override { return window_.get(); }

private:
    std::shared_ptr<register_window> window_;
};

class integer_register : public integer_node {
public:
    using integer_node::get_limits;
    using integer_node::read;

    enum class part { whole, bits, structure_entry };
    explicit integer_register(part which, std::shared_ptr<register_window> window)
        : part_(which), window_(std::move(window)) {}

    bool read(evaluation& state, std::int64_t& value) override {
        integer_bytes buffer;
        field place;
        if (!locate(state, place) || !window_->read(state, std::span(buffer).first(place.bytes))) {
            return false;
        }
        std::uint64_t const raw = to_bits(std::span(buffer).first(place.bytes), window_->is_big_endian());
        std::uint64_t const bits = (raw >> place.lowest) & lowest_bits(place.width);
        bool const negative = signed_ && (bits >> (place.width - 1) & 1) != 0;
        value = static_cast<std::int64_t>(negative ? bits | ~lowest_bits(place.width) : bits);
        return true;
    }

    bool get_limits(evaluation& state, integer_limits& limits) override {
        field place;
        if (!locate(state, place)) {
            return false;
        }
        unsigned const positive = std::min(signed_ ? place.width - 1 : place.width, 63U);
        limits.maximum = static_cast<std::int64_t>(lowest_bits(positive));
        limits.minimum = signed_ ? -limits.maximum - 1 : 0;
        limits.increment = 1;
        return true;
    }

protected:
    using integer_node::write_value;
    bool write_value(evaluation& state, std::int64_t value) override {
        field place;
        if (!locate(state, place)) {
            return false;
        }
        if (!fits(value, place.width)) {
            return state.fail(PvResult::Code::INVALID_PARAMETER,
                              std::to_string(value) + " does not fit into its register");
        }
        integer_bytes buffer{};
        auto const content = std::span(buffer).first(place.bytes);
        std::uint64_t const mask = lowest_bits(place.width) << place.lowest;
        std::uint64_t bits = (static_cast<std::uint64_t>(value) << place.lowest) & mask;
        if (place.width == 8 * place.bytes) {
            to_content(bits, window_->is_big_endian(), content);
            return window_->write(state, content);
        }
        auto const lock = window_->lock_parts();
        if (!read_other_bits(state, content)) {
            return false;
        }
        bits |= to_bits(content, window_->is_big_endian()) & ~mask;
        to_content(bits, window_->is_big_endian(), content);
        return window_->write(state, content);
    }

    void link(pugi::xml_node element, node_loader& loader) override {
        if (part_ != part::structure_entry) {
            window_->link(element, loader);
        }
        signed_ = text_of(element.child("Sign")) == "Signed";
        pugi::xml_node const bit = element.child("Bit");
        lsb_ = parse_integer(text_of(bit ? bit : element.child("LSB"))).value_or(0);
        msb_ = parse_integer(text_of(bit ? bit : element.child("MSB"))).value_or(31);
        entry_access_ = parse_node_access(text_of(element.child("AccessMode"))).value_or(node_access::read_write);
    }

    node_access own_access() const override { return window_->access() & entry_access_; }
    register_window* window() override { return window_.get(); }

private:
    /// The bits of the value within the register's number.
    struct field {
        std::size_t bytes = 0;
        unsigned lowest = 0;
        unsigned width = 0;
    };

    bool locate(evaluation& state, field& place) const {
        if (!window_->get_length(state, place.bytes)) {
            return false;
        }
        if (place.bytes > max_integer_bytes) {
            return state.fail(PvResult::Code::GENERIC_ERROR, "its register is longer than an integer of 8 bytes");
        }
        auto const bits = static_cast<std::int64_t>(8 * place.bytes);
        place.width = static_cast<unsigned>(bits);
        if (part_ == part::whole) {
            return true;
        }
        // Big-endian registers count bits from the most significant one. Cameras give both limits in either order.
        auto const [low, high] = std::minmax(lsb_, msb_);
        if (low < 0 || high >= bits) {
            return state.fail(PvResult::Code::GENERIC_ERROR, "its bits are outside its register");
        }
        place.lowest = static_cast<unsigned>(window_->is_big_endian() ? bits - 1 - high : low);
        place.width = static_cast<unsigned>(high - low + 1);
        return true;
    }

    /// Also a value that is written as unsigned to a signed register, or the other way round.
    static bool fits(std::int64_t value, unsigned width) {
        if (width >= 64) {
            return true;
        }
        auto const lowest = -static_cast<std::int64_t>(std::uint64_t{1} << (width - 1));
        return value >= lowest && value <= static_cast<std::int64_t>(lowest_bits(width));
    }

    /// A write-only register counts as 0.
    bool read_other_bits(evaluation& state, std::span<std::byte> content) {
        if ((window_->access() & node_access::read_only) == node_access::none) {
            return true;
        }
        // What is cached may lack bits that another node has written.
        evaluation fresh;
        fresh.uncached = true;
        return window_->read(fresh, content) || state.fail(fresh.code, fresh.reason);
    }

    part part_;
    std::shared_ptr<register_window> window_;
    bool signed_ = false;
    std::int64_t lsb_ = 0;
    std::int64_t msb_ = 0;
    node_access entry_access_ = node_access::read_write;
};

class float_register : public float_node {
public:
    using float_node::get_limits;
    using float_node::read;

    bool read(evaluation& state, double& value) override {
        integer_bytes buffer;
        std::size_t bytes = 0;
        if (!get_length(state, bytes) || !window_.read(state, std::span(buffer).first(bytes))) {
            return false;
        }
        std::uint64_t const bits = to_bits(std::span(buffer).first(bytes), window_.is_big_endian());
        value = bytes == sizeof(float) ? static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)))
                                       : std::bit_cast<double>(bits);
        return true;
    }

    bool get_limits(evaluation& state, float_limits& limits) override {
        std::size_t bytes = 0;
        if (!get_length(state, bytes)) {
            return false;
        }
        limits.maximum = bytes == sizeof(float) ? static_cast<double>(std::numeric_limits<float>::max())
                                                : std::numeric_limits<double>::max();
        limits.minimum = -limits.maximum;
        return true;
    }

protected:
    using float_node::write_value;
    bool write_value(evaluation& state, double value) override {
        std::size_t bytes = 0;
        float_limits limits;
        if (!get_length(state, bytes) || !get_limits(state, limits)) {
            return false;
        }
        if (!(value >= limits.minimum && value <= limits.maximum)) {
            return state.fail(PvResult::Code::INVALID_PARAMETER, "the value does not fit into its register");
        }
        std::uint64_t const bits = bytes == sizeof(float) ? std::bit_cast<std::uint32_t>(static_cast<float>(value))
                                                          : std::bit_cast<std::uint64_t>(value);
        integer_bytes buffer;
        to_content(bits, window_.is_big_endian(), std::span(buffer).first(bytes));
        return window_.write(state, std::span(buffer).first(bytes));
    }

    void link(pugi::xml_node element, node_loader& loader) override { window_.link(element, loader); }
    node_access own_access() const override { return window_.access(); }
    register_window* window() override { return &window_; }

private:
    bool get_length(evaluation& state, std::size_t& bytes) const {
        if (!window_.get_length(state, bytes)) {
            return false;
        }
        return bytes == sizeof(float) || bytes == sizeof(double) ||
               state.fail(PvResult::Code::GENERIC_ERROR, "its register has neither 4 nor 8 bytes");
    }

    register_window window_;
};

class string_register : public node {
public:
    using node::read;
    std::optional<PvGenType> type() const override { return PvGenTypeString; }

    /// A string that fills its register has no terminator.
    bool read(evaluation& state, std::string& value) override {
        std::size_t bytes = 0;
        if (!get_length(state, bytes)) {
            return false;
        }
        value.assign(bytes, '\0');
        if (!window_.read(state, std::as_writable_bytes(std::span(value)))) {
            return false;
        }
        value.resize(std::min(value.find('\0'), value.size()));
        return true;
    }

protected:
    using node::write_value;
    /// Fills the register with zeros behind the text.
    bool write_value(evaluation& state, std::string const& value) override {
        std::size_t bytes = 0;
        if (!get_length(state, bytes)) {
            return false;
        }
        if (value.size() > bytes) {
            return state.fail(PvResult::Code::INVALID_PARAMETER,
                              "the text is longer than " + std::to_string(bytes) + " bytes");
        }
        std::string content = value;
        content.resize(bytes, '\0');
        return window_.write(state, std::as_bytes(std::span(content)));
    }
    void link(pugi::xml_node element, node_loader& loader) override { window_.link(element, loader); }
    node_access own_access() const override { return window_.access(); }
    register_window* window() override { return &window_; }

private:
    bool get_length(evaluation& state, std::size_t& bytes) const {
        // Bounds the memory for a length that the camera sets. Texts of cameras are far shorter.
        constexpr std::size_t max_string_bytes = 4096;
        if (!window_.get_length(state, bytes)) {
            return false;
        }
        return bytes <= max_string_bytes ||
               state.fail(PvResult::Code::GENERIC_ERROR, "its register is longer than 4096 bytes");
    }

    register_window window_;
};

}  // namespace

std::unique_ptr<node> make_register_node(std::string_view tag) {
    auto const whole = [] { return std::make_shared<register_window>(); };
    if (tag == "IntReg") {
        return std::make_unique<integer_register>(integer_register::part::whole, whole());
    }
    if (tag == "MaskedIntReg") {
        return std::make_unique<integer_register>(integer_register::part::bits, whole());
    }
    if (tag == "FloatReg") {
        return std::make_unique<float_register>();
    }
    if (tag == "StringReg") {
        return std::make_unique<string_register>();
    }
    return tag == "Register" ? make_structure(whole()) : nullptr;
}

std::unique_ptr<node> make_structure(std::shared_ptr<register_window> window) {
    return std::make_unique<raw_register>(std::move(window));
}

std::unique_ptr<node> make_structure_entry(std::shared_ptr<register_window> window) {
    return std::make_unique<integer_register>(integer_register::part::structure_entry, std::move(window));
}

}  // namespace openpv
