// SPDX-License-Identifier: MIT
#include "genicam/feature_registers.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace camsim {

namespace {

std::int64_t signed_value(std::uint64_t raw, std::uint32_t bytes) {
    return bytes == 4 ? static_cast<std::int64_t>(raw & 0xFFFF'FFFFU) : static_cast<std::int64_t>(raw);
}

/// Adds the registers of one feature. Each call operator converts between its kind and a register's number.
class register_maker {
public:
    register_maker(register_map& map, placed_feature const& placed, std::function<bool()> const& locked)
        : map_(map), placed_(placed), locked_(locked) {}

    void operator()(integer_kind const& kind) const {
        add_limit(kind.minimum, placed_.min_address);
        add_limit(kind.maximum, placed_.max_address);
        add(
            kind.bytes, [get = kind.get] { return static_cast<std::uint64_t>(get()); },
            [kind](std::uint64_t raw) {
                std::int64_t const value = signed_value(raw, kind.bytes);
                std::int64_t const minimum = value_of(kind.minimum);
                bool const allowed =
                    value >= minimum && value <= value_of(kind.maximum) && (value - minimum) % kind.increment == 0;
                return allowed ? kind.set(value) : gvcp::status::invalid_parameter;
            });
    }

    void operator()(float_kind const& kind) const {
        add_limit(kind.minimum, placed_.min_address);
        add_limit(kind.maximum, placed_.max_address);
        add(
            8, [get = kind.get] { return std::bit_cast<std::uint64_t>(get()); },
            [kind](std::uint64_t raw) {
                auto const value = std::bit_cast<double>(raw);
                bool const allowed = value >= value_of(kind.minimum) && value <= value_of(kind.maximum);
                return allowed ? kind.set(value) : gvcp::status::invalid_parameter;  // false for NaN
            });
    }

    void operator()(enumeration_kind const& kind) const {
        add(
            4, [get = kind.get] { return static_cast<std::uint64_t>(get()); },
            [kind](std::uint64_t raw) {
                std::int64_t const value = signed_value(raw, 4);
                bool const known =
                    std::ranges::find(kind.entries, value, &enumeration_entry::value) != kind.entries.end();
                return known ? kind.set(value) : gvcp::status::invalid_parameter;
            });
    }

    void operator()(boolean_kind const& kind) const {
        add(
            4, [get = kind.get] { return std::uint64_t{get()}; },
            [kind](std::uint64_t raw) { return raw <= 1 ? kind.set(raw == 1) : gvcp::status::invalid_parameter; });
    }

    void operator()(command_kind const& kind) const {
        add(
            4, [] { return std::uint64_t{0}; },
            [kind](std::uint64_t raw) { return raw == kind.value ? kind.execute() : gvcp::status::invalid_parameter; });
    }

    /// All text features are bootstrap registers.
    void operator()(string_kind const&) const {}

private:
    void add(std::uint32_t bytes, number_reader read, number_writer write) const {
        if (placed_.declaration.access == access_mode::read_only || placed_.declaration.refuses_writes) {
            write = {};
        } else if (placed_.declaration.locked_while_acquiring) {
            write = [write = std::move(write), locked = locked_](std::uint64_t raw) {
                return locked() ? gvcp::status::write_protect : write(raw);
            };
        }
        map_.add(number_register(placed_.address, bytes, std::move(read), std::move(write)));
    }

    void add_limit(limit<std::int64_t> const& one, std::uint32_t address) const {
        if (is_variable(one)) {
            map_.add(number_register(address, 8, [one] { return static_cast<std::uint64_t>(value_of(one)); }));
        }
    }

    void add_limit(limit<double> const& one, std::uint32_t address) const {
        if (is_variable(one)) {
            map_.add(number_register(address, 8, [one] { return std::bit_cast<std::uint64_t>(value_of(one)); }));
        }
    }

    register_map& map_;
    placed_feature const& placed_;
    std::function<bool()> const& locked_;
};

}  // namespace

void add_feature_registers(register_map& map, std::vector<placed_feature> const& features,
                           std::function<bool()> const& locked) {
    for (placed_feature const& one : features) {
        if (!one.declaration.standard && !one.declaration.chunk_id) {
            std::visit(register_maker(map, one, locked), one.declaration.kind);
        }
    }
}

}  // namespace camsim
