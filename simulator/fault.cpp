#include "fault.hpp"

#include <array>
#include <charconv>

namespace camsim {

namespace {

using domain = fault_parameter::domain;

constexpr double largest_code = 4294967295.0;
constexpr double largest_status = 65535.0;

fault_parameter share_of(std::string_view what, double standard) {
    return {.name = "share", .unit = "", .what = what, .standard = standard, .least = 0.0, .most = 1.0};
}

fault_parameter yes_or_no(std::string_view name, std::string_view what) {
    return {.name = name, .unit = "", .what = what, .standard = false, .of = domain::yes_or_no};
}

fault_parameter answers_to() {
    return {.name = "to",
            .unit = "",
            .what = "commands whose answers it concerns",
            .standard = std::string("all"),
            .of = domain::word,
            .words = {"all", "discovery", "reads", "writes"}};
}

/// \param standard a status of GVCP
fault_parameter answered_status(double standard) {
    return {.name = "status",
            .unit = "",
            .what = "status that is answered",
            .standard = standard,
            .of = domain::integer,
            .least = 1.0,
            .most = largest_status};
}

std::vector<fault_description> stream_kinds() {
    return {
        {fault_kind::packet_loss,
         "packet_loss",
         "packets of the stream are lost, resent ones too",
         {share_of("of the packets", 0.01)}},
        {fault_kind::loss_burst,
         "loss_burst",
         "packets in a row are lost; sent again they arrive",
         {share_of("of the blocks", 0.1),
          {.name = "packets",
           .unit = "packets",
           .what = "lost in a row, as far as the block has them",
           .standard = 20.0,
           .of = domain::integer,
           .least = 1.0,
           .most = 1e6}}},
        {fault_kind::packet_reordering,
         "packet_reordering",
         "packets are overtaken by others of their block",
         {share_of("of the packets", 0.01),
          {.name = "by",
           .unit = "packets",
           .what = "that overtake it",
           .standard = 4.0,
           .of = domain::integer,
           .least = 1.0,
           .most = 1e6}}},
        {fault_kind::packet_duplication,
         "packet_duplication",
         "packets arrive twice",
         {share_of("of the packets", 0.01)}},
        {fault_kind::header_corruption,
         "header_corruption",
         "a bit of a packet's GVSP header is wrong",
         {share_of("of the packets", 0.001)}},
        {fault_kind::payload_corruption,
         "payload_corruption",
         "a bit of a packet's part of the picture is wrong",
         {share_of("of the payload packets", 0.001)}},
        {fault_kind::leader_loss,
         "leader_loss",
         "leaders are lost",
         {share_of("of the blocks", 1.0), yes_or_no("again", "lost when it is sent again, too")}},
        {fault_kind::trailer_loss,
         "trailer_loss",
         "trailers are lost",
         {share_of("of the blocks", 1.0), yes_or_no("again", "lost when it is sent again, too")}},
        {fault_kind::leader_size,
         "leader_size",
         "leaders tell a wrong width and height",
         {share_of("of the blocks", 1.0),
          {.name = "factor",
           .unit = "",
           .what = "times the true ones, rounded down, up to what 32 bits hold",
           .standard = 2.0,
           .least = 0.0,
           .most = 1e10}}},
        {fault_kind::leader_format,
         "leader_format",
         "leaders tell a wrong pixel format",
         {share_of("of the blocks", 1.0),
          {.name = "code",
           .unit = "",
           .what = "of the pixel format; RGB8 unless given",
           .standard = 35127316.0,
           .of = domain::integer,
           .least = 0.0,
           .most = largest_code}}},
        {fault_kind::chunk_length,
         "chunk_length",
         "the trailer of the last chunk tells a wrong length",
         {share_of("of the blocks", 1.0),
          {.name = "length",
           .unit = "",
           .what = "that is told: beyond the block, none, or one more than it has",
           .standard = std::string("too_large"),
           .of = domain::word,
           .words = {"too_large", "zero", "odd"}}}},
        {fault_kind::block_skip,
         "block_skip",
         "blocks are not sent at all; their IDs are spent",
         {share_of("of the blocks", 0.1)}},
    };
}

std::vector<fault_description> camera_kinds() {
    return {
        {fault_kind::freeze,
         "freeze",
         "nothing is sent of the stream, in the middle of a block if need be",
         {yes_or_no("control", "the control channel is deaf meanwhile, too")}},
        {fault_kind::timestamp_jump,
         "timestamp_jump",
         "the timestamp counter is ahead or behind",
         {{.name = "by_s",
           .unit = "s",
           .what = "ahead; behind when negative",
           .standard = -10.0,
           .least = -1e9,
           .most = 1e9}}},
        {fault_kind::timestamp_wrap,
         "timestamp_wrap",
         "the timestamp counter is narrower than 64 bits",
         {{.name = "bits",
           .unit = "bits",
           .what = "that it has",
           .standard = 32.0,
           .of = domain::integer,
           .least = 8.0,
           .most = 63.0}}},
        {fault_kind::answer_delay,
         "answer_delay",
         "answers on the control channel are late",
         {{.name = "delay_ms",
           .unit = "ms",
           .what = "that each takes longer",
           .standard = 100.0,
           .least = 0.0,
           .most = 60'000.0},
          answers_to()}},
        {fault_kind::answer_loss,
         "answer_loss",
         "answers are lost; the commands are carried out",
         {share_of("of the answers", 0.1), answers_to()}},
        {fault_kind::answer_doubling,
         "answer_doubling",
         "answers arrive twice",
         {share_of("of the answers", 0.1), answers_to()}},
        {fault_kind::answer_error,
         "answer_error",
         "answers tell an error; the commands are carried out",
         {share_of("of the answers", 0.1), answered_status(0x8FFF), answers_to()}},
        {fault_kind::answer_wrong_id,
         "answer_wrong_id",
         "answers carry the ID of another command",
         {share_of("of the answers", 0.1), answers_to()}},
        {fault_kind::control_denied, "control_denied", "nobody gets control of the camera; who has it keeps it"},
        {fault_kind::read_failure,
         "read_failure",
         "a feature cannot be read",
         {{.name = "feature",
           .unit = "",
           .what = "that fails",
           .standard = std::string("DeviceTemperature"),
           .of = domain::feature},
          answered_status(0x8FFF)}},
        {fault_kind::write_refusal,
         "write_refusal",
         "a feature refuses to be written",
         {{.name = "feature",
           .unit = "",
           .what = "that refuses; any: all but those that are registers of the standard",
           .standard = std::string("any"),
           .of = domain::feature,
           .words = {"any"}},
          answered_status(0x8004)}},
        {fault_kind::power_cut, "power_cut",
         "the camera is without power and silent; it returns as it was when it was made, nothing set, controlled by"
         " nobody, its clock beginning anew"},
    };
}

std::vector<fault_description> all_kinds() {
    auto all = stream_kinds();
    auto const more = camera_kinds();
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

std::string spelled(double number) {
    std::array<char, 64> text{};
    auto const end = std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed).ptr;
    return {text.data(), end};
}

std::string spelled(fault_value const& value) {
    if (auto const* const yes = std::get_if<bool>(&value)) {
        return *yes ? "true" : "false";
    }
    if (auto const* const number = std::get_if<double>(&value)) {
        return spelled(*number);
    }
    return '"' + std::get<std::string>(value) + '"';
}

std::string listed(std::vector<std::string_view> const& words) {
    std::string text;
    for (std::string_view const word : words) {
        text += (text.empty() ? "\"" : ", \"") + std::string(word) + '"';
    }
    return text;
}

}  // namespace

/// What a value has to be, in words; of a feature without the names, which are the camera's.
std::string fault_parameter::expects() const {
    switch (of) {
        case domain::yes_or_no:
            return "true or false";
        case domain::number:
            return "a number from " + spelled(least) + " to " + spelled(most);
        case domain::integer:
            return "an integer from " + spelled(least) + " to " + spelled(most);
        case domain::word:
            return "one of " + listed(words);
        case domain::feature:
            return words.empty() ? "a feature's name" : "a feature's name or " + listed(words);
    }
    return {};
}

std::vector<fault_description> const& fault_table() {
    static std::vector<fault_description> const table = all_kinds();
    return table;
}

fault_description const& table_entry(fault_kind kind) {
    return fault_table().at(static_cast<std::size_t>(kind));
}

std::string fault_reference() {
    std::string text =
        "| kind | what happens | parameter | value | unless given | meaning |\n|---|---|---|---|---|---|\n";
    for (fault_description const& kind : fault_table()) {
        std::string const name = "| `" + std::string(kind.name) + "` | " + std::string(kind.what) + " |";
        if (kind.parameters.empty()) {
            text += name + " | | | |\n";
        }
        bool first = true;
        for (fault_parameter const& one : kind.parameters) {
            std::string const unit = one.unit.empty() ? "" : " " + std::string(one.unit);
            text += (first ? name : "| | |") + " `" + std::string(one.name) + "` | " + one.expects() + " | " +
                    spelled(one.standard) + unit + " | " + std::string(one.what) + " |\n";
            first = false;
        }
    }
    return text;
}

fault standard_fault(fault_kind kind) {
    fault made{.kind = kind};
    for (fault_parameter const& one : table_entry(kind).parameters) {
        made.values.emplace(one.name, one.standard);
    }
    return made;
}

}  // namespace camsim
