#include "feature_refusals.hpp"

#include <gmock/gmock.h>

#include "feature_bench.hpp"
#include "genicam_xml.hpp"

using namespace camsim;
using gvcp::status;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

camera_options refusing(feature_refusals refusals) {
    camera_options options;
    options.refusals = std::move(refusals);
    return options;
}

std::string description_of(feature_refusals refusals) {
    camera_state state(refusing(std::move(refusals)), {}, {});
    return genicam_xml("A", "B", place(camera_features(state)));
}

std::string complaint_about(feature_refusals refusals) {
    try {
        description_of(std::move(refusals));
    } catch (std::invalid_argument const& error) {
        return error.what();
    }
    return "";
}

}  // namespace

TEST(AbsentFeature, IsNotMentionedInTheDescription) {
    std::string const everything = description_of({});
    for (char const* const name :
         {"Gain", "GainSelector", "ChunkModeActive", "TLParamsLocked", "GevStreamChannelSelector", "Width"}) {
        std::string const mention = ">" + std::string(name) + "<";
        EXPECT_THAT(everything, HasSubstr(mention));
        EXPECT_THAT(description_of({.absent = {name}}), Not(HasSubstr(mention))) << name;
    }
}

TEST(AbsentFeature, HasNoRegister) {
    feature_bench whole;
    feature_bench camera(refusing({.absent = {"GevTimestampValue"}}));
    EXPECT_THROW(camera.named("GevTimestampValue"), std::logic_error);
    std::size_t registers = 0;
    for (std::uint32_t address = 0x10000; address < 0x20000; address += 4) {
        std::vector<std::byte> data(4);
        registers += whole.registers.read(address, data) == status::success ? 1U : 0U;
        registers -= camera.registers.read(address, data) == status::success ? 1U : 0U;
    }
    EXPECT_EQ(registers, 2U);  // eight bytes
}

TEST(AbsentFeature, ThatSelectsAStandardsRegisterLeavesTheFirstOne) {
    EXPECT_THAT(node(description_of({.absent = {"GevStreamChannelSelector"}}), "GevSCPSPacketSizeReg"),
                AllOf(HasSubstr("<Address>0xd04</Address>"), Not(HasSubstr("pIndex"))));
}

TEST(RefusedEntry, IsNeitherDescribedNorAccepted) {
    feature_refusals const no_mono12{.entries = {{"PixelFormat", "Mono12"}}};
    EXPECT_THAT(node(description_of(no_mono12), "PixelFormat"),
                AllOf(HasSubstr("\"Mono8\""), Not(HasSubstr("\"Mono12\""))));
    feature_bench camera(refusing(no_mono12));
    EXPECT_EQ(camera.write("PixelFormat", 0x01100005), status::invalid_parameter);
    EXPECT_EQ(camera.write("PixelFormat", 0x010C0006), status::success);
}

TEST(RefusedEntry, IsNotInForceAtPowerUp) {
    feature_bench camera(refusing({.entries = {{"PixelFormat", "Mono8"}, {"PixelFormat", "Mono12Packed"}}}));
    EXPECT_EQ(camera.state.image.format, pixel_format::mono12);
    EXPECT_EQ(camera.read("PixelFormat"), 0x01100005U);
}

TEST(RefusedWrite, IsAnsweredWithAnErrorAndChangesNothing) {
    feature_bench camera(refusing({.writes = {"ExposureTime", "AcquisitionStart"}}));
    EXPECT_EQ(camera.write_float("ExposureTime", 500.0), status::write_protect);
    EXPECT_DOUBLE_EQ(camera.read_float("ExposureTime"), 1000.0);
    EXPECT_EQ(camera.write("AcquisitionStart", 1), status::write_protect);
    EXPECT_FALSE(camera.state.acquiring);
    EXPECT_THAT(node(description_of({.writes = {"ExposureTime"}}), "ExposureTimeReg"),
                HasSubstr("<AccessMode>RW</AccessMode>"));
}

TEST(Refusals, ListTheNamesThatThereAreForOneThatThereIsNot) {
    EXPECT_THAT(complaint_about({.absent = {"Foo"}}), AllOf(HasSubstr("\"Foo\" is no feature"), HasSubstr("Width, ")));
    EXPECT_THAT(complaint_about({.entries = {{"PixelFormat", "RGB8"}}}),
                AllOf(HasSubstr("\"RGB8\" is no entry of PixelFormat"), HasSubstr("Mono8, Mono12Packed, Mono12")));
    EXPECT_THAT(complaint_about({.entries = {{"Width", "Mono8"}}}), HasSubstr("PixelFormat, "));
    EXPECT_THAT(complaint_about({.writes = {"PayloadSize"}}), HasSubstr("ExposureTime, "));
    EXPECT_THAT(complaint_about({.writes = {"GevSCPD"}}), HasSubstr("\"GevSCPD\" is no writable feature"));
}

TEST(Refusals, LeaveAnEnumerationAnEntry) {
    EXPECT_THAT(complaint_about({.entries = {{"GainSelector", "AnalogAll"}, {"GainSelector", "DigitalAll"}}}),
                HasSubstr("GainSelector has no entry beside \"DigitalAll\""));
}
