// SPDX-License-Identifier: MIT
#include "device/output_lines.hpp"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "device/line_trace.hpp"
#include "feature_bench.hpp"
#include "genicam/genicam_xml.hpp"

using namespace camsim;
using namespace std::chrono_literals;
using gvcp::status;
using testing::HasSubstr;

namespace {

using time_point = std::chrono::steady_clock::time_point;

constexpr time_point power_up{1000s};

line_change exposure_begins(std::chrono::nanoseconds after_power_up) {
    return {power_up + after_power_up, [](output_lines& lines) { ++lines.exposures; }};
}

line_change exposure_ends(std::chrono::nanoseconds after_power_up) {
    return {power_up + after_power_up, [](output_lines& lines) { --lines.exposures; }};
}

output_lines exposure_on_line2(bool inverted = false) {
    output_lines lines;
    lines.lines[0] = {line_source::exposure_active, inverted};
    return lines;
}

/// The part of a trace after the declarations and the levels at power-up.
std::string changes(std::string const& vcd) {
    std::string const end_of_levels = "\n$end\n";
    return vcd.substr(vcd.find(end_of_levels) + end_of_levels.size());
}

std::string content(std::filesystem::path const& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

}  // namespace

TEST(OutputLine, FollowsItsSource) {
    output_lines lines;
    auto const level_with = [&](line_source source) {
        lines.lines[1].source = source;
        return lines.level(1);
    };
    EXPECT_FALSE(level_with(line_source::low));
    EXPECT_TRUE(level_with(line_source::high));
    EXPECT_FALSE(level_with(line_source::exposure_active));
    lines.exposures = 1;
    EXPECT_TRUE(level_with(line_source::exposure_active));
    EXPECT_FALSE(level_with(line_source::frame_active));
    lines.frames = 2;
    EXPECT_TRUE(level_with(line_source::frame_active));
    lines.user_outputs[1] = true;
    EXPECT_FALSE(level_with(line_source::user_output0));
    EXPECT_TRUE(level_with(line_source::user_output1));
    lines.lines[1].inverted = true;
    EXPECT_FALSE(lines.level(1));
    EXPECT_FALSE(lines.level(0));
}

TEST(LineFeatures, ReferToTheSelectedLine) {
    feature_bench camera;
    camera.write("LineSelector", 1);
    EXPECT_EQ(camera.write("LineSource", 2), status::success);
    camera.write("LineInverter", 1);
    camera.write("LineSelector", 0);
    EXPECT_EQ(camera.read("LineSource"), 0U);
    EXPECT_EQ(camera.read("LineInverter"), 0U);
    EXPECT_EQ(camera.read("LineStatus"), 0U);
    camera.write("LineSelector", 1);
    EXPECT_EQ(camera.read("LineSource"), 2U);
    EXPECT_EQ(camera.read("LineInverter"), 1U);
    EXPECT_EQ(camera.read("LineStatus"), 1U);
    EXPECT_EQ(camera.write("LineSelector", 2), status::invalid_parameter);
    EXPECT_EQ(camera.write("LineSource", 6), status::invalid_parameter);
    EXPECT_EQ(camera.write("LineStatus", 0), status::write_protect);
}

TEST(LineFeatures, DriveALineFromAUserOutput) {
    feature_bench camera;
    camera.write("LineSource", 5);
    camera.write("UserOutputSelector", 1);
    EXPECT_EQ(camera.read("LineStatus"), 0U);
    camera.write("UserOutputValue", 1);
    EXPECT_EQ(camera.read("LineStatus"), 1U);
    camera.write("UserOutputSelector", 0);
    EXPECT_EQ(camera.read("UserOutputValue"), 0U);
}

TEST(LineFeatures, NameLinesAndSourcesAsApplicationsExpect) {
    camera_state state({}, {}, {});
    std::string const xml = genicam_xml("A", "B", place(camera_features(state)));
    EXPECT_THAT(node(xml, "LineSelector"), testing::AllOf(HasSubstr("\"Line2\""), HasSubstr("\"Line3\""),
                                                          HasSubstr("<pSelected>LineInverter</pSelected>")));
    EXPECT_THAT(node(xml, "LineSource"), testing::AllOf(HasSubstr("\"Low\""), HasSubstr("\"ExposureActive\"")));
}

TEST(VcdWriter, DeclaresWiresWithTheirLevelsAtPowerUp) {
    std::ostringstream out;
    vcd_writer const writer(out, power_up, exposure_on_line2(true));
    EXPECT_THAT(out.str(), HasSubstr("$timescale 1 ns $end\n"));
    EXPECT_THAT(out.str(), HasSubstr("$var wire 1 ! line2 $end\n$var wire 1 \" line3 $end\n"));
    EXPECT_THAT(out.str(), HasSubstr("$enddefinitions $end\n#0\n$dumpvars\n1!\n0\"\n0#\n0$\n0%\n0&\n$end\n"));
}

TEST(VcdWriter, WritesEachChangeInNanosecondsSincePowerUp) {
    std::ostringstream out;
    vcd_writer writer(out, power_up, exposure_on_line2());
    writer.apply(exposure_begins(1500ns));
    writer.apply({power_up + 1600ns, [](output_lines& lines) { lines.lines[1].source = line_source::low; }});
    writer.apply(exposure_ends(2s));
    writer.apply({power_up + 2s, [](output_lines& lines) { lines.lines[1].inverted = true; }});
    EXPECT_EQ(changes(out.str()), "#1500\n1!\n1#\n#2000000000\n0!\n0#\n1\"\n");
}

TEST(LineTrace, SortsLateChangesByTime) {
    auto const path = std::filesystem::temp_directory_path() / ("line_trace_test." + std::to_string(::getpid()));
    {
        auto const now = std::chrono::steady_clock::now();
        line_trace trace(path, now, exposure_on_line2());
        auto const at = [&](std::chrono::nanoseconds after, auto change) { trace.add({now + after, change}); };
        at(50ns, [](output_lines& lines) { lines.user_outputs[0] = true; });
        at(10ns, [](output_lines& lines) { ++lines.exposures; });
        at(20ns, [](output_lines& lines) { --lines.exposures; });
        trace.finish();
        EXPECT_FALSE(trace.failed());
    }
    EXPECT_EQ(changes(content(path)), "#10\n1!\n1#\n#20\n0!\n0#\n#50\n1%\n");
    std::filesystem::remove(path);
}

TEST(LineTrace, ThrowsIfTheFileCannotBeCreated) {
    EXPECT_THROW(line_trace("/nowhere/trace", power_up, {}), std::runtime_error);
}

TEST(LineTrace, ReportsAWriteError) {
    auto const path = std::filesystem::temp_directory_path() / ("full_trace_test." + std::to_string(::getpid()));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit const small{2048, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    line_trace trace(path, power_up, exposure_on_line2());
    for (int count = 1; count < 1000; ++count) {
        trace.add(exposure_begins(count * 20ns));
        trace.add(exposure_ends(count * 20ns + 10ns));
    }
    trace.finish();
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_TRUE(trace.failed());
    std::filesystem::remove(path);
}
