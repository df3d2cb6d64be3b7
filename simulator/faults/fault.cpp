// SPDX-License-Identifier: MIT
#include "faults/fault.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

namespace camsim {

namespace {

using value_type = fault_parameter::value_type;
using enum fault_domain;

constexpr double max_u32 = 4294967295.0;
constexpr double max_u16 = 65535.0;
/// Maximum of parameters that count packets: more than a block of the largest sensor has with jumbo packets.
constexpr double max_packets = 1e6;
constexpr double rgb8 = 0x0218'0014;  // PFNC; a format that this camera never sends

// GVCP status codes of GigE Vision.
constexpr double status_error = 0x8FFF;
constexpr double status_write_protect = 0x8004;

fault_parameter probability(std::string_view description, double default_value) {
    return {.name = "probability",
            .unit = "",
            .description = description,
            .default_value = default_value,
            .minimum = 0.0,
            .maximum = 1.0};
}

fault_parameter boolean(std::string_view name, std::string_view description) {
    return {.name = name, .unit = "", .description = description, .default_value = false, .type = value_type::boolean};
}

fault_parameter affected_commands() {
    return {.name = "commands",
            .unit = "",
            .description = "commands whose ACKs are affected",
            .default_value = std::string("all"),
            .type = value_type::choice,
            .choices = {"all", "discovery", "reads", "writes"}};
}

fault_parameter returned_status(double default_value) {
    return {.name = "status",
            .unit = "",
            .description = "GVCP status code that is returned",
            .default_value = default_value,
            .type = value_type::integer,
            .minimum = 1.0,
            .maximum = max_u16};
}

std::vector<fault_definition> stream_kinds() {
    return {
        {fault_kind::packet_loss,
         stream,
         "packet_loss",
         "stream packets are lost, resent ones too",
         {probability("per packet", 0.01)}},
        {fault_kind::loss_burst,
         stream,
         "loss_burst",
         "consecutive packets of a block are lost; resent packets arrive",
         {probability("per block", 0.1),
          {.name = "packets",
           .unit = "packets",
           .description = "burst length; a burst ends with its block",
           .default_value = 20.0,
           .type = value_type::integer,
           .minimum = 1.0,
           .maximum = max_packets}}},
        {fault_kind::packet_reordering,
         stream,
         "packet_reordering",
         "packets arrive after later packets of the same block",
         {probability("per packet", 0.01),
          {.name = "distance",
           .unit = "packets",
           .description = "number of later packets that arrive first",
           .default_value = 4.0,
           .type = value_type::integer,
           .minimum = 1.0,
           .maximum = max_packets}}},
        {fault_kind::packet_duplication,
         stream,
         "packet_duplication",
         "packets arrive twice",
         {probability("per packet", 0.01)}},
        {fault_kind::header_corruption,
         stream,
         "header_corruption",
         "one bit of a packet's GVSP header is inverted",
         {probability("per packet", 0.001)}},
        {fault_kind::payload_corruption,
         stream,
         "payload_corruption",
         "one bit of a packet's image data is inverted",
         {probability("per payload packet", 0.001)}},
        {fault_kind::leader_loss,
         stream,
         "leader_loss",
         "leaders are lost",
         {probability("per block", 1.0), boolean("including_resends", "resent leaders are lost too")}},
        {fault_kind::trailer_loss,
         stream,
         "trailer_loss",
         "trailers are lost",
         {probability("per block", 1.0), boolean("including_resends", "resent trailers are lost too")}},
        {fault_kind::leader_size,
         stream,
         "leader_size",
         "leaders carry a wrong width and height",
         {probability("per block", 1.0),
          {.name = "factor",
           .unit = "",
           .description = "multiplies the true values; the result is rounded down and limited to 32 bits",
           .default_value = 2.0,
           .minimum = 0.0,
           .maximum = 1e10}}},
        {fault_kind::leader_format,
         stream,
         "leader_format",
         "leaders carry a wrong pixel format",
         {probability("per block", 1.0),
          {.name = "pixel_format_code",
           .unit = "",
           .description = "PFNC code in the leader; the default is RGB8",
           .default_value = rgb8,
           .type = value_type::integer,
           .minimum = 0.0,
           .maximum = max_u32}}},
        {fault_kind::chunk_length,
         stream,
         "chunk_length",
         "the trailer of the last chunk carries a wrong length",
         {probability("per block", 1.0),
          {.name = "length",
           .unit = "",
           .description = "the length of the payload, zero, or the true length plus one",
           .default_value = std::string("too_large"),
           .type = value_type::choice,
           .choices = {"too_large", "zero", "odd"}}}},
        {fault_kind::block_drop,
         stream,
         "block_drop",
         "blocks are not sent; their block IDs are used up",
         {probability("per block", 0.1)}},
    };
}

std::vector<fault_definition> control_kinds() {
    return {
        {fault_kind::ack_delay,
         control,
         "ack_delay",
         "ACKs are delayed",
         {{.name = "delay_ms",
           .unit = "ms",
           .description = "additional delay of each ACK",
           .default_value = 100.0,
           .minimum = 0.0,
           .maximum = 60'000.0},
          affected_commands()}},
        {fault_kind::ack_loss,
         control,
         "ack_loss",
         "ACKs are lost; the commands are executed",
         {probability("per ACK", 0.1), affected_commands()}},
        {fault_kind::ack_duplication,
         control,
         "ack_duplication",
         "ACKs arrive twice",
         {probability("per ACK", 0.1), affected_commands()}},
        {fault_kind::ack_error,
         control,
         "ack_error",
         "ACKs report an error; the commands are executed",
         {probability("per ACK", 0.1), returned_status(status_error), affected_commands()}},
        {fault_kind::ack_wrong_id,
         control,
         "ack_wrong_id",
         "ACKs carry the request ID of another command",
         {probability("per ACK", 0.1), affected_commands()}},
    };
}

std::vector<fault_definition> access_kinds() {
    return {
        {fault_kind::control_denied, access, "control_denied",
         "requests for control are denied; an application that has control keeps it"},
        {fault_kind::read_failure,
         access,
         "read_failure",
         "a feature cannot be read",
         {{.name = "feature",
           .unit = "",
           .description = "the affected feature",
           .default_value = std::string("DeviceTemperature"),
           .type = value_type::feature},
          returned_status(status_error)}},
        {fault_kind::write_refusal,
         access,
         "write_refusal",
         "writes of a feature fail",
         {{.name = "feature",
           .unit = "",
           .description = "the affected feature; any: all features except those in bootstrap registers",
           .default_value = std::string("any"),
           .type = value_type::feature,
           .choices = {"any"}},
          returned_status(status_write_protect)}},
    };
}

std::vector<fault_definition> camera_kinds() {
    return {
        {fault_kind::freeze,
         camera,
         "freeze",
         "the stream stops, even in the middle of a block",
         {boolean("control", "the control channel is unresponsive too")}},
        {fault_kind::timestamp_jump,
         camera,
         "timestamp_jump",
         "the timestamp counter is ahead or behind",
         {{.name = "offset_s",
           .unit = "s",
           .description = "added to the counter; negative: behind",
           .default_value = -10.0,
           .minimum = -1e9,
           .maximum = 1e9}}},
        {fault_kind::timestamp_wrap,
         camera,
         "timestamp_wrap",
         "the timestamp counter has fewer than 64 bits",
         {{.name = "bits",
           .unit = "bits",
           .description = "width of the counter",
           .default_value = 32.0,
           .type = value_type::integer,
           .minimum = 8.0,
           .maximum = 63.0}}},
        {fault_kind::overheating,
         camera,
         "overheating",
         "DeviceTemperature rises; the camera works on",
         {{.name = "celsius",
           .unit = "\u00B0C",
           .description = "the temperature that is reported",
           .default_value = 85.0,
           .minimum = -40.0,  // the limits of DeviceTemperature
           .maximum = 125.0}}},
        {fault_kind::power_cycle, camera, "power_cycle",
         "the camera has no power and does not respond; afterwards it starts with its initial settings, without a"
         " controlling application and with a new timestamp counter"},
    };
}

std::vector<fault_definition> all_kinds() {
    std::vector<fault_definition> all;
    for (auto const& part : {stream_kinds(), camera_kinds(), control_kinds(), access_kinds()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

constexpr std::array<renamed_name, 7> renamed_kinds{{
    {"answer_delay", "ack_delay"},
    {"answer_loss", "ack_loss"},
    {"answer_doubling", "ack_duplication"},
    {"answer_error", "ack_error"},
    {"answer_wrong_id", "ack_wrong_id"},
    {"block_skip", "block_drop"},
    {"power_cut", "power_cycle"},
}};

constexpr std::array<renamed_name, 6> renamed_parameters{{
    {"share", "probability"},
    {"by", "distance"},
    {"again", "including_resends"},
    {"code", "pixel_format_code"},
    {"by_s", "offset_s"},
    {"to", "commands"},
}};

std::string to_text(double number) {
    std::array<char, 64> text{};
    auto const end = std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed).ptr;
    return {text.data(), end};
}

std::string to_text(fault_value const& value) {
    if (auto const* const yes = std::get_if<bool>(&value)) {
        return *yes ? "true" : "false";
    }
    if (auto const* const number = std::get_if<double>(&value)) {
        return to_text(*number);
    }
    return '"' + std::get<std::string>(value) + '"';
}

std::string quoted_list(std::vector<std::string_view> const& words) {
    std::string text;
    for (std::string_view const word : words) {
        text += (text.empty() ? "\"" : ", \"") + std::string(word) + '"';
    }
    return text;
}

}  // namespace

std::string fault_parameter::expected() const {
    switch (type) {
        case value_type::boolean:
            return "true or false";
        case value_type::number:
            return "a number from " + to_text(minimum) + " to " + to_text(maximum);
        case value_type::integer:
            return "an integer from " + to_text(minimum) + " to " + to_text(maximum);
        case value_type::choice:
            return "one of " + quoted_list(choices);
        case value_type::feature:
            return choices.empty() ? "a feature's name" : "a feature's name or " + quoted_list(choices);
    }
    return {};
}

std::vector<fault_definition> const& fault_table() {
    static std::vector<fault_definition> const table = all_kinds();
    return table;
}

fault_definition const& definition_of(fault_kind kind) {
    auto const found = std::ranges::find(fault_table(), kind, &fault_definition::kind);
    if (found == fault_table().end()) {
        throw std::logic_error("fault kind " + std::to_string(static_cast<unsigned>(kind)) +
                               " has no row in the table");
    }
    return *found;
}

std::optional<std::string_view> renamed_fault_kind(std::string_view name) {
    auto const* const found = std::ranges::find(renamed_kinds, name, &renamed_name::old_name);
    return found == renamed_kinds.end() ? std::nullopt : std::optional(found->new_name);
}

std::optional<std::string_view> renamed_fault_parameter(fault_definition const& definition, std::string_view name) {
    auto const* const found = std::ranges::find(renamed_parameters, name, &renamed_name::old_name);
    bool const applies = found != renamed_parameters.end() &&
                         std::ranges::find(definition.parameters, found->new_name, &fault_parameter::name) !=
                             definition.parameters.end();
    return applies ? std::optional(found->new_name) : std::nullopt;
}

std::string fault_reference() {
    std::string text = "| kind | effect | parameter | values | default | meaning |\n|---|---|---|---|---|---|\n";
    for (fault_definition const& definition : fault_table()) {
        std::string const name =
            "| `" + std::string(definition.name) + "` | " + std::string(definition.description) + " |";
        if (definition.parameters.empty()) {
            text += name + " | | | |\n";
        }
        bool first = true;
        for (fault_parameter const& parameter : definition.parameters) {
            std::string const unit = parameter.unit.empty() ? "" : " " + std::string(parameter.unit);
            text += (first ? name : "| | |") + " `" + std::string(parameter.name) + "` | " + parameter.expected() +
                    " | " + to_text(parameter.default_value) + unit + " | " + std::string(parameter.description) +
                    " |\n";
            first = false;
        }
    }
    return text;
}

fault default_fault(fault_kind kind) {
    fault made{.kind = kind};
    for (fault_parameter const& parameter : definition_of(kind).parameters) {
        made.values.emplace(parameter.name, parameter.default_value);
    }
    return made;
}

}  // namespace camsim
