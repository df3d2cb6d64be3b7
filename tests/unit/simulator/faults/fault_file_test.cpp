// SPDX-License-Identifier: MIT
#include "faults/fault_file.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <set>

using namespace camsim;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

/// The enumerator with the highest value.
constexpr fault_kind last_kind = fault_kind::power_cycle;

std::vector<std::string> const features{"Width", "DeviceTemperature"};

fault_plan read(std::string const& text) {
    return parse_faults(text, "line.toml", features);
}

/// The error message for a text; "nothing" if it is valid.
std::string error_of(std::string const& text) {
    try {
        read(text);
    } catch (fault_text_error const& error) {
        return error.what();
    }
    return "nothing";
}

}  // namespace

TEST(FaultTable, HasExactlyOneRowForEachKindWithAUniqueName) {
    std::set<std::string_view> names;
    for (unsigned number = 0; number <= static_cast<unsigned>(last_kind); ++number) {
        auto const kind = static_cast<fault_kind>(number);
        EXPECT_EQ(std::ranges::count(fault_table(), kind, &fault_definition::kind), 1) << number;
        EXPECT_EQ(definition_of(kind).kind, kind);
        EXPECT_TRUE(names.insert(definition_of(kind).name).second) << definition_of(kind).name;
    }
    EXPECT_EQ(fault_table().size(), names.size());
    EXPECT_THROW(definition_of(static_cast<fault_kind>(200)), std::logic_error);
}

TEST(FaultTable, HasAUniqueNameForEachParameterOfAKind) {
    for (fault_definition const& definition : fault_table()) {
        std::set<std::string_view> names{"kind", "at_s", "for_s"};
        for (fault_parameter const& parameter : definition.parameters) {
            EXPECT_TRUE(names.insert(parameter.name).second) << definition.name << '.' << parameter.name;
        }
    }
}

TEST(FaultTable, HasADefaultForEachParameterThatAFaultFileAccepts) {
    for (fault_definition const& definition : fault_table()) {
        std::string text = "[[fault]]\nkind = \"" + std::string(definition.name) + "\"\n";
        EXPECT_EQ(error_of(text), "nothing");
        fault const read_back = read(text).faults.at(0).what;
        EXPECT_EQ(read_back.kind, definition.kind);
        EXPECT_EQ(read_back.values.size(), definition.parameters.size());
    }
}

TEST(FaultTable, AssignsEachKindToTheDomainThatImplementsIt) {
    std::map<fault_domain, std::vector<std::string>> kinds;
    for (fault_definition const& definition : fault_table()) {
        kinds[definition.domain].emplace_back(definition.name);
    }
    EXPECT_THAT(kinds[fault_domain::stream],
                UnorderedElementsAre("packet_loss", "loss_burst", "packet_reordering", "packet_duplication",
                                     "header_corruption", "payload_corruption", "leader_loss", "trailer_loss",
                                     "leader_size", "leader_format", "chunk_length", "block_drop"));
    EXPECT_THAT(kinds[fault_domain::control],
                UnorderedElementsAre("ack_delay", "ack_loss", "ack_duplication", "ack_error", "ack_wrong_id"));
    EXPECT_THAT(kinds[fault_domain::access], UnorderedElementsAre("control_denied", "read_failure", "write_refusal"));
    EXPECT_THAT(kinds[fault_domain::camera],
                UnorderedElementsAre("freeze", "timestamp_jump", "timestamp_wrap", "overheating", "power_cycle"));
}

TEST(FaultTable, ReferenceHasEachParameterWithDefaultAndUnit) {
    std::string const text = fault_reference();
    EXPECT_THAT(text, HasSubstr("| `packet_loss` | stream packets are lost, resent ones too | `probability` |"
                                " a number from 0 to 1 | 0.01 | per packet |\n"));
    EXPECT_THAT(text, HasSubstr("| | | `packets` | an integer from 1 to 1000000 | 20 packets |"));
    EXPECT_THAT(text,
                HasSubstr("| `timestamp_jump` | the timestamp counter is ahead or behind | `offset_s` | a number from"
                          " -1000000000 to 1000000000 | -10 s |"));
    EXPECT_THAT(text, HasSubstr("| `commands` | one of \"all\", \"discovery\", \"reads\", \"writes\" | \"all\" |"));
}

