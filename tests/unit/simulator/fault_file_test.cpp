#include "fault_file.hpp"

#include <gmock/gmock.h>

#include <set>

using namespace camsim;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

std::vector<std::string> const features{"Width", "DeviceTemperature"};

fault_plan read(std::string const& text) {
    return parse_faults(text, "line.toml", features);
}

/// What is said of a text that is refused.
std::string complaint(std::string const& text) {
    try {
        read(text);
    } catch (fault_text_error const& error) {
        return error.what();
    }
    return "nothing";
}

}  // namespace

TEST(FaultTable, DescribesEveryKindOnceInTheOrderOfTheirNumbers) {
    std::set<std::string_view> names;
    for (std::size_t index = 0; index < fault_table().size(); ++index) {
        EXPECT_EQ(fault_table()[index].kind, static_cast<fault_kind>(index));
        EXPECT_TRUE(names.insert(fault_table()[index].name).second);
    }
    EXPECT_EQ(table_entry(fault_kind::power_cut).name, "power_cut");
}

TEST(FaultTable, ReferenceNamesEveryParameterWithItsValueAndUnit) {
    std::string const text = fault_reference();
    EXPECT_THAT(text, HasSubstr("| `packet_loss` | packets of the stream are lost, resent ones too | `share` |"
                                " a number from 0 to 1 | 0.01 | of the packets |\n"));
    EXPECT_THAT(text, HasSubstr("| | | `packets` | an integer from 1 to 1000000 | 20 packets |"));
    EXPECT_THAT(text, HasSubstr("| `timestamp_jump` | the timestamp counter is ahead or behind | `by_s` | a number from"
                                " -1000000000 to 1000000000 | -10 s |"));
    EXPECT_THAT(text, HasSubstr("| `to` | one of \"all\", \"discovery\", \"reads\", \"writes\" | \"all\" |"));
}

TEST(FaultFile, SetsWhatItSaysAndLeavesTheRestAsItIs) {
    fault_plan const plan = read(R"(
        seed = 7
        [[fault]]
        kind = "loss_burst"
        at_s = 1.5
        for_s = 2
        packets = 5
        [[fault]]
        kind = "power_cut"
    )");
    EXPECT_EQ(plan.seed, 7U);
    ASSERT_EQ(plan.faults.size(), 2U);
    EXPECT_EQ(plan.faults[0].what.kind, fault_kind::loss_burst);
    EXPECT_EQ(plan.faults[0].at, 1500ms);
    EXPECT_EQ(plan.faults[0].lasts, 2s);
    EXPECT_EQ(plan.faults[0].what.number("packets"), 5.0);
    EXPECT_EQ(plan.faults[0].what.number("share"), 0.1);
    EXPECT_EQ(plan.faults[1].what.kind, fault_kind::power_cut);
    EXPECT_EQ(plan.faults[1].at, 0s);
    EXPECT_FALSE(plan.faults[1].lasts);
}

TEST(FaultFile, MayBeEmptyAndThenHasNoSeed) {
    fault_plan const plan = read("");
    EXPECT_TRUE(plan.faults.empty());
    EXPECT_FALSE(plan.seed);
}

TEST(FaultFile, TakesEveryDomainOfParameters) {
    fault_plan const plan = read(R"(
        fault = [{kind = "freeze", control = true}, {kind = "chunk_length", length = "odd"},
                 {kind = "write_refusal", feature = "Width"}, {kind = "write_refusal", feature = "any"},
                 {kind = "timestamp_jump", by_s = -0.25}, {kind = "answer_error", status = 0x8006}])");
    EXPECT_TRUE(plan.faults[0].what.yes("control"));
    EXPECT_EQ(plan.faults[1].what.word("length"), "odd");
    EXPECT_EQ(plan.faults[2].what.word("feature"), "Width");
    EXPECT_EQ(plan.faults[3].what.word("feature"), "any");
    EXPECT_EQ(plan.faults[4].what.number("by_s"), -0.25);
    EXPECT_EQ(plan.faults[5].what.number("status"), 0x8006);
}

