#include <gmock/gmock.h>

#include <bit>
#include <cmath>

#include "feature_bench.hpp"
#include "genicam_xml.hpp"
#include "sensor.hpp"

using namespace camsim;
using gvcp::status;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

camera_options with_sensor(std::uint32_t width, std::uint32_t height) {
    camera_options options;
    options.scene.sensor_width = width;
    options.scene.sensor_height = height;
    return options;
}

}  // namespace

TEST(Region, HasTheSensorsLimitsWhateverTheOffset) {
    feature_bench camera(with_sensor(640, 480));
    EXPECT_EQ(camera.write("OffsetX", 624), status::success);
    EXPECT_EQ(camera.write("OffsetX", 632), status::invalid_parameter);
    EXPECT_EQ(camera.write("Width", 640), status::success);
    EXPECT_EQ(camera.write("Width", 8), status::invalid_parameter);
    EXPECT_EQ(camera.write("Width", 24), status::success);
    EXPECT_EQ(camera.write("Width", 20), status::invalid_parameter);
    EXPECT_EQ(camera.write("OffsetY", 464), status::success);
    EXPECT_EQ(camera.write("Height", 481), status::invalid_parameter);
    EXPECT_EQ(camera.read("Width"), 24U);
    EXPECT_EQ(camera.read("OffsetX"), 624U);
}

TEST(Region, ThatLeavesTheSensorIsRefusedAtAcquisitionStart) {
    feature_bench camera(with_sensor(640, 480));
    camera.write("OffsetX", 8);
    EXPECT_EQ(camera.write("AcquisitionStart", 1), status::invalid_parameter);
    EXPECT_FALSE(camera.state.acquiring);
    camera.write("Width", 632);
    EXPECT_EQ(camera.write("AcquisitionStart", 1), status::success);
    EXPECT_TRUE(camera.state.acquiring);
}

TEST(Region, HasLimitsThatMoveWithEachOtherWhenAskedTo) {
    camera_options options = with_sensor(640, 480);
    options.dependent_roi_limits = true;
    feature_bench camera(options);
    EXPECT_EQ(camera.write("OffsetX", 8), status::invalid_parameter);
    camera.write("Width", 320);
    EXPECT_EQ(camera.write("OffsetX", 320), status::success);
    EXPECT_EQ(camera.write("Width", 328), status::invalid_parameter);
    EXPECT_EQ(camera.read(camera.named("Width").maximum_address, 8), 320U);
}

TEST(Region, IsLockedWhileTheCameraAcquiresOrTheApplicationSaysSo) {
    feature_bench camera;
    camera.write("TLParamsLocked", 1);
    EXPECT_EQ(camera.write("Width", 640), status::write_protect);
    camera.write("TLParamsLocked", 0);
    EXPECT_EQ(camera.write("Width", 640), status::success);
    camera.write("AcquisitionStart", 1);
    EXPECT_EQ(camera.write("PixelFormat", 0x01100005), status::write_protect);
    EXPECT_EQ(camera.write_float("ExposureTime", 50.0), status::success);
    camera.write("AcquisitionStop", 1);
    EXPECT_EQ(camera.write("PixelFormat", 0x01100005), status::success);
}

TEST(PayloadSize, FollowsRegionAndFormat) {
    feature_bench camera(with_sensor(640, 480));
    EXPECT_EQ(camera.read("PayloadSize"), 640U * 480U);
    camera.write("PixelFormat", static_cast<std::uint32_t>(pixel_format::mono12_packed));
    camera.write("Width", 320);
    EXPECT_EQ(camera.read("PayloadSize"), 320U * 480U * 3U / 2U);
    camera.write("PixelFormat", static_cast<std::uint32_t>(pixel_format::mono12));
    EXPECT_EQ(camera.read("PayloadSize"), 320U * 480U * 2U);
    EXPECT_EQ(camera.write("PixelFormat", 0x02180014), status::invalid_parameter);
}

