// SPDX-License-Identifier: MIT
#include "recording/frame_index.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

#include "file_size_limit.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

class FrameIndex : public testing::Test {
protected:
    FrameIndex() : descriptor(open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~FrameIndex() override { close(descriptor); }

    std::string text() const {
        std::ostringstream all;
        all << std::ifstream(directory.path() / "frames.jsonl").rdbuf();
        return all.str();
    }

    temporary_directory const directory;
    int const descriptor;
};

frame_place in_file(std::string const& name) {
    return {.file = name, .page = {}, .offset = {}, .bytes = {}};
}

frame_record full_record() {
    return {.number = 3,
            .timestamp_us = 1'700'000'000'123'456,
            .handed_over_us = 1'700'000'000'130'000,
            .announced_us = 1'700'000'000'123'450,
            .ticks = 18'446'744'073'709'551'615U,
            .exposed = exposure_time{.time_us = 1'700'000'000'123'400,
                                     .uncertainty_us = 13.0,
                                     .source = time_source::reference,
                                     .clock_drift_ppm = -40.25F},
            .gain_db = 1.5F,
            .exposure_us = 250.0F,
            .counter = 4'294'967'295U,
            .temperature_c = 36.5F,
            .width = 640,
            .height = 480,
            .stride = 960,
            .format = &frame_formats[1]};
}

}  // namespace

TEST(IndexLine, HasEveryPublishedValue) {
    EXPECT_EQ(index_line(full_record(), in_file("a.tif")),
              "{\"file\":\"a.tif\",\"frame\":3,\"timestamp_us\":1700000000123456,"
              "\"handed_over_us\":1700000000130000,\"announced_us\":1700000000123450,"
              "\"ticks\":18446744073709551615,\"time_us\":1700000000123400,\"time_uncertainty_us\":13,"
              "\"time_source\":\"reference\",\"clock_drift_ppm\":-40.25,\"gain_db\":1.5,\"exposure_us\":250.0,"
              "\"counter\":4294967295,"
              "\"width\":640,\"height\":480,\"stride\":960,\"pixel_format\":\"Mono12Packed\",\"significant_bits\":12,"
              "\"temperature_c\":36.5}\n");
}

TEST(IndexLine, HasNullForUnpublishedValues) {
    frame_record record;
    record.format = &frame_formats[0];
    auto const line = nlohmann::json::parse(index_line(record, in_file("a.tif")));
    for (char const* const name : {"announced_us", "ticks", "time_us", "time_uncertainty_us", "time_source",
                                   "clock_drift_ppm", "gain_db", "exposure_us", "counter", "temperature_c"}) {
        EXPECT_TRUE(line.at(name).is_null()) << name;
    }
}

TEST(IndexLine, HasNullWithoutAFile) {
    EXPECT_TRUE(nlohmann::json::parse(index_line(full_record(), {})).at("file").is_null());
}

TEST(IndexLine, HasThePlaceInTheFile) {
    frame_place const page{.file = "frames.tif", .page = 7, .offset = {}, .bytes = {}};
    EXPECT_EQ(index_line(full_record(), page).find(R"({"file":"frames.tif","page":7,"frame":3,)"), 0U);
    frame_place const piece{.file = "frames.raw", .page = {}, .offset = 0, .bytes = 460'800};
    EXPECT_EQ(index_line(full_record(), piece).find(R"({"file":"frames.raw","offset":0,"bytes":460800,"frame":3,)"),
              0U);
}

TEST(IndexLine, HasNullForNan) {
    auto record = full_record();
    record.gain_db = -std::numeric_limits<float>::infinity();
    record.exposure_us = std::numeric_limits<float>::quiet_NaN();
    auto const line = nlohmann::json::parse(index_line(record, in_file("a.tif")));
    EXPECT_TRUE(line.at("gain_db").is_null());
    EXPECT_TRUE(line.at("exposure_us").is_null());
}

TEST_F(FrameIndex, AppendsLines) {
    frame_index journal(descriptor);
    journal.append("one\n");
    journal.append("two\n");
    EXPECT_EQ(text(), "one\ntwo\n");
}

TEST_F(FrameIndex, DoesNotOverwriteAnExistingFile) {
    std::ofstream(directory.path() / "frames.jsonl") << "precious\n";
    try {
        frame_index const journal(descriptor);
        FAIL() << "the existing file was opened";
    } catch (std::system_error const& error) {
        EXPECT_EQ(error.code(), std::errc::file_exists);
    }
    EXPECT_EQ(text(), "precious\n");
}

TEST_F(FrameIndex, RemovesThePartOfALineThatAFullDiskHasTaken) {
    frame_index journal(descriptor);
    journal.append("one\n");
    {
        file_size_limit const limit(6);
        EXPECT_THROW(journal.append("two\n"), std::system_error);
        EXPECT_EQ(text(), "one\n");
    }
    journal.append("three\n");
    EXPECT_EQ(text(), "one\nthree\n");
}
