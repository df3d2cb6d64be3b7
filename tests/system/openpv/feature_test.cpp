// SPDX-License-Identifier: MIT
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "test_camera.hpp"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// Aravis's camera with a feature of every type and state.
class Feature : public testing::Test {
protected:
    void SetUp() override {
        camera = start_aravis_camera({"-g", EVERY_KIND_XML});
        ASSERT_TRUE(camera);
        device = connect(find_only_camera());
        ASSERT_TRUE(device);
        features = device->GetParameters();
    }

    int64_t integer(char const* name) {
        int64_t value = -4711;
        EXPECT_TRUE(ok(features->GetIntegerValue(name, value))) << name;
        return value;
    }

    double floating(char const* name) {
        double value = -4711;
        EXPECT_TRUE(ok(features->GetFloatValue(name, value))) << name;
        return value;
    }

    std::vector<std::string> entries(PvGenEnum& enumeration) {
        int64_t count = -1;
        EXPECT_TRUE(ok(enumeration.GetEntriesCount(count)));
        std::vector<std::string> names;
        for (int64_t i = 0; i < count; ++i) {
            PvGenEnumEntry const* entry = nullptr;
            PvString name;
            EXPECT_TRUE(ok(enumeration.GetEntryByIndex(i, &entry)));
            EXPECT_TRUE(ok(entry->GetName(name)));
            names.emplace_back(name.GetAscii());
        }
        return names;
    }

    std::unique_ptr<test_process> camera;
    device_handle device;
    PvGenParameterArray* features = nullptr;
};

}  // namespace

TEST_F(Feature, ReportsItsType) {
    std::pair<char const*, PvGenType> const kinds[] = {
        {"AnInteger", PvGenTypeInteger},        {"ALinkedInteger", PvGenTypeInteger},
        {"AMaskedInteger", PvGenTypeInteger},   {"AWideInteger", PvGenTypeInteger},
        {"AnIntegerFormula", PvGenTypeInteger}, {"AFloat", PvGenTypeFloat},
        {"AConverter", PvGenTypeFloat},         {"AFloatFormula", PvGenTypeFloat},
        {"ABoolean", PvGenTypeBoolean},         {"AString", PvGenTypeString},
        {"ACommand", PvGenTypeCommand},         {"AnEnumeration", PvGenTypeEnum},
    };
    for (auto const& [name, kind] : kinds) {
        PvGenParameter* const parameter = features->Get(name);
        ASSERT_NE(parameter, nullptr) << name;
        PvGenType type{};
        EXPECT_TRUE(ok(parameter->GetType(type)));
        EXPECT_EQ(type, kind) << name;
        EXPECT_EQ(features->GetInteger(name) != nullptr, kind == PvGenTypeInteger) << name;
        EXPECT_EQ(features->GetFloat(name) != nullptr, kind == PvGenTypeFloat) << name;
        EXPECT_EQ(features->GetBoolean(name) != nullptr, kind == PvGenTypeBoolean) << name;
        EXPECT_EQ(features->GetString(name) != nullptr, kind == PvGenTypeString) << name;
        EXPECT_EQ(features->GetCommand(name) != nullptr, kind == PvGenTypeCommand) << name;
        EXPECT_EQ(features->GetEnum(name) != nullptr, kind == PvGenTypeEnum) << name;
    }
}

TEST_F(Feature, ThatIsAbsentIsNotFound) {
    EXPECT_EQ(features->Get("NoSuchFeature"), nullptr);
    EXPECT_EQ(features->Get(""), nullptr);
    EXPECT_EQ(features->Get("Root"), nullptr) << "a category has no value";
    int64_t integer = 1;
    double floating = 1;
    bool boolean = true;
    PvString text("unchanged");
    using code = PvResult::Code;
    EXPECT_TRUE(has_code(features->GetIntegerValue("NoSuchFeature", integer), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->SetIntegerValue("NoSuchFeature", 1), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->GetFloatValue("NoSuchFeature", floating), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->SetFloatValue("NoSuchFeature", 1), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->GetBooleanValue("NoSuchFeature", boolean), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->SetBooleanValue("NoSuchFeature", false), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->GetEnumValue("NoSuchFeature", text), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->GetEnumValue("NoSuchFeature", integer), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->SetEnumValue("NoSuchFeature", "Off"), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->SetEnumValue("NoSuchFeature", int64_t{1}), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->GetStringValue("NoSuchFeature", text), code::NOT_FOUND));
    EXPECT_TRUE(has_code(features->ExecuteCommand("NoSuchFeature"), code::NOT_FOUND));
    EXPECT_EQ(integer, 1);
    EXPECT_EQ(floating, 1);
    EXPECT_TRUE(boolean);
    EXPECT_STREQ(text.GetAscii(), "unchanged");
}

