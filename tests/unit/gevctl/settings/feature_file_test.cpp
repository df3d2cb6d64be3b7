// SPDX-License-Identifier: MIT
#include "settings/feature_file.hpp"

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model_camera.hpp"

using gevctl::exit_status;
using gevctl::feature_value;
using gevctl::parse_feature_file;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::string> names_of(gevctl::feature_file const& file) {
    std::vector<std::string> names;
    for (auto const& each : file.settings) {
        names.push_back(to_text(each));
    }
    return names;
}

std::string error_in(std::string const& text) {
    return message_of([&] { parse_feature_file(text, "a.toml"); });
}

}  // namespace

TEST(FeatureFile, KeepsTheOrderOfTheFile) {
    auto const file = parse_feature_file(
        "Width = 1\nHeight = 2\nExposureTime = 3.5\nA = true\n[GainSelector.DigitalAll]\nGain = 2\n"
        "[TriggerSelector.FrameStart]\nTriggerMode = \"On\"\n[GainSelector.AnalogAll]\nGain = 1\n",
        "a.toml");
    EXPECT_THAT(names_of(file), ElementsAre("Width", "Height", "ExposureTime", "A", "Gain[GainSelector=DigitalAll]",
                                            "TriggerMode[TriggerSelector=FrameStart]", "Gain[GainSelector=AnalogAll]"));
    EXPECT_EQ(file.settings[2].value, feature_value(3.5));
    EXPECT_EQ(file.settings[3].value, feature_value(true));
    EXPECT_EQ(file.settings[5].value, feature_value(std::string("On")));
    EXPECT_EQ(file.settings[5].place, "a.toml:8");
}

TEST(FeatureFile, HasNestedTablesForTwoSelectors) {
    auto const file = parse_feature_file("[LUTSelector.Red.LUTIndex.0]\nLUTValue = 7\n", "a.toml");
    EXPECT_THAT(names_of(file), ElementsAre("LUTValue[LUTSelector=Red,LUTIndex=0]"));
}

TEST(FeatureFile, MayNameItsCamera) {
    auto const file = parse_feature_file("camera = \"S1\"\nWidth = 1\n", "a.toml");
    EXPECT_EQ(file.camera, "S1");
    EXPECT_THAT(names_of(file), ElementsAre("Width"));
}

TEST(FeatureFile, ReportsAllErrorsWithTheirPlaces) {
    EXPECT_EQ(error_in("Width = [1]\nA = 1\nHeight = 1979-05-27\n"),
              "a.toml:1: Width: the value must be a number, a text, true or false\n"
              "a.toml:3: Height: the value must be a number, a text, true or false");
    EXPECT_THAT(error_in("\n[GainSelector]\nGain = 2\n"),
                HasSubstr("a.toml:2: [GainSelector]: a table is named after"));
    EXPECT_THAT(error_in("camera = 5\n"), HasSubstr("a.toml:1: camera"));
    EXPECT_THAT(error_in("Width = \n"), HasSubstr("a.toml:1:"));
    EXPECT_THAT(error_in("Width = 1\nWidth = 2\n"), HasSubstr("a.toml:2:"));
}

TEST(FeatureFile, ReadsWhatItWrites) {
    std::vector<gevctl::feature_setting> const settings{
        {{}, "Width", std::int64_t{1280}, {}},
        {{{"GainSelector", "DigitalAll"}}, "Gain", 2.0, {}},
        {{}, "Name", std::string("left \"eye\"\n"), {}},
        {{{"LUTSelector", "Red"}, {"LUTIndex", "0"}}, "LUTValue", std::int64_t{7}, {}},
        {{{"GainSelector", "DigitalAll"}}, "Odd name", true, {}},
        {{}, "ExposureTime", 1e9, {}},
    };
    std::ostringstream out;
    write_feature_file(out, {"A camera"}, settings);
    EXPECT_THAT(out.str(), testing::StartsWith("# A camera\nWidth = 1280\n"));
    EXPECT_THAT(out.str(), HasSubstr("[GainSelector.DigitalAll]\nGain = 2.0\n'Odd name' = true\n"));
    auto const file = parse_feature_file(out.str(), "a.toml");
    EXPECT_THAT(names_of(file),
                ElementsAre("Width", "Name", "ExposureTime", "Gain[GainSelector=DigitalAll]",
                            "Odd name[GainSelector=DigitalAll]", "LUTValue[LUTSelector=Red,LUTIndex=0]"));
    EXPECT_EQ(file.settings[1].value, feature_value(std::string("left \"eye\"\n")));
    EXPECT_EQ(file.settings[2].value, feature_value(1e9));
    EXPECT_EQ(file.settings[3].value, feature_value(2.0));
}

TEST(FeatureFile, CannotBeReadIfItDoesNotExistOrIsADirectory) {
    EXPECT_EQ(status_of([] { gevctl::read_feature_file("/nonexistent.toml"); }), exit_status::usage);
    EXPECT_THAT(message_of([] { gevctl::read_feature_file("/"); }), HasSubstr("it is a directory"));
    EXPECT_THAT(message_of([] { gevctl::read_feature_file("/dev/zero"); }), HasSubstr("larger than 1 MiB"));
}
