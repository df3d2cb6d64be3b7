#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// What can go wrong with a camera and its line, as data: a table of kinds and their parameters.
namespace camsim {

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
    block_skip,
    freeze,
    timestamp_jump,
    timestamp_wrap,
    answer_delay,
    answer_loss,
    answer_doubling,
    answer_error,
    answer_wrong_id,
    control_denied,
    read_failure,
    write_refusal,
    power_cut,
};

/// Yes or no, a number, or a word.
using fault_value = std::variant<bool, double, std::string>;

struct fault_parameter {
    enum class domain : std::uint8_t { yes_or_no, number, integer, word, feature };

    std::string_view name;
    std::string_view unit;
    std::string_view what;
    fault_value standard;                   ///< in force unless given
    domain of = domain::number;             ///< what the value is
    double least = 0.0;                     ///< of a number or an integer
    double most = 0.0;                      ///< of a number or an integer
    std::vector<std::string_view> words{};  ///< of a word

    std::string expects() const;
};

struct fault_description {
    fault_kind kind;
    std::string_view name;
    std::string_view what;
    std::vector<fault_parameter> parameters{};
};

/// Every kind once, in the order of the enumeration.
std::vector<fault_description> const& fault_table();
fault_description const& table_entry(fault_kind kind);
/// The table as Markdown, for people.
std::string fault_reference();

/// A fault with all its parameters.
struct fault {
    fault_kind kind = fault_kind::packet_loss;
    std::map<std::string_view, fault_value> values{};

    double number(std::string_view parameter) const { return std::get<double>(values.at(parameter)); }
    bool yes(std::string_view parameter) const { return std::get<bool>(values.at(parameter)); }
    std::string const& word(std::string_view parameter) const { return std::get<std::string>(values.at(parameter)); }
};

/// A fault of that kind with every parameter at its standard value.
fault standard_fault(fault_kind kind);

struct scheduled_fault {
    fault what;
    std::chrono::nanoseconds at{0};                   ///< from the beginning of the timeline
    std::optional<std::chrono::nanoseconds> lasts{};  ///< none: until somebody ends it
};

struct fault_plan {
    std::optional<std::uint64_t> seed{};  ///< none: the camera's
    std::vector<scheduled_fault> faults{};
};

}  // namespace camsim
