// SPDX-License-Identifier: MIT
#include "features/feature_access.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model_camera.hpp"

using gevctl::exit_status;
using gevctl::feature_value;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(FeatureCatalogue, ListsEachFeatureOnceInTheOrderOfTheTree) {
    model_camera camera;
    EXPECT_THAT(camera.features.catalogue().tree(),
                ElementsAre("Width", "OffsetX", "ReverseX", "TriggerMode", "TriggerDelay", "Start", "GainSelector",
                            "Gain", "Name", "Exposure"));
    EXPECT_EQ(camera.features.require("TriggerMode").category, "Image/Trigger");
}

TEST(FeatureCatalogue, DescribesFeatures) {
    model_camera camera;
    auto const& width = camera.features.require("Width");
    EXPECT_EQ(width.tooltip, "Width of the image");
    EXPECT_EQ(width.unit, "px");
    EXPECT_TRUE(width.streamable);
    EXPECT_EQ(camera.features.require("TriggerDelay").level, gevctl::visibility::guru);
    EXPECT_THAT(camera.features.require("GainSelector").selects, ElementsAre("Gain"));
    EXPECT_THAT(camera.features.require("Gain").selected_by, ElementsAre("GainSelector"));
}

TEST(CameraFeatures, NameSimilarFeaturesForAnUnknownOne) {
    model_camera camera;
    auto const require = [&] { camera.features.require("Widht"); };
    EXPECT_EQ(status_of(require), exit_status::usage);
    EXPECT_THAT(message_of(require), HasSubstr("does not have the feature \"Widht\". Similar: Width"));
}

TEST(CameraFeatures, ReadAndWriteEachType) {
    model_camera camera;
    camera.write("OffsetX", std::int64_t{0});
    camera.write("Width", std::int64_t{640});
    camera.write("ReverseX", true);
    camera.write("TriggerMode", std::string("On"));
    camera.write("Name", std::string("left"));
    camera.write("Exposure", 0.5);
    EXPECT_EQ(camera.read("Width"), feature_value(std::int64_t{640}));
    EXPECT_EQ(camera.read("ReverseX"), feature_value(true));
    EXPECT_EQ(camera.read("TriggerMode"), feature_value(std::string("On")));
    EXPECT_EQ(camera.read("Name"), feature_value(std::string("left")));
    EXPECT_EQ(camera.read("Exposure"), feature_value(0.5));
    camera.features.execute(camera.features.require("Start"));
    EXPECT_EQ(camera.registers.get(0x224), 5U);
}

TEST(CameraFeatures, ReadFromTheCameraEachTime) {
    model_camera camera;
    EXPECT_EQ(camera.read("Width"), feature_value(std::int64_t{2464}));
    camera.registers.put(0x100, 320);  // by another program
    EXPECT_EQ(camera.read("Width"), feature_value(std::int64_t{320}));
}

TEST(CameraFeatures, PrepareWritesAndCommandsAndNotReads) {
    model_camera camera;
    camera.read("Width");
    camera.features.access_to(camera.features.require("Width"));
    camera.features.range_of(camera.features.require("Width"));
    EXPECT_EQ(camera.writes_prepared, 0);
    camera.write("Width", std::int64_t{640});
    EXPECT_EQ(camera.writes_prepared, 1);
    camera.features.execute(camera.features.require("Start"));
    EXPECT_EQ(camera.writes_prepared, 2);
}

TEST(CameraFeatures, HaveTheLimitsOfTheCamerasPresentState) {
    model_camera camera;
    auto const& width = camera.features.require("Width");
    EXPECT_EQ(to_text(camera.features.range_of(width)), "16 .. 2464 step 8");
    camera.registers.put(0x104, 64);
    EXPECT_EQ(to_text(camera.features.range_of(width)), "16 .. 2400 step 8");
    EXPECT_EQ(to_text(camera.features.range_of(camera.features.require("TriggerMode"))), "Off, On");
}

TEST(CameraFeatures, HaveTheIncrementOfAFloat) {
    fake_registers registers;
    gevctl::camera_features features(
        whole_xml(element("FloatReg", "GainReg", register_parts("0x100")) +
                  element("Float", "Gain", "<pValue>GainReg</pValue><Min>0</Min><Max>16</Max><Inc>0.5</Inc>")),
        registers, [] {});
    EXPECT_EQ(to_text(features.range_of(features.require("Gain"))), "0 .. 16 step 0.5");
}

TEST(CameraFeatures, RefuseAValueOutsideTheLimitsAndNameThem) {
    model_camera camera;
    auto const write = [&] { camera.write("Width", std::int64_t{4000}); };
    EXPECT_EQ(status_of(write), exit_status::usage);
    EXPECT_EQ(message_of(write), "Width cannot be set to 4000: it must be from 16 to 2464");
    EXPECT_EQ(message_of([&] { camera.write("Width", std::int64_t{17}); }),
              "Width cannot be set to 17: it must be 16 plus a multiple of 8");
    EXPECT_EQ(message_of([&] { camera.write("TriggerMode", std::string("Maybe")); }),
              "TriggerMode cannot be set to Maybe: it must be one of Off, On");
}