TEST_F(Feature, OfAnotherTypeIsNotFoundByTheOneStepForms) {
    double value = 0;
    PvResult const result = features->GetFloatValue("AnInteger", value);
    EXPECT_TRUE(has_code(result, PvResult::Code::NOT_FOUND));
    EXPECT_STREQ(result.GetDescription().GetAscii(), "AnInteger is not a float.");
}

TEST_F(Feature, IsTheSameObjectAtEachLookUp) {
    PvGenParameter* const first = features->Get("AnInteger");
    features->Get("AFloat");
    EXPECT_EQ(features->Get("AnInteger"), first);
    EXPECT_EQ(device->GetParameters(), features);
}

TEST_F(Feature, IntegerKeepsWhatIsWritten) {
    EXPECT_TRUE(ok(features->SetIntegerValue("AnInteger", 32)));
    EXPECT_EQ(integer("AnInteger"), 32);
    EXPECT_TRUE(ok(features->SetIntegerValue("ALinkedInteger", -100)));
    EXPECT_EQ(integer("ALinkedInteger"), -100);
    EXPECT_TRUE(ok(features->SetIntegerValue("AWideInteger", 0x0123456789ABCDEF)));
    EXPECT_EQ(integer("AWideInteger"), 0x0123456789ABCDEF);
}

TEST_F(Feature, MaskedIntegerKeepsTheOtherBits) {
    EXPECT_TRUE(ok(features->SetIntegerValue("AMaskedInteger", 0xAB)));
    EXPECT_EQ(integer("AMaskedInteger"), 0xAB);
    EXPECT_TRUE(ok(features->SetIntegerValue("AMaskedInteger", 0)));
    EXPECT_EQ(integer("AMaskedInteger"), 0);
}

TEST_F(Feature, IntegerReportsItsLimits) {
    PvGenInteger* const feature = features->GetInteger("AnInteger");
    int64_t minimum = 0;
    int64_t maximum = 0;
    int64_t increment = 0;
    EXPECT_TRUE(ok(feature->GetMin(minimum)));
    EXPECT_TRUE(ok(feature->GetMax(maximum)));
    EXPECT_TRUE(ok(feature->GetIncrement(increment)));
    EXPECT_EQ(minimum, 16);
    EXPECT_EQ(maximum, 2464);
    EXPECT_EQ(increment, 8);
}

TEST_F(Feature, IntegersLimitFollowsTheFeatureThatSetsIt) {
    PvGenInteger* const feature = features->GetInteger("ALinkedInteger");
    int64_t maximum = 0;
    for (int64_t const value : {int64_t{64}, int64_t{128}}) {
        ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", value)));
        EXPECT_TRUE(ok(feature->GetMax(maximum)));
        EXPECT_EQ(maximum, value);
        EXPECT_TRUE(ok(feature->SetValue(value)));
        EXPECT_TRUE(has_code(feature->SetValue(value + 1), PvResult::Code::INVALID_PARAMETER));
    }
}

TEST_F(Feature, IntegerRefusesValuesOutsideItsLimitsAndKeepsItsValue) {
    ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", 24)));
    for (int64_t const value : {int64_t{8}, int64_t{2472}, int64_t{25}, int64_t{-1}}) {
        PvResult const refused = features->SetIntegerValue("AnInteger", value);
        EXPECT_TRUE(has_code(refused, PvResult::Code::INVALID_PARAMETER)) << value;
        EXPECT_THAT(refused.GetDescription().GetAscii(),
                    HasSubstr("AnInteger cannot be set to " + std::to_string(value)));
    }
    EXPECT_EQ(integer("AnInteger"), 24);
}

TEST_F(Feature, IntegerFormulaIsEvaluatedAndCannotBeSet) {
    ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", 16)));
    EXPECT_EQ(integer("AnIntegerFormula"), 33);
    EXPECT_TRUE(has_code(features->SetIntegerValue("AnIntegerFormula", 1), PvResult::Code::NOT_SUPPORTED));
}

