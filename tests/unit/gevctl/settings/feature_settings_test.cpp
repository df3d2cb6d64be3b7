// SPDX-License-Identifier: MIT
#include "settings/feature_settings.hpp"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model_camera.hpp"

using gevctl::apply_settings;
using gevctl::check_settings;
using gevctl::compare_settings;
using gevctl::exit_status;
using gevctl::feature_setting;
using gevctl::feature_value;
using gevctl::parse_feature_file;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class FeatureSettings : public testing::Test {
protected:
    std::vector<feature_setting> settings(std::string const& text) {
        return check_settings(camera.features, parse_feature_file(text, "a.toml").settings);
    }
    gevctl::settings_outcome apply(std::string const& text) { return apply_settings(camera.features, settings(text)); }

    static std::vector<std::string> differing(gevctl::settings_outcome const& result) {
        std::vector<std::string> names;
        for (auto const& each : result.settings) {
            if (each.differs()) {
                names.push_back(to_text(each.setting));
            }
        }
        return names;
    }
    std::size_t writes() const {
        return static_cast<std::size_t>(
            std::ranges::count(camera.registers.accesses, true, &fake_registers::access::is_write));
    }

    model_camera camera;
};

}  // namespace

TEST_F(FeatureSettings, AreWrittenAgainIfAnotherSettingMadeTheCameraRefuseThem) {
    auto const result = apply("OffsetX = 1000\nWidth = 640\n");
    EXPECT_THAT(differing(result), ElementsAre());
    EXPECT_EQ(camera.registers.get(0x100), 640U);
    EXPECT_EQ(camera.registers.get(0x104), 1000U);
    EXPECT_EQ(result.passes, 3U);  // width; offset; read-back
}

TEST_F(FeatureSettings, EndInTheSameStateFromBothOrders) {
    camera.registers.put(0x100, 640);
    camera.registers.put(0x104, 1824);
    EXPECT_THAT(differing(apply("Width = 2464\nOffsetX = 0\n")), ElementsAre());
    EXPECT_EQ(camera.registers.get(0x100), 2464U);
    EXPECT_EQ(camera.registers.get(0x104), 0U);
}

TEST_F(FeatureSettings, AreNotWrittenIfTheCameraHasThem) {
    auto const result = apply("Width = 2464\nReverseX = false\n");
    EXPECT_THAT(differing(result), ElementsAre());
    EXPECT_EQ(writes(), 0U);
    EXPECT_EQ(camera.writes_prepared, 0);
    EXPECT_FALSE(result.settings[0].written);
}

TEST_F(FeatureSettings, HaveTheReasonIfTheCameraKeepsAnotherValue) {
    auto const result = apply("Width = 640\nGain = 17\nTriggerDelay = 5\n");
    EXPECT_THAT(differing(result), ElementsAre("Gain", "TriggerDelay"));
    EXPECT_EQ(result.settings[1].reason, "Gain cannot be set to 17: it must be from 0 to 16");
    EXPECT_THAT(result.settings[2].reason, HasSubstr("not available"));
    EXPECT_EQ(result.settings[0].reason, "");
    EXPECT_EQ(result.settings[0].before, feature_value(std::int64_t{2464}));
    EXPECT_EQ(result.settings[0].present, feature_value(std::int64_t{640}));
}

TEST_F(FeatureSettings, BecomeAvailableByALaterSetting) {
    EXPECT_THAT(differing(apply("TriggerDelay = 5\nTriggerMode = \"On\"\n")), ElementsAre());
    EXPECT_EQ(camera.registers.get(0x204), 5U);
}

TEST_F(FeatureSettings, EndIfTheCameraRoundsAValue) {
    camera.registers.on_write = [this](std::uint64_t) {
        camera.registers.put(0x10C, camera.registers.get(0x10C) & ~1ULL);
    };
    auto const result = apply("Gain = 5\n");
    EXPECT_THAT(differing(result), ElementsAre("Gain"));
    EXPECT_EQ(result.settings[0].present, feature_value(std::int64_t{4}));
    EXPECT_EQ(result.settings[0].reason, "the camera accepted 5 and has another value");
    EXPECT_LE(result.passes, 3U);
}