TEST(FaultFile, SetsTheGivenValuesAndKeepsOtherDefaults) {
    fault_plan const plan = read(R"(
        seed = 7
        [[fault]]
        kind = "loss_burst"
        at_s = 1.5
        for_s = 2
        packets = 5
        [[fault]]
        kind = "power_cycle"
    )");
    EXPECT_EQ(plan.seed, 7U);
    ASSERT_EQ(plan.faults.size(), 2U);
    EXPECT_EQ(plan.faults[0].what.kind, fault_kind::loss_burst);
    EXPECT_EQ(plan.faults[0].at, 1500ms);
    EXPECT_EQ(plan.faults[0].duration, 2s);
    EXPECT_EQ(plan.faults[0].what.number("packets"), 5.0);
    EXPECT_EQ(plan.faults[0].what.number("probability"), 0.1);
    EXPECT_EQ(plan.faults[1].what.kind, fault_kind::power_cycle);
    EXPECT_EQ(plan.faults[1].at, 0s);
    EXPECT_FALSE(plan.faults[1].duration);
}

TEST(FaultFile, CanBeEmpty) {
    fault_plan const plan = read("");
    EXPECT_TRUE(plan.faults.empty());
    EXPECT_FALSE(plan.seed);
}

TEST(FaultFile, AcceptsEachTypeOfParameter) {
    fault_plan const plan = read(R"(
        fault = [{kind = "freeze", control = true}, {kind = "chunk_length", length = "odd"},
                 {kind = "write_refusal", feature = "Width"}, {kind = "write_refusal", feature = "any"},
                 {kind = "timestamp_jump", offset_s = -0.25}, {kind = "ack_error", status = 0x8006}])");
    EXPECT_TRUE(plan.faults[0].what.flag("control"));
    EXPECT_EQ(plan.faults[1].what.text("length"), "odd");
    EXPECT_EQ(plan.faults[2].what.text("feature"), "Width");
    EXPECT_EQ(plan.faults[3].what.text("feature"), "any");
    EXPECT_EQ(plan.faults[4].what.number("offset_s"), -0.25);
    EXPECT_EQ(plan.faults[5].what.number("status"), 0x8006);
}

TEST(FaultFile, RejectsUnknownNamesAndListsTheValidOnes) {
    EXPECT_THAT(
        error_of("[[fault]]\nkind = \"packet_lost\""),
        HasSubstr("line.toml:2:8: kind: 'packet_lost' is not valid, expected one of packet_loss, loss_burst, "));
    EXPECT_THAT(error_of("[[fault]]\nat_s = 1"),
                HasSubstr("line.toml:1:1: kind: missing, expected one of packet_loss"));
    EXPECT_THAT(
        error_of("[[fault]]\nkind = \"packet_loss\"\nprobabilities = 0.1"),
        HasSubstr("line.toml:3:1: packet_loss.probabilities: unknown, expected one of kind, at_s, for_s, probability"));
    EXPECT_THAT(error_of("sed = 1"), HasSubstr("line.toml:1:1: sed: unknown, expected seed or [[fault]] tables"));
    EXPECT_THAT(error_of("fault = 3"), HasSubstr("expected a [[fault]] table for each fault"));
    EXPECT_THAT(error_of("[[fault]\n"), HasSubstr("line.toml:1:9: "));
}

TEST(FaultFile, RejectsInvalidValues) {
    auto const of = [](std::string const& entry) { return error_of("fault = [{" + entry + "}]"); };
    EXPECT_THAT(of("kind = \"packet_loss\", probability = 1.5"),
                HasSubstr("packet_loss.probability: 1.5 is not valid, expected a number from 0 to 1"));
    EXPECT_THAT(of("kind = \"packet_loss\", probability = nan"), HasSubstr("expected a number from 0 to 1"));
    EXPECT_THAT(of("kind = \"packet_loss\", probability = true"), HasSubstr("expected a number from 0 to 1"));
    EXPECT_THAT(of("kind = \"loss_burst\", packets = 2.5"), HasSubstr("expected an integer from 1 to 1000000"));
    EXPECT_THAT(of("kind = \"freeze\", control = 1"), HasSubstr("expected true or false"));
    EXPECT_THAT(of("kind = \"chunk_length\", length = \"even\""),
                HasSubstr("'even' is not valid, expected one of \"too_large\", \"zero\", \"odd\""));
    EXPECT_THAT(of("kind = \"read_failure\", feature = \"Hight\""),
                HasSubstr("expected a feature's name; the features are: Width, DeviceTemperature"));
    EXPECT_THAT(of("kind = \"overheating\", celsius = 126"),
                HasSubstr("overheating.celsius: 126 is not valid, expected a number from -40 to 125"));
    EXPECT_THAT(of("kind = \"power_cycle\", for_s = 0"), HasSubstr("expected a number of seconds, above 0"));
    EXPECT_THAT(of("kind = \"power_cycle\", at_s = -1"), HasSubstr("expected a number of seconds, 0 or more"));
    EXPECT_THAT(error_of("seed = -1"), HasSubstr("seed: -1 is not valid, expected an integer of 0 or more"));
}