TEST_F(Feature, FloatKeepsWhatIsWritten) {
    EXPECT_TRUE(ok(features->SetFloatValue("AFloat", 3.140625)));
    EXPECT_EQ(floating("AFloat"), 3.140625);
}

TEST_F(Feature, FloatReportsItsLimitsAndRefusesOtherValues) {
    PvGenFloat* const feature = features->GetFloat("AFloat");
    double minimum = 0;
    double maximum = 0;
    EXPECT_TRUE(ok(feature->GetMin(minimum)));
    EXPECT_TRUE(ok(feature->GetMax(maximum)));
    EXPECT_EQ(minimum, -1.5);
    EXPECT_EQ(maximum, 100.25);
    ASSERT_TRUE(ok(feature->SetValue(minimum)));
    for (double const value : {-1.75, 100.5, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_TRUE(has_code(feature->SetValue(value), PvResult::Code::INVALID_PARAMETER)) << value;
    }
    EXPECT_EQ(floating("AFloat"), -1.5);
}

TEST_F(Feature, ConverterIsReadAndWrittenThroughItsFormulas) {
    ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", 400)));
    EXPECT_DOUBLE_EQ(floating("AConverter"), 40.0);
    EXPECT_TRUE(ok(features->SetFloatValue("AConverter", 3.2)));
    EXPECT_EQ(integer("AnInteger"), 32);
}

TEST_F(Feature, FloatFormulaIsEvaluatedAndCannotBeSet) {
    ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", 24)));
    EXPECT_EQ(floating("AFloatFormula"), 6.0);
    EXPECT_TRUE(has_code(features->SetFloatValue("AFloatFormula", 1.0), PvResult::Code::NOT_SUPPORTED));
}

TEST_F(Feature, BooleanUsesTheValuesOfItsXml) {
    bool value = true;
    EXPECT_TRUE(ok(features->GetBooleanValue("ABoolean", value)));
    EXPECT_FALSE(value);
    EXPECT_TRUE(ok(features->SetBooleanValue("ABoolean", true)));
    EXPECT_TRUE(ok(features->GetBooleanValue("ABoolean", value)));
    EXPECT_TRUE(value);
    EXPECT_EQ(integer("ABooleanReg"), 7);
}

TEST_F(Feature, StringIsRead) {
    PvString value("before");
    EXPECT_TRUE(ok(features->GetStringValue("AString", value)));
    EXPECT_STREQ(value.GetAscii(), "Aravis");
}

TEST_F(Feature, StringMayFillItsRegister) {
    constexpr int64_t letters = 0x4142434445464748;
    ASSERT_TRUE(ok(features->SetIntegerValue("AFullStringReg", letters)));
    for (char const* const name : {"AFullString", "AFullStringElsewhere"}) {
        PvString value;
        EXPECT_TRUE(ok(features->GetStringValue(name, value)));
        EXPECT_STREQ(value.GetAscii(), "ABCDEFGH");
    }
}

TEST_F(Feature, OfARegisterWithoutALengthIsNotFound) {
    int64_t value = 0;
    for (char const* const name : {"AnIntegerOfNoLength", "AnIntegerLimitedByOneOfNoLength"}) {
        EXPECT_TRUE(has_code(features->GetIntegerValue(name, value), PvResult::Code::NOT_FOUND));
        EXPECT_TRUE(has_code(features->SetIntegerValue(name, 1), PvResult::Code::NOT_FOUND));
    }
}

TEST_F(Feature, MayHaveALengthThatTheCameraSets) {
    PvString value;
    ASSERT_TRUE(ok(features->SetIntegerValue("AWideInteger", 4)));
    EXPECT_TRUE(ok(features->GetStringValue("AStringAsLongAsAnInteger", value)));
    EXPECT_STREQ(value.GetAscii(), "Arav");
    for (int64_t const length : {int64_t{0}, int64_t{1} << 40, std::numeric_limits<int64_t>::max()}) {
        ASSERT_TRUE(ok(features->SetIntegerValue("AWideInteger", length)));
        EXPECT_TRUE(has_code(features->GetStringValue("AStringAsLongAsAnInteger", value), PvResult::Code::NOT_FOUND));
    }
}

TEST(GenicamXml, WithCircularReferencesIsRefused) {
    auto const camera = start_aravis_camera({"-g", CIRCULAR_XML});
    ASSERT_TRUE(camera);
    PvResult result;
    EXPECT_EQ(PvDevice::CreateAndConnect(find_only_camera(), &result), nullptr);
    EXPECT_TRUE(has_code(result, PvResult::Code::GENERIC_ERROR));
    EXPECT_THAT(result.GetDescription().GetAscii(), HasSubstr("feature Width refers to itself"));
}

TEST_F(Feature, CommandWritesItsValue) {
    ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", 16)));
    EXPECT_TRUE(ok(features->ExecuteCommand("ACommand")));
    EXPECT_EQ(integer("AnInteger"), 48);
    EXPECT_TRUE(ok(features->GetCommand("ACommand")->Execute()));
}

TEST_F(Feature, EnumerationIsSetByNameAndByValue) {
    PvString name;
    int64_t value = 0;
    EXPECT_TRUE(ok(features->SetEnumValue("AnEnumeration", "Last")));
    EXPECT_TRUE(ok(features->GetEnumValue("AnEnumeration", name)));
    EXPECT_TRUE(ok(features->GetEnumValue("AnEnumeration", value)));
    EXPECT_STREQ(name.GetAscii(), "Last");
    EXPECT_EQ(value, 20);
    EXPECT_TRUE(ok(features->SetEnumValue("AnEnumeration", int64_t{30})));
    EXPECT_TRUE(ok(features->GetEnumValue("AnEnumeration", name)));
    EXPECT_STREQ(name.GetAscii(), "First");
}

TEST_F(Feature, EnumerationListsInOrderTheEntriesThatCanBeSetNow) {
    PvGenEnum& enumeration = *features->GetEnum("AnEnumeration");
    EXPECT_THAT(entries(enumeration), ElementsAre("First", "Last"));
    ASSERT_TRUE(ok(features->SetBooleanValue("ABoolean", true)));
    EXPECT_THAT(entries(enumeration), ElementsAre("First", "Sometimes", "Last"));
}

TEST_F(Feature, EnumerationEntryHasAValueAndStaysValid) {
    PvGenEnum& enumeration = *features->GetEnum("AnEnumeration");
    PvGenEnumEntry const* entry = nullptr;
    ASSERT_TRUE(ok(enumeration.GetEntryByIndex(1, &entry)));
    ASSERT_TRUE(ok(features->SetBooleanValue("ABoolean", true)));
    PvGenEnumEntry const* other = nullptr;
    ASSERT_TRUE(ok(enumeration.GetEntryByIndex(1, &other)));
    int64_t value = 0;
    EXPECT_TRUE(ok(entry->GetValue(value)));
    EXPECT_EQ(value, 20);
    EXPECT_TRUE(ok(other->GetValue(value)));
    EXPECT_EQ(value, 10);
}

TEST_F(Feature, EnumerationHasNoEntryOutsideItsCount) {
    PvGenEnum& enumeration = *features->GetEnum("AnEnumeration");
    PvGenEnumEntry const* entry = nullptr;
    EXPECT_TRUE(has_code(enumeration.GetEntryByIndex(2, &entry), PvResult::Code::NOT_FOUND));
    EXPECT_TRUE(has_code(enumeration.GetEntryByIndex(-1, &entry), PvResult::Code::NOT_FOUND));
    EXPECT_EQ(entry, nullptr);
    EXPECT_TRUE(has_code(enumeration.GetEntryByIndex(0, nullptr), PvResult::Code::INVALID_PARAMETER));
}

TEST_F(Feature, EnumerationRefusesEntriesThatItDoesNotHaveNow) {
    ASSERT_TRUE(ok(features->SetEnumValue("AnEnumeration", "First")));
    for (char const* const name : {"NoSuchEntry", "", "Sometimes", "Never"}) {
        PvResult const refused = features->SetEnumValue("AnEnumeration", name);
        EXPECT_TRUE(has_code(refused, PvResult::Code::INVALID_PARAMETER)) << name;
        EXPECT_THAT(refused.GetDescription().GetAscii(), HasSubstr("AnEnumeration"));
    }
    for (int64_t const value : {int64_t{11}, int64_t{10}, int64_t{40}}) {
        EXPECT_TRUE(has_code(features->SetEnumValue("AnEnumeration", value), PvResult::Code::INVALID_PARAMETER))
            << value;
    }
    PvString name;
    EXPECT_TRUE(ok(features->GetEnumValue("AnEnumeration", name)));
    EXPECT_STREQ(name.GetAscii(), "First");
    ASSERT_TRUE(ok(features->SetBooleanValue("ABoolean", true)));
    EXPECT_TRUE(ok(features->SetEnumValue("AnEnumeration", "Sometimes")));
}

TEST_F(Feature, EnumerationWithAValueOfNoEntryHasNoName) {
    ASSERT_TRUE(ok(features->SetIntegerValue("AnEnumerationReg", 99)));
    PvString name("before");
    EXPECT_FALSE(features->GetEnumValue("AnEnumeration", name).IsOK());
    EXPECT_STREQ(name.GetAscii(), "before");
    int64_t value = 0;
    EXPECT_TRUE(ok(features->GetEnumValue("AnEnumeration", value)));
    EXPECT_EQ(value, 99);
}

TEST_F(Feature, ThatIsReadOnlyCannotBeSet) {
    for (char const* const name : {"AReadOnlyInteger", "AnIntegerMadeReadOnly"}) {
        PvResult const refused = features->SetIntegerValue(name, 1);
        EXPECT_TRUE(has_code(refused, PvResult::Code::NOT_SUPPORTED)) << name;
        EXPECT_THAT(refused.GetDescription().GetAscii(), HasSubstr("read-only"));
    }
    ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", 16)));
    EXPECT_EQ(integer("AnIntegerMadeReadOnly"), 16);
}

TEST_F(Feature, ThatIsWriteOnlyCannotBeRead) {
    int64_t value = 4711;
    EXPECT_TRUE(has_code(features->GetIntegerValue("AWriteOnlyInteger", value), PvResult::Code::NOT_SUPPORTED));
    EXPECT_EQ(value, 4711);
    EXPECT_TRUE(ok(features->SetIntegerValue("AWriteOnlyInteger", 1)));
}

TEST_F(Feature, ThatIsLockedWhileStreamingCanBeSetBeforeAndAfter) {
    EXPECT_TRUE(ok(features->SetIntegerValue("ALockedInteger", 1)));
    ASSERT_TRUE(ok(device->StreamEnable()));
    PvResult const refused = features->SetIntegerValue("ALockedInteger", 2);
    EXPECT_TRUE(has_code(refused, PvResult::Code::NOT_SUPPORTED));
    EXPECT_THAT(refused.GetDescription().GetAscii(), HasSubstr("locked"));
    EXPECT_EQ(integer("ALockedInteger"), 1);
    ASSERT_TRUE(ok(device->StreamDisable()));
    EXPECT_TRUE(ok(features->SetIntegerValue("ALockedInteger", 2)));
}

TEST_F(Feature, ThatIsNotAvailableCanNeitherBeReadNorSet) {
    int64_t value = 0;
    EXPECT_TRUE(
        has_code(features->GetIntegerValue("AnIntegerThatIsSometimesThere", value), PvResult::Code::NOT_SUPPORTED));
    EXPECT_TRUE(has_code(features->SetIntegerValue("AnIntegerThatIsSometimesThere", 5), PvResult::Code::NOT_SUPPORTED));
    ASSERT_TRUE(ok(features->SetBooleanValue("ABoolean", true)));
    EXPECT_TRUE(ok(features->SetIntegerValue("AnIntegerThatIsSometimesThere", 5)));
    EXPECT_EQ(integer("AnIntegerThatIsSometimesThere"), 5);
}

TEST_F(Feature, ThatIsNotImplementedCanNeitherBeReadNorSet) {
    int64_t value = 0;
    EXPECT_TRUE(
        has_code(features->GetIntegerValue("AnIntegerThatIsNotImplemented", value), PvResult::Code::NOT_SUPPORTED));
    EXPECT_TRUE(has_code(features->SetIntegerValue("AnIntegerThatIsNotImplemented", 5), PvResult::Code::NOT_SUPPORTED));
}

TEST_F(Feature, WithABrokenLinkFails) {
    int64_t value = 0;
    EXPECT_FALSE(features->GetIntegerValue("ANodeWithABrokenLink", value).IsOK());
    EXPECT_FALSE(features->SetIntegerValue("ANodeWithABrokenLink", 1).IsOK());
}

TEST_F(Feature, ThatAnotherFeatureWritesIsReadAgain) {
    ASSERT_TRUE(ok(features->SetIntegerValue("AnInteger", 16)));
    EXPECT_EQ(integer("AnInteger"), 16);
    ASSERT_TRUE(ok(features->ExecuteCommand("ACommand")));
    EXPECT_EQ(integer("AnInteger"), 48);
}

TEST_F(Feature, IsCachedAsItsXmlAllows) {
    EXPECT_EQ(integer("AKeptInteger"), 0);
    EXPECT_EQ(integer("AnInvalidatedInteger"), 0);
    ASSERT_TRUE(ok(features->SetIntegerValue("AFreshInteger", 5)));
    EXPECT_EQ(integer("AKeptInteger"), 0) << "nothing invalidates it";
    EXPECT_EQ(integer("AnInvalidatedInteger"), 5);
    EXPECT_EQ(integer("AFreshInteger"), 5);
    ASSERT_TRUE(ok(features->SetIntegerValue("AKeptInteger", 6)));
    EXPECT_EQ(integer("AKeptInteger"), 6);
    EXPECT_EQ(integer("AFreshInteger"), 6);
}

TEST_F(Feature, ThatChangesByItselfIsNeverCached) {
    EXPECT_EQ(integer("GevTimestampValue"), 0);
    ASSERT_TRUE(ok(features->SetIntegerValue("AFreshInteger", 5)));
    EXPECT_EQ(integer("GevTimestampValue"), 5);
}

TEST_F(Feature, IsNotCachedAcrossConnections) {
    EXPECT_EQ(integer("AKeptInteger"), 0);
    ASSERT_TRUE(ok(features->SetIntegerValue("AFreshInteger", 5)));
    device.reset();
    device = connect(find_only_camera());
    ASSERT_TRUE(device);
    features = device->GetParameters();
    EXPECT_EQ(integer("AKeptInteger"), 5);
}

TEST_F(Feature, MayBeUsedFromSeveralThreads) {
    auto const use = [this](char const* name) {
        for (int64_t value = 0; value < 100; ++value) {
            EXPECT_TRUE(ok(features->SetIntegerValue(name, value)));
            EXPECT_EQ(integer(name), value);
        }
    };
    std::jthread const other(use, "AWideInteger");
    use("AMaskedInteger");
}

TEST(FeatureOfCamsim, TimestampIncreases) {
    auto const camera = start_camsim("127.0.0.1", {"--timestamp", "running"});
    auto const device = connect(find_only_camera());
    ASSERT_TRUE(device);
    PvGenInteger* const timestamp = device->GetParameters()->GetInteger("GevTimestampValue");
    ASSERT_NE(timestamp, nullptr);
    int64_t before = 0;
    int64_t after = 0;
    EXPECT_TRUE(ok(timestamp->GetValue(before)));
    EXPECT_TRUE(ok(timestamp->GetValue(after)));
    EXPECT_GT(before, 0);
    EXPECT_GT(after, before);
}

TEST(FeatureOfCamsim, TimestampIsTheOneLatchedLast) {
    auto const camera = start_camsim();
    auto const device = connect(find_only_camera());
    ASSERT_TRUE(device);
    PvGenParameterArray& features = *device->GetParameters();
    int64_t value = -1;
    EXPECT_TRUE(ok(features.GetIntegerValue("GevTimestampValue", value)));
    EXPECT_EQ(value, 0) << "never latched";
    EXPECT_TRUE(ok(features.ExecuteCommand("GevTimestampControlLatch")));
    EXPECT_TRUE(ok(features.GetIntegerValue("GevTimestampValue", value)));
    EXPECT_GT(value, 0);
    int64_t again = 0;
    EXPECT_TRUE(ok(features.GetIntegerValue("GevTimestampValue", again)));
    EXPECT_EQ(again, value);
}

TEST(FeatureOfCamsim, ThatTheCameraItselfRefusesFailsWithItsReason) {
    auto const camera = start_camsim("127.0.0.1", {"--limits", "independent"});
    auto const device = connect(find_only_camera());
    ASSERT_TRUE(device);
    PvGenParameterArray& features = *device->GetParameters();
    int64_t furthest = 0;
    ASSERT_TRUE(ok(features.GetInteger("OffsetX")->GetMax(furthest)));
    ASSERT_TRUE(ok(features.SetIntegerValue("OffsetX", furthest))) << "its limits allow it, the sensor does not";
    PvResult const refused = features.ExecuteCommand("AcquisitionStart");
    EXPECT_FALSE(refused.IsOK());
    EXPECT_THAT(refused.GetDescription().GetAscii(), HasSubstr("AcquisitionStart cannot be executed"));
    EXPECT_TRUE(device->IsConnected());
}