TEST_F(FeatureSettings, EndIfTwoSettingsChangeEachOther) {
    camera.registers.put(0x100, 16);
    camera.registers.on_write = [this](std::uint64_t address) {
        address == 0x100 ? camera.registers.put(0x10C, 0) : camera.registers.put(0x100, 16);
    };
    auto const result = apply("Width = 640\nGain = 3\n");
    EXPECT_THAT(differing(result), ElementsAre("Width"));
    EXPECT_LE(result.passes, 4U);
}

TEST_F(FeatureSettings, AreSetUnderTheirSelectorsWhichAreRestored) {
    auto const result = apply("[GainSelector.AnalogAll]\nGain = 2\n[GainSelector.DigitalAll]\nGain = 3\n");
    EXPECT_THAT(differing(result), ElementsAre());
    EXPECT_EQ(camera.registers.get(0x10C), 2U);
    EXPECT_EQ(camera.registers.get(0x11C), 3U);
    EXPECT_EQ(camera.registers.get(0x108), 0U);
}

TEST_F(FeatureSettings, MayContainTheSelectorItself) {
    EXPECT_THAT(differing(apply("GainSelector = \"DigitalAll\"\nGain = 2\n")), ElementsAre());
    EXPECT_EQ(camera.registers.get(0x108), 1U);
    EXPECT_EQ(camera.registers.get(0x11C), 2U);
    EXPECT_EQ(camera.registers.get(0x10C), 0U);
}

TEST_F(FeatureSettings, AreAllCheckedBeforeTheFirstWrite) {
    auto const check = [&] { apply("Width = 640\nWidht = 640\nReverseX = 5\nStart = 1\n[OffsetX.640]\nGain = 1\n"); };
    EXPECT_EQ(status_of(check), exit_status::usage);
    std::string const message = message_of(check);
    EXPECT_THAT(message, HasSubstr("a.toml:2: the camera does not have the feature \"Widht\""));
    EXPECT_THAT(message, HasSubstr("a.toml:3: ReverseX: 5 is not a value of a feature of type boolean"));
    EXPECT_THAT(message, HasSubstr("a.toml:4: Start is a command"));
    EXPECT_THAT(message, HasSubstr("a.toml:6: OffsetX is not a selector"));
    EXPECT_EQ(writes(), 0U);
}

TEST_F(FeatureSettings, HaveAnAccountIfTheCameraStopsResponding) {
    camera.registers.failures[0x104] = {openpv::register_outcome::timeout, 0, "the camera did not respond in time"};
    auto const result = apply("Gain = 2\nOffsetX = 8\nReverseX = true\n");
    ASSERT_TRUE(result.aborted);
    EXPECT_EQ(result.aborted->status(), exit_status::lost);
    EXPECT_THAT(result.aborted->what(), HasSubstr("OffsetX"));
    EXPECT_TRUE(result.settings[0].written);
    EXPECT_FALSE(result.settings[1].present);
    EXPECT_FALSE(result.settings[2].present);
    camera.registers.failures.clear();
    EXPECT_THAT(differing(apply("Gain = 2\nOffsetX = 8\nWidth = 640\nReverseX = true\n")), ElementsAre());
}

TEST_F(FeatureSettings, HaveAnAccountIfASelectorCannotBeRestored) {
    camera.registers.on_write = [this](std::uint64_t address) {
        if (address == 0x11C) {
            camera.registers.failures[0x108] = {openpv::register_outcome::refused, 0x8005, "it is write-protected"};
        }
    };
    auto const result = apply("[GainSelector.DigitalAll]\nGain = 3\n");
    EXPECT_FALSE(result.aborted);
    EXPECT_TRUE(result.settings[0].written);
    EXPECT_THAT(result.not_restored,
                ElementsAre(HasSubstr("GainSelector cannot be set to AnalogAll: it is write-protected")));
}