TEST(FaultFile, RejectsKindsOfEarlierVersionsWithTheNewName) {
    for (auto const& [old_name, new_name] : std::map<std::string, std::string>{{"answer_delay", "ack_delay"},
                                                                               {"answer_loss", "ack_loss"},
                                                                               {"answer_doubling", "ack_duplication"},
                                                                               {"answer_error", "ack_error"},
                                                                               {"answer_wrong_id", "ack_wrong_id"},
                                                                               {"block_skip", "block_drop"},
                                                                               {"power_cut", "power_cycle"}}) {
        EXPECT_EQ(error_of("[[fault]]\nkind = \"" + old_name + "\""),
                  "line.toml:2:8: kind: '" + old_name + "' was renamed, use '" + new_name + "'");
    }
}

TEST(FaultFile, RejectsParametersOfEarlierVersionsWithTheNewName) {
    auto const of = [](std::string const& kind, std::string const& parameter) {
        return error_of("[[fault]]\nkind = \"" + kind + "\"\n" + parameter);
    };
    EXPECT_EQ(of("packet_loss", "share = 0.1"), "line.toml:3:1: packet_loss.share: renamed, use probability");
    EXPECT_THAT(of("packet_reordering", "by = 3"), HasSubstr("renamed, use distance"));
    EXPECT_THAT(of("leader_loss", "again = true"), HasSubstr("renamed, use including_resends"));
    EXPECT_THAT(of("leader_format", "code = 1"), HasSubstr("renamed, use pixel_format_code"));
    EXPECT_THAT(of("timestamp_jump", "by_s = 1"), HasSubstr("renamed, use offset_s"));
    EXPECT_THAT(of("ack_loss", "to = \"reads\""), HasSubstr("renamed, use commands"));
    EXPECT_THAT(of("freeze", "share = 0.1"), HasSubstr("freeze.share: unknown, expected one of kind, at_s, for_s, "));
}

TEST(FaultFile, ReportsAllErrorsWithTheirPlaces) {
    std::string const text =
        error_of("[[fault]]\nkind = \"packet_loss\"\nprobability = 2\n[[fault]]\nkind = \"freeze\"\ncontrol = 3");
    EXPECT_THAT(text, HasSubstr("line.toml:3:15: packet_loss.probability"));
    EXPECT_THAT(text, HasSubstr("\nline.toml:6:11: freeze.control"));
}

TEST(FaultFile, ThatCannotBeReadIsReported) {
    try {
        read_fault_file("/nowhere/faults.toml", features);
        FAIL();
    } catch (fault_text_error const& error) {
        EXPECT_STREQ(error.what(), "/nowhere/faults.toml: cannot be read: No such file or directory");
    }
}

TEST(FaultRequest, StartsStopsAndListsFaults) {
    auto const start =
        parse_control_request(R"(start = { kind = "packet_loss", probability = 0.5, for_s = 3 })", features);
    ASSERT_TRUE(std::holds_alternative<scheduled_fault>(start.what));
    EXPECT_EQ(std::get<scheduled_fault>(start.what).what.number("probability"), 0.5);
    EXPECT_EQ(std::get<scheduled_fault>(start.what).duration, 3s);
    EXPECT_EQ(std::get<control_request::stop>(parse_control_request("stop = 4", features).what).number, 4U);
    EXPECT_EQ(std::get<control_request::stop>(parse_control_request("stop = \"all\"", features).what).number, 0U);
    EXPECT_TRUE(std::holds_alternative<control_request::list>(parse_control_request("list = true", features).what));
}

TEST(FaultRequest, WithAKindOfEarlierVersionsIsRejectedWithTheNewName) {
    try {
        parse_control_request(R"(start = { kind = "power_cut" })", features);
        FAIL();
    } catch (fault_text_error const& error) {
        EXPECT_THAT(error.what(), HasSubstr("kind: 'power_cut' was renamed, use 'power_cycle'"));
    }
}

TEST(FaultRequest, ThatIsInvalidIsRejected) {
    for (char const* const line :
         {"", "go", "stop = 0", "stop = -1", "stop = \"some\"", "list = false", "halt = true", "start = 3",
          "stop = 1 # \n list = true", R"(start = { kind = "nothing" })", R"(start = { })"}) {
        EXPECT_THROW(parse_control_request(line, features), fault_text_error) << line;
    }
}
