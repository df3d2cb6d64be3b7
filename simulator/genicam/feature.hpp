// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "protocol/gvcp_packet.hpp"

/// Features of the camera (GenICam SFNC). One declaration generates both the nodes of the GenICam XML and the registers
/// behind them, so the two always agree. Removing a declaration removes the feature.
namespace camsim {

enum class visibility : std::uint8_t { beginner, expert, guru, invisible };
enum class access_mode : std::uint8_t { read_only, write_only, read_write };

/// A limit: a constant, or a function of the camera's state, which has its own register.
template <typename number_type>
using limit = std::variant<number_type, std::function<number_type()>>;

template <typename number_type>
number_type value_of(limit<number_type> const& one) {
    auto const* const function = std::get_if<std::function<number_type()>>(&one);
    return function != nullptr ? (*function)() : std::get<number_type>(one);
}

template <typename number_type>
bool is_variable(limit<number_type> const& one) {
    return std::holds_alternative<std::function<number_type()>>(one);
}

/// How GenICam clients display an integer. GenApi defines more representations than camsim needs.
enum class representation : std::uint8_t { none, ipv4_address };

/// The kinds of features and their functions. `get` and `set` are empty for bootstrap registers and chunk values; `set`
/// is empty for read-only features. add_feature_registers() checks values before it calls `set`.
struct integer_kind {
    std::function<std::int64_t()> get{};
    std::function<gvcp::status(std::int64_t)> set{};
    limit<std::int64_t> minimum = std::int64_t{0};
    limit<std::int64_t> maximum = std::int64_t{0xFFFF'FFFF};
    std::int64_t increment = 1;
    std::uint32_t bytes = 4;  ///< 4 or 8
    representation display = representation::none;
};

/// An IEEE 754 floating-point feature.
struct float_kind {
    std::function<double()> get{};
    std::function<gvcp::status(double)> set{};
    limit<double> minimum = 0.0;
    limit<double> maximum = 0.0;
    std::uint32_t bytes = 8;  ///< 4 or 8; registers have 8, chunks may have 4
};

/// An entry of an enumeration and its register value.
struct enumeration_entry {
    std::string name;
    std::int64_t value;
};

/// An enumeration. Writes of other values than those of its entries fail.
struct enumeration_kind {
    std::function<std::int64_t()> get{};
    std::function<gvcp::status(std::int64_t)> set{};
    std::vector<enumeration_entry> entries{};
};

/// A boolean; its register holds 0 or 1.
struct boolean_kind {
    std::function<bool()> get{};
    std::function<gvcp::status(bool)> set{};
};

/// A command. It completes with the write.
struct command_kind {
    std::function<gvcp::status()> execute{};
    std::uint32_t value = 1;  ///< value whose write executes the command
};

/// Text in a bootstrap register.
struct string_kind {
    std::uint32_t length;  ///< length of the register in bytes
};

/// The bootstrap register of a feature that the GigE Vision standard defines. add_bootstrap_registers() implements it,
/// so the functions of such a feature are empty.
struct standard_register {
    std::uint32_t address;
    std::uint32_t bytes = 4;
    std::optional<std::pair<unsigned, unsigned>> bits =
        std::nullopt;        ///< first and last bit; bit 0 is the most significant one
    std::string selector{};  ///< feature whose value times `stride` is added to the address
    std::uint32_t stride = 0;
};

/// The declaration of a feature. Its functions act on camera_state; callers hold that state's mutex.
struct feature {
    std::string name;
    std::string category;
    std::string tooltip;
    std::string unit{};
    visibility visible_to = visibility::beginner;
    access_mode access = access_mode::read_write;
    bool locked_while_acquiring = false;
    bool refuses_writes = false;  ///< writes fail although the GenICam XML describes it as writable
    bool cachable = true;
    std::optional<unsigned> polling_time_ms{};
    std::string available_with{};               ///< boolean feature that makes this one available (pIsAvailable)
    std::vector<std::string> invalidated_by{};  ///< features whose writes change this one (pInvalidator)
    std::vector<std::string> selects{};         ///< features that this selector selects (pSelected)
    std::variant<integer_kind, float_kind, enumeration_kind, boolean_kind, command_kind, string_kind> kind;
    std::optional<standard_register> standard{};
    std::optional<std::uint32_t> chunk_id{};  ///< the value is in the chunk data of a block, not in a register
};

/// A feature and the addresses of its registers.
struct placed_feature {
    feature declaration;
    std::uint32_t address = 0;
    std::uint32_t min_address = 0;  ///< used if the limit is variable
    std::uint32_t max_address = 0;
};

/// Assigns addresses to the registers of features that are not bootstrap registers.
std::vector<placed_feature> place(std::vector<feature> features);
std::vector<std::string> feature_names(std::vector<feature> const& features);

}  // namespace camsim
