// SPDX-License-Identifier: MIT
#include "cli/command_line.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "config/configuration_schema.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

struct command_result {
    exit_status status = exit_status::success;
    std::string out;
    std::string errors;
};

command_result run(std::vector<char const*> const& options) {
    std::vector<char const*> arguments{"mediagrabber"};
    std::ranges::copy(options, std::back_inserter(arguments));
    std::ostringstream out;
    std::ostringstream errors;
    auto const status = run_command_line(static_cast<int>(arguments.size()), arguments.data(), out, errors);
    return {.status = status, .out = out.str(), .errors = errors.str()};
}

}  // namespace

TEST(CommandLine, PrintsHelpAndFailsWithoutACommand) {
    auto const result = run({});
    EXPECT_EQ(result.status, exit_status::usage);
    EXPECT_THAT(result.errors, HasSubstr("Exit status:"));
}

TEST(CommandLine, PrintsTheKeys) {
    auto const result = run({"keys"});
    EXPECT_EQ(result.status, exit_status::success);
    EXPECT_EQ(result.out, configuration_reference());
}

TEST(CommandLine, PrintsTheVersionWithoutAPlugIn) {
    auto const result = run({"--version"});
    EXPECT_EQ(result.status, exit_status::success) << result.errors;
    EXPECT_THAT(result.out, testing::StartsWith("mediagrabber "));
}

TEST(CommandLine, RefusesTheNumberOfARecordingWithTheNewOption) {
    auto const result = run({"set", "--instance", "7", "gain.db=1"});
    EXPECT_EQ(result.status, exit_status::usage);
    EXPECT_THAT(result.errors, HasSubstr("\"--instance\" was renamed to \"--name\""));
}

TEST(CommandLine, DescribesEveryOption) {
    auto const result = run({"--help-all"});
    EXPECT_EQ(result.status, exit_status::success);
    for (auto const* const option :
         {"--config", "--frames", "--output", "--web", "--web-token", "--pipeline", "--socket", "--service", "--name",
          "--set", "--json", "--print-default", "--timeout", "--restart", "--seconds", "--tick-frequency",
          "--interface", "--page", "trigger"}) {
        EXPECT_THAT(result.out, HasSubstr(option));
    }
}

TEST(CommandLine, RefusesARenamedOptionWithItsNewName) {
    auto const result = run({"set", "--another-run", "image.width=640"});
    EXPECT_EQ(result.status, exit_status::usage);
    EXPECT_THAT(result.errors, HasSubstr("\"--another-run\" was renamed to \"--restart\""));
    EXPECT_THAT(run({"set", "--help"}).out, testing::Not(HasSubstr("--another-run")));
}

TEST(CommandLine, RefusesARenamedRequestWithItsNewName) {
    auto const result = run({"signal", "1", "keep"});
    EXPECT_EQ(result.status, exit_status::usage);
    EXPECT_THAT(result.errors, HasSubstr("\"keep\" was renamed to \"trigger\""));
}

TEST(CommandLine, FindsNoRecordingForAServiceThatIsNotRunning) {
    for (auto const* const command : {"set", "signal", "get"}) {
        auto const result = run({command, "--service", "none", command[1] == 'i' ? "stop" : "gain.db=1"});
        EXPECT_EQ(result.status, exit_status::no_recording) << command;
        EXPECT_THAT(result.errors, HasSubstr("the service mediagrabber@none has no control socket in /run/"));
    }
    EXPECT_EQ(run({"signal", "--service", "none", "1", "stop"}).status, exit_status::usage);
    EXPECT_EQ(run({"signal", "--service", "none", "--socket", "/a", "stop"}).status, exit_status::usage);
}

TEST(CommandLine, RefusesAnUnknownRequest) {
    auto const result = run({"signal", "1", "pause"});
    EXPECT_EQ(result.status, exit_status::usage);
    EXPECT_THAT(result.errors, HasSubstr("pause"));
}
