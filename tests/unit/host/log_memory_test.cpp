#include "live/log_memory.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;
using level = log_memory::level;

TEST(LogMemory, KeepsTheLastLines) {
    log_memory log(2);
    log.add(level::info, "one");
    log.add(level::warning, "two");
    log.add(level::error, "three");
    auto const lines = log.after(0);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "two");
    EXPECT_EQ(lines[0].severity, level::warning);
    EXPECT_EQ(lines[1].number, 3U);
    EXPECT_GT(lines[1].time_us, 0U);
    EXPECT_EQ(log.after(2).size(), 1U);
    EXPECT_TRUE(log.after(3).empty());
}

TEST(LogMemory, AddsUpWhatIsToldInWords) {
    log_memory log(10);
    log.add(level::warning, "Loop_7(6): Frame 5 export time budget is over (10100us >= 10000us)");
    log.add(level::info, "total time budget is over (10100us >= 10000us), frame 5");
    log.add(level::warning, "Frames Drop trigger: Loop_9(ok_8 dropCntr_1)");
    log.add(level::warning,
            "openpv: stream from 10.0.0.2: 2 frames incomplete, 5 packets missing for good, 9 asked for again; this "
            "machine dropped none: they were lost on the way");
    log.add(level::warning, "openpv: stream from 10.0.0.2: 3 packets asked for again, all came");
    auto const counts = log.count();
    EXPECT_EQ(counts.budgets_exceeded, 2U);
    EXPECT_EQ(counts.drops_told, 1U);
    EXPECT_EQ(counts.packets_missing, 5U);
    EXPECT_EQ(counts.packets_asked_again, 12U);
}

TEST(LogMemory, TakesNoNumberForWhatIsNone) {
    log_memory log(10);
    for (auto const* const text : {" asked for again", "packets missing for good", "x packets missing for good",
                                   "99999999999999999999999 packets missing for good", ""}) {
        log.add(level::info, text);
    }
    EXPECT_EQ(log.count().packets_asked_again, 0U);
    EXPECT_EQ(log.count().packets_missing, 0U);
}

TEST(LogMemory, KnowsTheCameraThatWasReportedLast) {
    log_memory log(3);
    EXPECT_TRUE(log.camera().empty());
    for (auto const* const text :
         {"== 0. Camera Device Information ==", "====", "\tDeviceModel        : A", "Loop 0. Choose Model",
          "== Camera Device Information ==", "====", "Vendor           : JAI Corporation", "Model            : B",
          "~~ Camera Device Current Settings ~~", "Gain, dB            : 0.0", "x", "y"}) {
        log.add(level::info, text);
    }
    auto const camera = log.camera();
    ASSERT_EQ(camera.size(), 2U);
    EXPECT_EQ(camera[1].label, "Model");
    EXPECT_EQ(camera[1].value, "B");
}

TEST(PluginLine, HasALevelBehindItsTag) {
    EXPECT_EQ(read_plugin_line("[MG_JAI_PROC:w]: late").severity, level::warning);
    EXPECT_EQ(read_plugin_line("[MG_JAI_PROC:w]: late").text, "late");
    EXPECT_EQ(read_plugin_line("[X:e]: a]: b").text, "a]: b");
    for (auto const* const text : {"", "[", "[X:q]: a", "[]: a", "late", "a [X:e]: b", "[X e]: b"}) {
        EXPECT_EQ(read_plugin_line(text).severity, level::info) << text;
        EXPECT_EQ(read_plugin_line(text).text, text);
    }
}
