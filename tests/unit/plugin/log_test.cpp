// SPDX-License-Identifier: MIT
#include "mg_log.hpp"

#include "plugin_test.hpp"

namespace {

constexpr char _S_logTag[] = "MG_JAI_TEST";

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

// The values of the variables at load time: initialised before any test runs.
uint32_t const id_at_load = gMgLogIdLib;
uint32_t const level_at_load = gMgLogLevelLib;
uint32_t const mode_at_load = gMgLogModeLib;

TEST(LogVariables, AreZeroAtLoad) {
    EXPECT_EQ(id_at_load, 0u);
    EXPECT_EQ(level_at_load, 0u);
    EXPECT_EQ(mode_at_load, 0u);
}

/// A process that has not logged yet: the system log is opened once in the life of a process.
struct log_of_a_fresh_process : plugin_test::plugin {
    log_of_a_fresh_process() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    /// Runs `body` in a child process; the test fails if an expectation in `body` fails.
    template <typename function>
    static void in_a_fresh_process(function&& body) {
        EXPECT_EXIT(
            {
                body();
                std::exit(HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
};

struct log_macros : plugin_test::plugin {
    static void log_each_level() {
        MG_LOG_E("an error %d\n", 1);
        MG_LOG_W("a warning %d\n", 2);
        MG_LOG_I("an info %d\n", 3);
        MG_LOG_D("a debug %d\n", 4);
    }
};

TEST_F(log_macros, EachLevelHasItsFormAndPriority) {
    log_each_level();
    auto const& lines = recording::the_system_log().lines;
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_THAT(lines[0].text, testing::MatchesRegex("\\[e\\|tests/unit/plugin/log_test.cpp:[0-9]+\\] an error 1\n"));
    EXPECT_EQ(lines[0].priority, 3);
    EXPECT_EQ(lines[1].text, "[w|log_each_level] a warning 2\n");
    EXPECT_EQ(lines[1].priority, 4);
    EXPECT_EQ(lines[2].text, "[i] an info 3\n");
    EXPECT_EQ(lines[2].priority, 6);
    EXPECT_EQ(lines[3].text, "[d|log_each_level] a debug 4\n");
    EXPECT_EQ(lines[3].priority, 7);
    EXPECT_EQ(standard_output(),
              "[MG_JAI_TEST:e]: an error 1\n[MG_JAI_TEST:w]: a warning 2\n[MG_JAI_TEST:i]: an info 3\n"
              "[MG_JAI_TEST:d]: a debug 4\n");
}

TEST_F(log_macros, Level0WithBothModeBitsSetLogsNothingErrorsIncluded) {
    gMgLogLevelLib = 0;
    log_each_level();
    EXPECT_THAT(system_lines(), IsEmpty());
    EXPECT_EQ(standard_output(), "");
}

TEST_F(log_macros, Level1LogsErrorsOnly) {
    gMgLogLevelLib = 1;
    log_each_level();
    EXPECT_EQ(system_lines().size(), 1u);
    EXPECT_EQ(standard_output(), "[MG_JAI_TEST:e]: an error 1\n");
}

TEST_F(log_macros, EachFurtherLevelAddsOneKind) {
    for (uint32_t threshold = 2; threshold <= 3; ++threshold) {
        recording::the_system_log() = {};
        gMgLogLevelLib = threshold;
        log_each_level();
        EXPECT_EQ(system_lines().size(), threshold);
    }
}

TEST_F(log_macros, Level4AndAboveLogsEverything) {
    for (uint32_t threshold : {4U, 5U, 0xFFFFFFFFU}) {
        recording::the_system_log() = {};
        gMgLogLevelLib = threshold;
        log_each_level();
        EXPECT_EQ(system_lines().size(), 4u);
    }
}

TEST_F(log_macros, OtherModeBitsAreIgnored) {
    gMgLogModeLib = 0xFFFFFFFCU;
    log_each_level();
    EXPECT_THAT(system_lines(), IsEmpty());
    EXPECT_EQ(standard_output(), "");
}

TEST_F(log_macros, ATextOfMoreThan1023CharactersIsTruncatedInTheSystemLogButNotOnStandardOutput) {
    std::string const text(3000, 'x');
    MG_LOG_I("%s\n", text.c_str());
    ASSERT_EQ(system_lines().size(), 1u);
    EXPECT_EQ(system_lines()[0], "[i] " + std::string(1023 - 4, 'x'));
    EXPECT_EQ(standard_output(), "[MG_JAI_TEST:i]: " + text + "\n");
}

TEST_F(log_macros, APercentSignInATextIsNotInterpretedAgain) {
    MG_LOG_I("%s\n", "100%s %n");
    EXPECT_EQ(system_lines()[0], "[i] 100%s %n\n");
}

TEST_F(log_macros, ArgumentsAreEvaluatedOnceForEachActiveSinkAndNotAtAllWhenFiltered) {
    unsigned evaluations = 0;
    MG_LOG_I("%u\n", ++evaluations);
    EXPECT_EQ(evaluations, 2u);
    gMgLogModeLib = 1;
    MG_LOG_I("%u\n", ++evaluations);
    EXPECT_EQ(evaluations, 3u);
    gMgLogLevelLib = 2;
    MG_LOG_I("%u\n", ++evaluations);
    EXPECT_EQ(evaluations, 3u);
}

/// The line is written to the system log first, then to standard output.
TEST_F(log_macros, TheModeIsReadAgainBetweenTheTwoSinks) {
    auto const switch_standard_output_off = [] {
        gMgLogModeLib = 2;
        return 7;
    };
    MG_LOG_I("%d\n", switch_standard_output_off());
    EXPECT_EQ(system_lines().size(), 1u);
    EXPECT_EQ(standard_output(), "");
}

TEST_F(log_macros, AStepLogsUnderTheNameOfItsOperation) {
    auto const step = [] {
        constexpr mg_log_operation mgLogFunction{"ProcLoop"};
        MG_LOG_W("careful\n");
    };
    step();
    EXPECT_TRUE(logged(level::warning, "ProcLoop", "MG_JAI_TEST", "careful"));
}

TEST_F(log_of_a_fresh_process, Mode2OnlyOpensTheSystemLogWithTheInstanceOnTheFirstMessage) {
    in_a_fresh_process([&] {
        gMgLogModeLib = 2;
        gMgLogIdLib = 3;
        EXPECT_TRUE(recording::the_system_log().idents.empty());
        MG_LOG_I("first\n");
        gMgLogIdLib = 4;
        MG_LOG_I("second\n");
        EXPECT_EQ(recording::the_system_log().idents, std::vector<std::string>{"mediagrabber.3"});
        EXPECT_EQ(recording::the_system_log().options, 5);
        EXPECT_EQ(recording::the_system_log().facility, 24);
        EXPECT_STREQ(recording::the_system_log().ident_pointers.at(0), "mediagrabber.3")
            << "the ident outlives the call";
        EXPECT_EQ(standard_output(), "");
    });
}

TEST_F(log_of_a_fresh_process, Mode1OnlyNeverOpensTheSystemLog) {
    in_a_fresh_process([&] {
        gMgLogModeLib = 1;
        MG_LOG_E("a\n");
        MG_LOG_D("b\n");
        EXPECT_TRUE(recording::the_system_log().idents.empty());
        EXPECT_TRUE(recording::the_system_log().lines.empty());
    });
}

TEST_F(log_of_a_fresh_process, AFilteredMessageDoesNotOpenTheSystemLog) {
    in_a_fresh_process([&] {
        gMgLogLevelLib = 1;
        MG_LOG_D("b\n");
        EXPECT_TRUE(recording::the_system_log().idents.empty());
    });
}

TEST_F(log_of_a_fresh_process, TheMainProceduresLastMessageOpensTheSystemLogEvenWhenItIsFiltered) {
    in_a_fresh_process([&] {
        gMgLogLevelLib = 0;
        gMgLogModeLib = 2;
        gMgLogIdLib = 12;
        scripted::sdk().interfaces.clear();
        EXPECT_EQ(MgLibProc(), 2);
        EXPECT_EQ(recording::the_system_log().idents, std::vector<std::string>{"mediagrabber.12"});
        EXPECT_TRUE(recording::the_system_log().lines.empty());
    });
}

}  // namespace
