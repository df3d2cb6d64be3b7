#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "gvcp_packet.hpp"

/// A feature of the camera as GenICam knows it. One declaration gives the nodes of the description and the behaviour of
/// the registers behind them, so the two cannot disagree, and a camera without a feature is a camera without its
/// declaration.
namespace camsim {

enum class visibility : std::uint8_t { beginner, expert, guru, invisible };
enum class access_mode : std::uint8_t { read_only, write_only, read_write };

/// A limit is a number, or a function of the camera's state; a function gets a register of its own in the description.
template <typename Number>
using limit = std::variant<Number, std::function<Number()>>;

template <typename Number>
Number value_of(limit<Number> const& one) {
    auto const* const function = std::get_if<std::function<Number()>>(&one);
    return function != nullptr ? (*function)() : std::get<Number>(one);
}

template <typename Number>
bool is_variable(limit<Number> const& one) {
    return std::holds_alternative<std::function<Number()>>(one);
}

enum class representation : std::uint8_t {
    none,
    linear,
    logarithmic,
    pure_number,
    hex_number,
    ipv4_address,
    mac_address
};

struct integer_kind {
    std::function<std::int64_t()> get{};
    std::function<gvcp::status(std::int64_t)> set{};
    limit<std::int64_t> minimum = std::int64_t{0};
    limit<std::int64_t> maximum = std::int64_t{0xFFFF'FFFF};
    std::int64_t increment = 1;
    std::uint32_t bytes = 4;  ///< 4 or 8
    representation shown_as = representation::none;
};

struct float_kind {
    std::function<double()> get{};
    std::function<gvcp::status(double)> set{};
    limit<double> minimum = 0.0;
    limit<double> maximum = 0.0;
    std::uint32_t bytes = 8;  ///< 4 or 8; a register of the camera has 8
};

struct enumeration_entry {
    std::string name;
    std::int64_t value;
};

struct enumeration_kind {
    std::function<std::int64_t()> get{};
    std::function<gvcp::status(std::int64_t)> set{};
    std::vector<enumeration_entry> entries{};
};

struct boolean_kind {
    std::function<bool()> get{};
    std::function<gvcp::status(bool)> set{};
};

struct command_kind {
    std::function<gvcp::status()> execute{};
    std::uint32_t value = 1;  ///< what is written to execute it
};

struct string_kind {
    std::uint32_t length;  ///< bytes of its register
};

/// A feature that is (a part of) a register of the GigE Vision standard. The bootstrap registers behave by themselves;
/// such a feature's functions stay empty.
struct standard_register {
    std::uint32_t address;
    std::uint32_t bytes = 4;
    std::optional<std::pair<unsigned, unsigned>> bits = std::nullopt;  ///< first and last, bit 0 the most significant
    std::string selector{};                                            ///< feature whose value times `stride` is added
    std::uint32_t stride = 0;
};

struct feature {
    std::string name;
    std::string category;
    std::string tooltip;
    std::string unit{};
    visibility seen_by = visibility::beginner;
    access_mode access = access_mode::read_write;
    bool locked_while_acquiring = false;
    bool refuses_writes = false;  ///< whatever `access` says to the description
    bool cachable = true;
    std::optional<unsigned> polling_time_ms{};
    std::string available_with{};               ///< feature that has to be on for this one to be there
    std::vector<std::string> invalidated_by{};  ///< features whose change changes this one
    std::vector<std::string> selects{};
    std::variant<integer_kind, float_kind, enumeration_kind, boolean_kind, command_kind, string_kind> kind;
    std::optional<standard_register> standard{};
    std::optional<std::uint32_t> chunk_id{};  ///< the value comes with each block, little-endian, and has no register
};

/// A feature and the addresses of its registers.
struct placed_feature {
    feature declaration;
    std::uint32_t address = 0;
    std::uint32_t minimum_address = 0;  ///< only when the limit is variable
    std::uint32_t maximum_address = 0;
};

std::vector<placed_feature> place(std::vector<feature> features);
std::vector<std::string> feature_names(std::vector<feature> const& features);

}  // namespace camsim