TEST_F(FeatureSettings, AreReadIfASelectorCannotBeRestored) {
    camera.registers.on_write = [this](std::uint64_t address) {
        if (address == 0x108) {
            camera.locked = true;
        }
    };
    auto const found = gevctl::read_settings(camera.features, false);
    EXPECT_THAT(found.settings, testing::SizeIs(5));
    EXPECT_THAT(found.not_restored, ElementsAre(HasSubstr("the camera is locked")));
}

TEST_F(FeatureSettings, RestoreASelectorInALaterPass) {
    int writes_to_selector = 0;
    camera.registers.on_write = [&](std::uint64_t address) {
        writes_to_selector += address == 0x108 ? 1 : 0;
        camera.locked = address == 0x11C;  // the restoration of the first pass is refused
    };
    camera.on_refusal = [this] { camera.locked = false; };
    auto const result = apply("[GainSelector.DigitalAll]\nGain = 3\n");
    EXPECT_THAT(result.not_restored, ElementsAre());
    EXPECT_EQ(camera.registers.get(0x108), 0U);
}

TEST_F(FeatureSettings, AreWrittenIfTheyCanOnlyBeWritten) {
    auto const result = apply("Password = 5\nWidth = 640\n");
    EXPECT_FALSE(result.settings[0].comparable);
    EXPECT_TRUE(result.settings[0].written);
    EXPECT_THAT(differing(result), ElementsAre());
    EXPECT_EQ(camera.registers.get(0x230), 5U);
    EXPECT_EQ(std::ranges::count(camera.registers.accesses, fake_registers::access{true, 0x230, 4}), 1);
}

TEST_F(FeatureSettings, AreNotComparedIfTheyCanOnlyBeWritten) {
    auto const result = compare_settings(camera.features, settings("Password = 5\n"));
    EXPECT_FALSE(result.settings[0].comparable);
    EXPECT_FALSE(result.settings[0].written);
    EXPECT_EQ(result.settings[0].reason, "it can only be written");
}

TEST_F(FeatureSettings, AreComparedWithoutAWrite) {
    auto const result = compare_settings(camera.features, settings("Width = 640\nReverseX = false\n"));
    EXPECT_THAT(differing(result), ElementsAre("Width"));
    EXPECT_EQ(writes(), 0U);
}

TEST_F(FeatureSettings, AreReadUnderEachValueOfTheirSelectors) {
    camera.registers.put(0x11C, 7);
    camera.registers.put(0x208, 1);  // the width is locked, as while the camera acquires
    auto const found = gevctl::read_settings(camera.features, false);
    std::vector<std::string> lines;
    for (auto const& each : found.settings) {
        lines.push_back(to_text(each) + "=" + gevctl::to_text(each.value));
    }
    EXPECT_THAT(lines, ElementsAre("Width=2464", "OffsetX=0", "ReverseX=false", "Gain[GainSelector=AnalogAll]=0",
                                   "Gain[GainSelector=DigitalAll]=7"));
    EXPECT_EQ(camera.registers.get(0x108), 0U);
    EXPECT_THAT(found.missing, ElementsAre());
}

TEST_F(FeatureSettings, AreReadOfAllFeaturesIfThatIsWanted) {
    auto const found = gevctl::read_settings(camera.features, true);
    EXPECT_THAT(found.settings, testing::Contains(testing::Field(&feature_setting::name, "TriggerMode")));
    EXPECT_THAT(found.settings, testing::Contains(testing::Field(&feature_setting::name, "Name")));
    EXPECT_THAT(found.settings,
                testing::Not(testing::Contains(testing::Field(&feature_setting::name, "TriggerDelay"))));
    EXPECT_THAT(found.settings, testing::Not(testing::Contains(testing::Field(&feature_setting::name, "Start"))));
    EXPECT_THAT(found.settings,
                testing::Not(testing::Contains(testing::Field(&feature_setting::name, "GainSelector"))));
}

namespace {

/// A camera with Gain under a selector of the given type.
std::string xml_with_selector(std::string const& type) {
    return whole_xml(element("Category", "Root", "<pFeature>Sel</pFeature><pFeature>Gain</pFeature>") +
                     element("IntReg", "SelReg", register_parts("0x100")) +
                     element(type, "Sel", "<pValue>SelReg</pValue><pSelected>Gain</pSelected>") +
                     element("IntReg", "GainReg", register_parts("0x110") + "<pIndex Offset=\"16\">SelReg</pIndex>") +
                     element("Integer", "Gain", "<Streamable>Yes</Streamable><pValue>GainReg</pValue>"));
}

}  // namespace

