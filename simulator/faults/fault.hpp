// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The faults that a camera can inject, as data: a table of kinds and their parameters.
///
/// The table is the only place that lists them. The fault file, the control socket and `--print-faults` read it; the
/// filters (stream_faults, ack_faults, access_faults) and the camera implement what each kind does.
namespace camsim {

/// The kinds of faults; the fault table describes each.
enum class fault_kind : std::uint8_t {
    packet_loss,
    loss_burst,
    packet_reordering,
    packet_duplication,
    header_corruption,
    payload_corruption,
    leader_loss,
    trailer_loss,
    leader_size,
    leader_format,
    chunk_length,
    block_drop,
    freeze,
    timestamp_jump,
    timestamp_wrap,
    overheating,
    ack_delay,
    ack_loss,
    ack_duplication,
    ack_error,
    ack_wrong_id,
    control_denied,
    read_failure,
    write_refusal,
    power_cycle,
};

/// The part of the camera that implements a kind of fault.
enum class fault_domain : std::uint8_t {
    stream,   ///< stream_faults: GVSP packets and blocks on their way out
    control,  ///< ack_faults: GVCP acknowledges on their way out
    access,   ///< access_faults: reads and writes of registers
    camera,   ///< the camera itself: its clock, its sending, its power
};

/// The value of a parameter: a flag, a number, or text.
using fault_value = std::variant<bool, double, std::string>;

/// One parameter of a kind of fault: its name in fault files, its default and the values that it accepts.
struct fault_parameter {
    enum class value_type : std::uint8_t { boolean, number, integer, choice, feature };

    std::string_view name;
    std::string_view unit;
    std::string_view description;
    fault_value default_value;
    value_type type = value_type::number;
    double minimum = 0.0;                     ///< of a number or an integer
    double maximum = 0.0;                     ///< of a number or an integer
    std::vector<std::string_view> choices{};  ///< of a choice; for a feature, values accepted beside feature names

    /// \return the accepted values in words; feature names are left out, because they depend on the camera
    std::string expected() const;
};

/// A row of the fault table.
struct fault_definition {
    fault_kind kind;
    fault_domain domain;
    std::string_view name;
    std::string_view description;
    std::vector<fault_parameter> parameters{};
};

/// The fault table: one row for each kind, in the order in which it is printed. Rows are found by their kind; nothing
/// depends on their order.
std::vector<fault_definition> const& fault_table();

/// \return the row of a kind
/// \throws std::logic_error when the table has none
fault_definition const& definition_of(fault_kind kind);

/// The table as Markdown, for `--print-faults` and the manual.
std::string fault_reference();

/// A name of earlier versions and the name that replaced it.
struct renamed_name {
    std::string_view old_name;
    std::string_view new_name;
};

/// \return the kind's new name if `name` is one that a kind had in earlier versions
std::optional<std::string_view> renamed_fault_kind(std::string_view name);

/// \return the parameter's new name if `name` is one that a parameter of `definition` had in earlier versions
std::optional<std::string_view> renamed_fault_parameter(fault_definition const& definition, std::string_view name);

/// A fault with a value for each parameter of its kind. The accessors throw if the kind does not have the parameter.
struct fault {
    fault_kind kind = fault_kind::packet_loss;
    std::map<std::string_view, fault_value> values{};

    double number(std::string_view parameter) const { return std::get<double>(values.at(parameter)); }
    bool flag(std::string_view parameter) const { return std::get<bool>(values.at(parameter)); }
    std::string const& text(std::string_view parameter) const { return std::get<std::string>(values.at(parameter)); }
};

/// A fault of that kind with every parameter at its default.
fault default_fault(fault_kind kind);

/// A fault and when it is active.
struct scheduled_fault {
    fault what;
    std::chrono::nanoseconds at{0};                      ///< from the start of the timeline
    std::optional<std::chrono::nanoseconds> duration{};  ///< none: until it is cancelled
};

/// The contents of a fault file.
struct fault_plan {
    std::optional<std::uint64_t> seed{};  ///< none: the camera's `--seed`
    std::vector<scheduled_fault> faults{};
};

}  // namespace camsim