TEST(CameraFeatures, ExplainWhyAFeatureIsNotAvailable) {
    model_camera camera;
    auto const& delay = camera.features.require("TriggerDelay");
    auto const access = camera.features.access_to(delay);
    EXPECT_FALSE(access.readable);
    EXPECT_EQ(access.reason, "not available now (TriggerMode = Off)");
    auto const write = [&] { camera.features.write(delay, std::int64_t{5}); };
    EXPECT_EQ(status_of(write), exit_status::refused);
    EXPECT_EQ(message_of(write), "TriggerDelay cannot be set to 5: it is not available now (TriggerMode = Off)");
    camera.write("TriggerMode", std::string("On"));
    EXPECT_TRUE(camera.features.access_to(delay).writable);
}

TEST(CameraFeatures, KeepALockedFeatureSettableLater) {
    model_camera camera;
    camera.registers.put(0x208, 1);
    auto const access = camera.features.access_to(camera.features.require("Width"));
    EXPECT_TRUE(access.readable);
    EXPECT_TRUE(access.settable);
    EXPECT_FALSE(access.writable);
    EXPECT_THAT(access.reason, HasSubstr("locked now"));
    EXPECT_EQ(status_of([&] { camera.write("Width", std::int64_t{640}); }), exit_status::refused);
    EXPECT_EQ(camera.writes_prepared, 0);
}

TEST(CameraFeatures, DistinguishALostCameraFromARefusal) {
    model_camera camera;
    camera.registers.failures[0x100] = {openpv::register_outcome::timeout, 0, "the camera did not respond in time"};
    EXPECT_EQ(status_of([&] { camera.read("Width"); }), exit_status::lost);
    camera.registers.failures[0x100] = {openpv::register_outcome::refused, 0x8007, "the camera is busy"};
    EXPECT_EQ(status_of([&] { camera.read("Width"); }), exit_status::refused);
}

TEST(CameraFeatures, ParseTextsOfTheCommandLine) {
    model_camera camera;
    auto const parse = [&](char const* name, char const* text) {
        return camera.features.parse(camera.features.require(name), text);
    };
    EXPECT_EQ(parse("Width", "0x280"), feature_value(std::int64_t{640}));
    EXPECT_EQ(parse("Width", "10.0.0.1"), feature_value(std::int64_t{0x0A000001}));
    EXPECT_EQ(parse("Exposure", "1e3"), feature_value(1000.0));
    EXPECT_EQ(parse("ReverseX", "true"), feature_value(true));
    EXPECT_EQ(parse("Width", "0x7FFFFFFFFFFFFFFF"), feature_value(std::numeric_limits<std::int64_t>::max()));
    EXPECT_EQ(message_of([&] { parse("Width", "0xFFFFFFFFFFFFFFFF"); }),
              "Width: \"0xFFFFFFFFFFFFFFFF\" is not an integer of 64 bits");
    EXPECT_EQ(message_of([&] { parse("Width", "-99999999999999999999"); }),
              "Width: \"-99999999999999999999\" is not an integer of 64 bits");
    EXPECT_EQ(message_of([&] { parse("Width", "wide"); }), "Width: \"wide\" is not an integer");
    EXPECT_EQ(message_of([&] { parse("Exposure", ""); }), "Exposure: \"\" is not a number");
    EXPECT_EQ(message_of([&] { parse("ReverseX", "yes"); }), "ReverseX: \"yes\" is not true or false");
}

TEST(CameraFeatures, ConvertValuesOfFilesToTheFeaturesType) {
    model_camera camera;
    auto const& exposure = camera.features.require("Exposure");
    EXPECT_EQ(camera.features.convert(exposure, std::int64_t{2}), feature_value(2.0));
    EXPECT_EQ(status_of([&] { camera.features.convert(camera.features.require("Width"), 2.5); }), exit_status::usage);
    EXPECT_EQ(status_of([&] { camera.features.convert(camera.features.require("ReverseX"), std::int64_t{1}); }),
              exit_status::usage);
}

TEST(CameraFeatures, ShowANumberInItsRepresentation) {
    model_camera camera;
    EXPECT_EQ(camera.features.show(camera.features.require("TriggerDelay"), std::int64_t{31}), "0x1F");
    EXPECT_EQ(camera.features.show(camera.features.require("Width"), std::int64_t{31}), "31");
}

TEST(CameraFeatures, RefuseAnInvalidXml) {
    fake_registers registers;
    EXPECT_EQ(status_of([&] { gevctl::camera_features("<a", registers, [] {}); }), exit_status::refused);
}

TEST(FeatureCatalogue, EndsForCategoriesThatContainEachOther) {
    fake_registers registers;
    gevctl::camera_features const features(
        whole_xml(element("Category", "Root", "<pFeature>A</pFeature>") +
                  element("Category", "A", "<pFeature>B</pFeature>") +
                  element("Category", "B", "<pFeature>A</pFeature><pFeature>Width</pFeature>") +
                  element("IntReg", "Width", register_parts("0x100"))),
        registers, [] {});
    EXPECT_THAT(features.catalogue().tree(), ElementsAre("Width"));
}

TEST(FeatureValue, IsTheSameWithinThePrecisionOfA32BitRegister) {
    EXPECT_TRUE(gevctl::is_same(123.40000152587891, 123.4));
    EXPECT_FALSE(gevctl::is_same(123.401, 123.4));
    EXPECT_TRUE(gevctl::is_same(std::int64_t{5}, 5.0));
    EXPECT_FALSE(gevctl::is_same(std::int64_t{5}, true));
    EXPECT_FALSE(gevctl::is_same(std::int64_t{0x7FFFFFFFFFFFFFFE}, std::int64_t{0x7FFFFFFFFFFFFFFF}));
    EXPECT_FALSE(gevctl::is_same(std::string("5"), std::int64_t{5}));
}
