// SPDX-License-Identifier: MIT
#include "status/log_buffer.hpp"

#include <gtest/gtest.h>

#include "mg_log_records.hpp"

using namespace mediagrabber;
using level = log_buffer::level;

namespace {

std::string const statistics = mg_log_records::stream_tag;
std::string const prefix = "openpv: stream from 10.0.0.2: " + statistics + " ";

}  // namespace

TEST(LogBuffer, RetainsTheLatestLines) {
    log_buffer log(2);
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

TEST(LogBuffer, CountsTheMessagesOfThePlugin) {
    log_buffer log(10);
    log.add(level::warning, "Loop_7(6): Frame 5 export time budget is over (10100us >= 10000us)");
    log.add(level::info, "total time budget is over (10100us >= 10000us), frame 5");
    log.add(level::warning, "Frames Drop trigger: Loop_9(ok_8 dropCntr_1)");
    EXPECT_EQ(log.count().budgets_exceeded, 2U);
    EXPECT_EQ(log.count().drop_reports, 1U);
}

TEST(LogBuffer, AddsUpStreamStatistics) {
    log_buffer log(1);
    log.add(level::info, prefix + "packets_resend_requested=9 packets_resent=8 packets_lost=1");
    log.add(level::info, prefix + "packets_dropped_by_socket=4 packets_lost=20");
    log.add(level::info, statistics + " packets_resend_requested=100");
    auto const counts = log.count();
    EXPECT_EQ(counts.packets_resend_requested, 109U);
    EXPECT_EQ(counts.packets_resent, 8U);
    EXPECT_EQ(counts.packets_lost, 21U);
    EXPECT_EQ(counts.packets_dropped_by_socket, 4U);
}

TEST(LogBuffer, IgnoresUnknownKeysOfTheStatistics) {
    log_buffer log(10);
    log.add(level::info, prefix + "packets_lost_twice=7 lost=7 packets_lost=2 more");
    EXPECT_EQ(log.count().packets_lost, 2U);
    EXPECT_EQ(log.count().packets_resent, 0U);
}

TEST(LogBuffer, CountsNothingForMalformedNumbers) {
    log_buffer log(10);
    for (std::string const number : {"", "x", "-1", "1x", "1.5", "0x10", "99999999999999999999999", "=1"}) {
        log.add(level::info, prefix + "packets_lost=" + number + " packets_resent=1");
    }
    EXPECT_EQ(log.count().packets_lost, 0U);
    EXPECT_EQ(log.count().packets_resent, 8U) << "the pairs behind them count";
}

TEST(LogBuffer, CountsNothingInSentences) {
    log_buffer log(10);
    for (std::string const& text :
         {std::string("openpv: stream from 10.0.0.2: 5 packets lost, 9 resend requests, packets_lost=5"),
          std::string("12 packets lost, 3 packet resends requested"), "x" + statistics + " packets_lost=3", statistics,
          statistics + " packets_lost", std::string("packets_lost=7"), std::string()}) {
        log.add(level::warning, text);
    }
    EXPECT_EQ(log.count().packets_resend_requested, 0U);
    EXPECT_EQ(log.count().packets_lost, 0U);
}

TEST(LogBuffer, ReturnsTheCameraReportedLast) {
    log_buffer log(3);
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