TEST(PayloadSize, GrowsWithTheEnabledChunks) {
    feature_bench camera(with_sensor(640, 480));
    camera.write("ChunkEnable", 1);  // gain, the selector's first entry
    EXPECT_EQ(camera.read("PayloadSize"), 640U * 480U);
    camera.write("ChunkModeActive", 1);
    EXPECT_EQ(camera.read("PayloadSize"), 640U * 480U + 8U + 12U);
    camera.write("ChunkSelector", 2);
    EXPECT_EQ(camera.read("ChunkEnable"), 0U);
    camera.write("ChunkEnable", 1);
    EXPECT_EQ(camera.read("PayloadSize"), 640U * 480U + 8U + 12U + 16U);
    camera.write("ChunkModeActive", 0);
    EXPECT_EQ(camera.read("PayloadSize"), 640U * 480U);
}

TEST(Chunks, AreKeptForEachSelectorAndLockedWhileTheCameraAcquires) {
    feature_bench camera;
    EXPECT_EQ(camera.write("ChunkSelector", 4), status::invalid_parameter);
    camera.write("ChunkModeActive", 1);
    for (std::uint32_t entry = 0; entry < 4; ++entry) {
        camera.write("ChunkSelector", entry);
        EXPECT_EQ(camera.read("ChunkEnable"), 0U);
        camera.write("ChunkEnable", entry % 2);
    }
    EXPECT_EQ(camera.state.chunks.sent(), chunk_set(0b1010));
    camera.write("AcquisitionStart", 1);
    EXPECT_EQ(camera.write("ChunkSelector", 0), status::success);
    EXPECT_EQ(camera.write("ChunkEnable", 1), status::write_protect);
    EXPECT_EQ(camera.write("ChunkModeActive", 0), status::write_protect);
    EXPECT_EQ(camera.state.chunks.sent(), chunk_set(0b1010));
}

TEST(FrameRate, IsLimitedByTheHeight) {
    EXPECT_GE(sensor::highest_frame_rate(1024), 400.0);
    EXPECT_GE(sensor::highest_frame_rate(480), 1000.0);
    feature_bench camera;
    camera.write("Height", 480);
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 1000.0), status::success);
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 2000.0), status::invalid_parameter);
    camera.write("Height", 1024);
    EXPECT_DOUBLE_EQ(camera.read_float("AcquisitionFrameRate"), sensor::highest_frame_rate(1024));
    EXPECT_DOUBLE_EQ(std::bit_cast<double>(camera.read(camera.named("AcquisitionFrameRate").maximum_address, 8)),
                     sensor::highest_frame_rate(1024));
}

TEST(FrameRate, GivesWayToALongExposure) {
    EXPECT_DOUBLE_EQ(sensor::frame_period_us(100.0, 500.0), 10000.0);
    EXPECT_DOUBLE_EQ(sensor::frame_period_us(100.0, 50000.0), 50020.0);
}

TEST(Gain, IsKeptForEachSelectorAndMultiplied) {
    feature_bench camera;
    EXPECT_EQ(camera.write_float("Gain", 16.0), status::success);
    camera.write("GainSelector", 1);
    EXPECT_DOUBLE_EQ(camera.read_float("Gain"), 1.0);
    EXPECT_EQ(camera.write_float("Gain", 16.0), status::invalid_parameter);
    EXPECT_EQ(camera.write_float("Gain", 2.0), status::success);
    camera.write("GainSelector", 0);
    EXPECT_DOUBLE_EQ(camera.read_float("Gain"), 16.0);
    EXPECT_DOUBLE_EQ(camera.state.image.total_gain(), 32.0);
    EXPECT_EQ(camera.write("GainSelector", 2), status::invalid_parameter);
}

TEST(FloatFeature, RefusesWhatIsNoNumber) {
    feature_bench camera;
    EXPECT_EQ(camera.write_float("Gain", std::nan("")), status::invalid_parameter);
    EXPECT_EQ(camera.write_float("ExposureTime", INFINITY), status::invalid_parameter);
    EXPECT_EQ(camera.write_float("ExposureTime", 9.99), status::invalid_parameter);
}

TEST(Command, TakesNoOtherValueThanItsOwn) {
    feature_bench camera;
    EXPECT_EQ(camera.write("AcquisitionStart", 2), status::invalid_parameter);
    EXPECT_FALSE(camera.state.acquiring);
}