TEST(FeatureSettingsUnderSelectors, AreReadAndWrittenUnderABoolean) {
    fake_registers registers;
    registers.put(0x120, 7);
    gevctl::camera_features camera(xml_with_selector("Boolean"), registers, [] {});
    auto const found = gevctl::read_settings(camera, false);
    ASSERT_THAT(found.settings, testing::SizeIs(2));
    EXPECT_EQ(to_text(found.settings[1]), "Gain[Sel=true]");
    EXPECT_EQ(found.settings[1].value, feature_value(std::int64_t{7}));
    auto const file = parse_feature_file("[Sel.true]\nGain = 9\n", "a.toml");
    EXPECT_TRUE(apply_settings(camera, check_settings(camera, file.settings)).settings[0].written);
    EXPECT_EQ(registers.get(0x120), 9U);
    EXPECT_EQ(registers.get(0x100), 0U);
}

TEST(FeatureSettingsUnderSelectors, AreLeftOutUnderAFloat) {
    fake_registers registers;
    gevctl::camera_features camera(xml_with_selector("Float"), registers, [] {});
    auto const found = gevctl::read_settings(camera, false);
    EXPECT_THAT(found.settings, ElementsAre());
    EXPECT_THAT(found.left_out, ElementsAre("Gain: the values of Sel, which is of type float, cannot be listed"));
}

TEST(FeatureSettingsUnderControl, AreReadAsFarAsTheyNeedNoControl) {
    fake_registers registers;
    registers.put(0x100, 2464);
    gevctl::camera_features camera(
        model_xml(), registers, [] { throw gevctl::failure(exit_status::controlled, "another program has control"); });
    auto const found = gevctl::read_settings(camera, false);
    EXPECT_EQ(found.settings.size(), 4U);  // Gain under AnalogAll, which is selected
    EXPECT_THAT(found.missing, ElementsAre("Gain[GainSelector=DigitalAll]: another program has control"));
}

TEST(FeatureSettingsUnderControl, AreComparedAsFarAsTheyNeedNoControl) {
    fake_registers registers;
    registers.put(0x100, 2464);
    gevctl::camera_features camera(
        model_xml(), registers, [] { throw gevctl::failure(exit_status::controlled, "another program has control"); });
    auto const file =
        parse_feature_file("[GainSelector.DigitalAll]\nGain = 1\n[GainSelector.AnalogAll]\nGain = 2\n", "a.toml");
    auto const result = compare_settings(camera, check_settings(camera, file.settings));
    EXPECT_FALSE(result.aborted);
    EXPECT_FALSE(result.settings[0].comparable);
    EXPECT_EQ(result.settings[0].reason, "another program has control");
    EXPECT_TRUE(result.settings[1].comparable);
    EXPECT_TRUE(result.settings[1].differs());
}

TEST(FeatureSettingsUnderControl, HaveAnAccountIfControlIsLost) {
    fake_registers registers;
    registers.put(0x100, 2464);
    int writes_left = 2;  // of the selector and of the gain
    gevctl::camera_features camera(model_xml(), registers, [&writes_left] {
        if (writes_left-- <= 0) {
            throw gevctl::failure(exit_status::controlled, "another program has control");
        }
    });
    auto settings = parse_feature_file("[GainSelector.DigitalAll]\nGain = 1\n", "a.toml").settings;
    settings.push_back({{}, "ReverseX", true, "a.toml:3"});
    auto const result = apply_settings(camera, check_settings(camera, settings));
    ASSERT_TRUE(result.aborted);
    EXPECT_EQ(result.aborted->status(), exit_status::controlled);
    EXPECT_TRUE(result.settings[0].written);
    EXPECT_FALSE(result.settings[1].written);
    EXPECT_THAT(result.not_restored, ElementsAre(HasSubstr("another program has control")));
}