TEST(FaultFile, RefusesWhatItDoesNotKnowAndSaysWhatThereIs) {
    EXPECT_THAT(complaint("[[fault]]\nkind = \"packet_lost\""),
                HasSubstr("line.toml:2:8: kind: 'packet_lost' is refused, expected one of packet_loss, loss_burst, "));
    EXPECT_THAT(complaint("[[fault]]\nat_s = 1"),
                HasSubstr("line.toml:1:1: kind: missing, expected one of packet_loss"));
    EXPECT_THAT(complaint("[[fault]]\nkind = \"packet_loss\"\nshares = 0.1"),
                HasSubstr("line.toml:3:1: packet_loss.shares: unknown, expected one of kind, at_s, for_s, share"));
    EXPECT_THAT(complaint("sed = 1"), HasSubstr("line.toml:1:1: sed: unknown, expected seed or [[fault]] tables"));
    EXPECT_THAT(complaint("fault = 3"), HasSubstr("expected a [[fault]] table for each fault"));
    EXPECT_THAT(complaint("[[fault]\n"), HasSubstr("line.toml:1:9: "));
}

TEST(FaultFile, RefusesValuesOutsideTheirDomain) {
    auto const of = [](std::string const& entry) { return complaint("fault = [{" + entry + "}]"); };
    EXPECT_THAT(of("kind = \"packet_loss\", share = 1.5"),
                HasSubstr("packet_loss.share: 1.5 is refused, expected a number from 0 to 1"));
    EXPECT_THAT(of("kind = \"packet_loss\", share = nan"), HasSubstr("expected a number from 0 to 1"));
    EXPECT_THAT(of("kind = \"packet_loss\", share = true"), HasSubstr("expected a number from 0 to 1"));
    EXPECT_THAT(of("kind = \"loss_burst\", packets = 2.5"), HasSubstr("expected an integer from 1 to 1000000"));
    EXPECT_THAT(of("kind = \"freeze\", control = 1"), HasSubstr("expected true or false"));
    EXPECT_THAT(of("kind = \"chunk_length\", length = \"even\""),
                HasSubstr("'even' is refused, expected one of \"too_large\", \"zero\", \"odd\""));
    EXPECT_THAT(of("kind = \"read_failure\", feature = \"Hight\""),
                HasSubstr("expected a feature's name; the features are: Width, DeviceTemperature"));
    EXPECT_THAT(of("kind = \"power_cut\", for_s = 0"), HasSubstr("expected a number of seconds, above 0"));
    EXPECT_THAT(of("kind = \"power_cut\", at_s = -1"), HasSubstr("expected a number of seconds, 0 or more"));
    EXPECT_THAT(complaint("seed = -1"), HasSubstr("seed: -1 is refused, expected an integer of 0 or more"));
}

TEST(FaultFile, TellsEveryMistakeByItsPlace) {
    std::string const text =
        complaint("[[fault]]\nkind = \"packet_loss\"\nshare = 2\n[[fault]]\nkind = \"freeze\"\ncontrol = 3");
    EXPECT_THAT(text, HasSubstr("line.toml:3:9: packet_loss.share"));
    EXPECT_THAT(text, HasSubstr("\nline.toml:6:11: freeze.control"));
}

TEST(FaultFile, ThatCannotBeReadIsNamed) {
    try {
        read_fault_file("/nowhere/faults.toml", features);
        FAIL();
    } catch (fault_text_error const& error) {
        EXPECT_STREQ(error.what(), "/nowhere/faults.toml: can't be read: No such file or directory");
    }
}

TEST(FaultRequest, StartsStopsAndLists) {
    auto const start = parse_fault_request(R"(start = { kind = "packet_loss", share = 0.5, for_s = 3 })", features);
    ASSERT_TRUE(std::holds_alternative<scheduled_fault>(start.what));
    EXPECT_EQ(std::get<scheduled_fault>(start.what).what.number("share"), 0.5);
    EXPECT_EQ(std::get<scheduled_fault>(start.what).lasts, 3s);
    EXPECT_EQ(std::get<fault_request::stop>(parse_fault_request("stop = 4", features).what).number, 4U);
    EXPECT_EQ(std::get<fault_request::stop>(parse_fault_request("stop = \"all\"", features).what).number, 0U);
    EXPECT_TRUE(std::holds_alternative<fault_request::list>(parse_fault_request("list = true", features).what));
}

TEST(FaultRequest, ThatIsNoneIsRefused) {
    for (char const* const line :
         {"", "go", "stop = 0", "stop = -1", "stop = \"some\"", "list = false", "halt = true", "start = 3",
          "stop = 1 # \n list = true", R"(start = { kind = "nothing" })", R"(start = { })"}) {
        EXPECT_THROW(parse_fault_request(line, features), fault_text_error) << line;
    }
}