TEST(TimestampValue, IsLatchedByReadingIt) {
    camera_options options;
    options.first_tick = 1000;
    feature_bench camera(options);
    std::uint64_t const first = camera.read(camera.named("GevTimestampValue").address, 8);
    EXPECT_GE(first, 1000U);
    EXPECT_EQ(camera.state.latched_ticks, first);
    EXPECT_GE(camera.read(camera.named("GevTimestampValue").address, 8), first);
}

TEST(Description, StatesLimitsUnitsAndAccess) {
    camera_state state({}, {}, {});
    std::string const xml = genicam_xml("JAI Corporation", "GO-5100M-PGE", place(camera_features(state)));
    EXPECT_THAT(xml, AllOf(HasSubstr("VendorName=\"JAI_Corporation\""), HasSubstr("ModelName=\"GO_5100M_PGE\"")));
    EXPECT_THAT(node(xml, "Width"),
                AllOf(HasSubstr("<Min>16</Min>"), HasSubstr("<Max>2464</Max>"), HasSubstr("<Inc>8</Inc>"),
                      HasSubstr("<Unit>px</Unit>"), HasSubstr("<pIsLocked>TLParamsLocked</pIsLocked>")));
    EXPECT_THAT(node(xml, "PayloadSize"), HasSubstr("<ImposedAccessMode>RO</ImposedAccessMode>"));
    EXPECT_THAT(node(xml, "PayloadSizeReg"),
                AllOf(HasSubstr("<pInvalidator>Width</pInvalidator>"), HasSubstr("<Cachable>WriteThrough</Cachable>")));
    EXPECT_THAT(node(xml, "DeviceTemperatureReg"),
                AllOf(HasSubstr("<Cachable>NoCache</Cachable>"), HasSubstr("<PollingTime>1000</PollingTime>")));
    EXPECT_THAT(node(xml, "GevSCPSPacketSizeReg"),
                AllOf(HasSubstr("<Address>0xd04</Address>"), HasSubstr("<LSB>31</LSB>"), HasSubstr("<MSB>16</MSB>"),
                      HasSubstr("<pIndex Offset=\"64\">GevStreamChannelSelector</pIndex>")));
    EXPECT_THAT(node(xml, "GainSelector"), HasSubstr("<pSelected>Gain</pSelected>"));
    EXPECT_THAT(node(xml, "AcquisitionFrameRate"), HasSubstr("<pMax>AcquisitionFrameRateMaxReg</pMax>"));
}

TEST(Description, SaysWhereTheChunksNumbersAre) {
    camera_state state({}, {}, {});
    std::string const xml = genicam_xml("A", "B", place(camera_features(state)));
    EXPECT_THAT(node(xml, "ChunkExposureTimeReg"),
                AllOf(HasSubstr("<pPort>ChunkExposureTimePort</pPort>"), HasSubstr("<Length>4</Length>"),
                      HasSubstr("<Address>0x0</Address>"), HasSubstr("<Endianess>LittleEndian</Endianess>")));
    EXPECT_THAT(node(xml, "ChunkExposureTimePort"), HasSubstr("<ChunkID>2004</ChunkID>"));
    EXPECT_THAT(node(xml, "ChunkTimestampReg"), HasSubstr("<Length>8</Length>"));
    EXPECT_THAT(node(xml, "ChunkTimestamp"), HasSubstr("<pIsAvailable>ChunkModeActive</pIsAvailable>"));
}

TEST(Description, OfACameraWithoutAFeatureDoesNotNameIt) {
    camera_state state({}, {}, {});
    std::vector<feature> features = camera_features(state);
    std::erase_if(features, [](feature const& one) { return one.name == "DeviceTemperature"; });
    EXPECT_THAT(genicam_xml("A", "B", place(std::move(features))), Not(HasSubstr("DeviceTemperature")));
}

TEST(Description, EscapesWhatXmlReserves) {
    std::vector<feature> features;
    features.push_back({.name = "One", .category = "C", .tooltip = "a < b & \"c\"", .kind = command_kind{}});
    EXPECT_THAT(genicam_xml("A", "B", place(std::move(features))), HasSubstr("a &lt; b &amp; &quot;c&quot;"));
}
