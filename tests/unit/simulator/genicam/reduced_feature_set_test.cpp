// SPDX-License-Identifier: MIT
#include "genicam/reduced_feature_set.hpp"

#include <gmock/gmock.h>

#include "feature_bench.hpp"
#include "genicam/genicam_xml.hpp"

using namespace camsim;
using gvcp::status;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

camera_options options_with(reduced_feature_set reduction) {
    camera_options options;
    options.feature_set = std::move(reduction);
    return options;
}

std::string xml_of(reduced_feature_set reduction) {
    camera_state state(options_with(std::move(reduction)), {}, {});
    return genicam_xml("A", "B", place(camera_features(state)));
}

std::string error_of(reduced_feature_set reduction) {
    try {
        xml_of(std::move(reduction));
    } catch (std::invalid_argument const& error) {
        return error.what();
    }
    return "";
}

}  // namespace

TEST(MissingFeature, IsNotInTheGenicamXml) {
    std::string const everything = xml_of({});
    for (char const* const name :
         {"Gain", "GainSelector", "ChunkModeActive", "TLParamsLocked", "GevStreamChannelSelector", "Width"}) {
        std::string const mention = ">" + std::string(name) + "<";
        EXPECT_THAT(everything, HasSubstr(mention));
        EXPECT_THAT(xml_of({.missing_features = {name}}), Not(HasSubstr(mention))) << name;
    }
}

TEST(MissingFeature, HasNoRegister) {
    feature_bench complete;
    feature_bench camera(options_with({.missing_features = {"GevTimestampValue"}}));
    EXPECT_THROW(camera.named("GevTimestampValue"), std::logic_error);
    std::size_t registers = 0;
    for (std::uint32_t address = 0x10000; address < 0x20000; address += 4) {
        std::vector<std::byte> data(4);
        registers += complete.registers.read(address, data) == status::success ? 1U : 0U;
        registers -= camera.registers.read(address, data) == status::success ? 1U : 0U;
    }
    EXPECT_EQ(registers, 2U);  // eight bytes
}

TEST(MissingFeature, ThatSelectsABootstrapRegisterLeavesTheFirstOne) {
    EXPECT_THAT(node(xml_of({.missing_features = {"GevStreamChannelSelector"}}), "GevSCPSPacketSizeReg"),
                AllOf(HasSubstr("<Address>0xd04</Address>"), Not(HasSubstr("pIndex"))));
}

TEST(MissingEntry, IsNeitherInTheGenicamXmlNorAccepted) {
    reduced_feature_set const no_mono12{.missing_entries = {{"PixelFormat", "Mono12"}}};
    EXPECT_THAT(node(xml_of(no_mono12), "PixelFormat"), AllOf(HasSubstr("\"Mono8\""), Not(HasSubstr("\"Mono12\""))));
    feature_bench camera(options_with(no_mono12));
    EXPECT_EQ(camera.write("PixelFormat", 0x01100005), status::invalid_parameter);
    EXPECT_EQ(camera.write("PixelFormat", 0x010C0006), status::success);
}

TEST(MissingEntry, IsReplacedAtPowerUp) {
    feature_bench camera(
        options_with({.missing_entries = {{"PixelFormat", "Mono8"}, {"PixelFormat", "Mono12Packed"}}}));
    EXPECT_EQ(camera.state.image.format, pixel_format::mono12);
    EXPECT_EQ(camera.read("PixelFormat"), 0x01100005U);
}

TEST(RefusedWrite, ReturnsAnErrorAndChangesNothing) {
    feature_bench camera(options_with({.refused_writes = {"ExposureTime", "AcquisitionStart"}}));
    EXPECT_EQ(camera.write_float("ExposureTime", 500.0), status::write_protect);
    EXPECT_DOUBLE_EQ(camera.read_float("ExposureTime"), 1000.0);
    EXPECT_EQ(camera.write("AcquisitionStart", 1), status::write_protect);
    EXPECT_FALSE(camera.state.acquiring);
    EXPECT_THAT(node(xml_of({.refused_writes = {"ExposureTime"}}), "ExposureTimeReg"),
                HasSubstr("<AccessMode>RW</AccessMode>"));
}

TEST(ReducedFeatureSet, ListsValidNamesForAnUnknownOne) {
    EXPECT_THAT(error_of({.missing_features = {"Foo"}}),
                AllOf(HasSubstr("\"Foo\" is not a feature"), HasSubstr("Width, ")));
    EXPECT_THAT(error_of({.missing_entries = {{"PixelFormat", "RGB8"}}}),
                AllOf(HasSubstr("\"RGB8\" is not an entry of PixelFormat"), HasSubstr("Mono8, Mono12Packed, Mono12")));
    EXPECT_THAT(error_of({.missing_entries = {{"Width", "Mono8"}}}), HasSubstr("PixelFormat, "));
    EXPECT_THAT(error_of({.refused_writes = {"PayloadSize"}}), HasSubstr("ExposureTime, "));
    EXPECT_THAT(error_of({.refused_writes = {"GevSCPD"}}), HasSubstr("\"GevSCPD\" is not a writable feature"));
}

TEST(ReducedFeatureSet, KeepsTheLastEntryOfAnEnumeration) {
    EXPECT_THAT(error_of({.missing_entries = {{"GainSelector", "AnalogAll"}, {"GainSelector", "DigitalAll"}}}),
                HasSubstr("\"DigitalAll\" is the only entry of GainSelector"));
}
