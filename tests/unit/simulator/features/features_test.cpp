// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <set>

#include "device/sensor.hpp"
#include "feature_bench.hpp"
#include "genicam/genicam_xml.hpp"

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

camera_options with_independent_limits(std::uint32_t width, std::uint32_t height) {
    camera_options options = with_sensor(width, height);
    options.dependent_limits = false;
    return options;
}

}  // namespace

TEST(Region, CanHaveIndependentLimits) {
    feature_bench camera(with_independent_limits(640, 480));
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

TEST(Region, OutsideTheSensorIsRejectedAtAcquisitionStart) {
    feature_bench camera(with_independent_limits(640, 480));
    camera.write("OffsetX", 8);
    EXPECT_EQ(camera.write("AcquisitionStart", 1), status::invalid_parameter);
    EXPECT_FALSE(camera.state.acquiring);
    camera.write("Width", 632);
    EXPECT_EQ(camera.write("AcquisitionStart", 1), status::success);
    EXPECT_TRUE(camera.state.acquiring);
}

TEST(Region, HasLimitsThatDependOnEachOther) {
    feature_bench camera(with_sensor(640, 480));
    EXPECT_EQ(camera.write("OffsetX", 8), status::invalid_parameter);
    camera.write("Width", 320);
    EXPECT_EQ(camera.write("OffsetX", 320), status::success);
    EXPECT_EQ(camera.write("Width", 328), status::invalid_parameter);
    EXPECT_EQ(camera.read(camera.named("Width").max_address, 8), 320U);
}

TEST(Region, IsLockedDuringAnAcquisitionAndByTLParamsLocked) {
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

TEST(PayloadSize, DependsOnRegionAndFormat) {
    feature_bench camera(with_sensor(640, 480));
    EXPECT_EQ(camera.read("PayloadSize"), 640U * 480U);
    camera.write("PixelFormat", static_cast<std::uint32_t>(pixel_format::mono12_packed));
    camera.write("Width", 320);
    EXPECT_EQ(camera.read("PayloadSize"), 320U * 480U * 3U / 2U);
    camera.write("PixelFormat", static_cast<std::uint32_t>(pixel_format::mono12));
    EXPECT_EQ(camera.read("PayloadSize"), 320U * 480U * 2U);
    EXPECT_EQ(camera.write("PixelFormat", 0x02180014), status::invalid_parameter);
}

TEST(PayloadSize, IncludesTheEnabledChunks) {
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

TEST(Chunks, AreEnabledPerSelectorAndLockedDuringAnAcquisition) {
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

TEST(Chunks, AreSentAsTheStreamChannelSays) {
    for (auto const& [chosen, before, after] :
         {std::tuple{chunk_payload::standard, gvsp::payload_type::chunk_data, gvsp::payload_type::image_with_chunks},
          std::tuple{chunk_payload::extended, gvsp::payload_type::image_with_chunks,
                     gvsp::payload_type::image_with_chunks},
          std::tuple{chunk_payload::deprecated, gvsp::payload_type::extended_chunk_data,
                     gvsp::payload_type::extended_chunk_data}}) {
        camera_options options;
        options.chunk_payload = chosen;
        feature_bench camera(options);
        EXPECT_EQ(camera.state.payload_type(), gvsp::payload_type::image);
        camera.write("ChunkModeActive", 1);
        EXPECT_EQ(camera.state.payload_type(), gvsp::payload_type::image) << "no chunk is enabled";
        camera.write("ChunkEnable", 1);
        EXPECT_EQ(camera.state.payload_type(), before);
        camera.state.channels[0].extended_chunk_data = true;
        EXPECT_EQ(camera.state.payload_type(), after);
    }
}

TEST(Trigger, IsFiredBySoftwareOrByTheLinesEdge) {
    feature_bench camera;
    camera.write("TriggerMode", 1);
    camera.write("TriggerSoftware", 1);
    EXPECT_FALSE(camera.state.trigger.waiting()) << "no acquisition";
    camera.write("AcquisitionStart", 1);
    camera.write("TriggerSoftware", 1);
    EXPECT_FALSE(camera.state.trigger.waiting()) << "the stream channel is closed";
    camera.state.channels[0].destination = 0x7F000001;
    camera.state.channels[0].host_port = 5000;
    camera.write("TriggerSoftware", 1);
    EXPECT_TRUE(camera.state.trigger.waiting());
    camera.state.trigger.take({});
    camera.state.trigger.settings.source = trigger_source::line1;
    camera.write("TriggerSoftware", 1);
    EXPECT_FALSE(camera.state.trigger.waiting());
    camera.state.set_line1(true);
    EXPECT_TRUE(camera.state.trigger.waiting());
    camera.state.trigger.take({});
    camera.state.set_line1(true);
    camera.state.set_line1(false);
    EXPECT_FALSE(camera.state.trigger.waiting());
    camera.state.trigger.settings.edge = trigger_edge::falling;
    camera.state.set_line1(true);
    EXPECT_FALSE(camera.state.trigger.waiting());
    camera.state.set_line1(false);
    EXPECT_TRUE(camera.state.trigger.waiting());
}

TEST(UserSet, StoresAllSettingsAndLoadsThem) {
    feature_bench camera;
    camera.write("Width", 640);
    camera.write_float("ExposureTime", 123.0);
    camera.write("TriggerMode", 1);
    camera.write("ALCReference", 40);
    camera.write("LUTValue", 17);
    camera.write("LineInverter", 1);
    camera.write("ChunkModeActive", 1);
    camera.write("UserSetSelector", 1);
    EXPECT_EQ(camera.write("UserSetSave", 1), status::success);
    camera.write("UserSetSelector", 0);
    EXPECT_EQ(camera.write("UserSetLoad", 1), status::success);
    feature_bench other;
    for (auto const* const name :
         {"Width", "TriggerMode", "ALCReference", "LUTValue", "LineInverter", "ChunkModeActive"}) {
        EXPECT_EQ(camera.read(name), other.read(name)) << name;
    }
    EXPECT_DOUBLE_EQ(camera.read_float("ExposureTime"), 1000.0);
    camera.write("UserSetSelector", 1);
    EXPECT_EQ(camera.write("UserSetLoad", 1), status::success);
    EXPECT_EQ(camera.read("Width"), 640U);
    EXPECT_DOUBLE_EQ(camera.read_float("ExposureTime"), 123.0);
    EXPECT_EQ(camera.read("TriggerMode"), 1U);
    EXPECT_EQ(camera.read("ALCReference"), 40U);
    EXPECT_EQ(camera.read("LUTValue"), 17U);
    EXPECT_EQ(camera.read("LineInverter"), 1U);
    EXPECT_EQ(camera.read("ChunkModeActive"), 1U);
}

TEST(UserSet, IsRefusedWhereItCannotBeUsed) {
    feature_bench camera;
    EXPECT_EQ(camera.write("UserSetSave", 1), status::access_denied) << "the initial settings";
    camera.write("UserSetSelector", 2);
    EXPECT_EQ(camera.write("UserSetLoad", 1), status::access_denied) << "never saved";
    EXPECT_EQ(camera.write("UserSetSave", 1), status::success);
    camera.write("AcquisitionStart", 1);
    EXPECT_EQ(camera.write("UserSetLoad", 1), status::busy);
}

TEST(FrameRate, IsLimitedByTheHeight) {
    EXPECT_GE(sensor::max_frame_rate(1024), 400.0);
    EXPECT_GE(sensor::max_frame_rate(480), 1000.0);
    feature_bench camera;
    camera.write("Height", 480);
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 1000.0), status::success);
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 2000.0), status::invalid_parameter);
    camera.write("Height", 1024);
    EXPECT_DOUBLE_EQ(camera.read_float("AcquisitionFrameRate"), sensor::max_frame_rate(1024));
    EXPECT_DOUBLE_EQ(std::bit_cast<double>(camera.read(camera.named("AcquisitionFrameRate").max_address, 8)),
                     sensor::max_frame_rate(1024));
}

TEST(FrameRate, IsReducedByALongExposure) {
    EXPECT_DOUBLE_EQ(sensor::frame_period_us(100.0, 500.0), 10000.0);
    EXPECT_DOUBLE_EQ(sensor::frame_period_us(100.0, 50000.0), 50020.0);
}

TEST(ExposureTime, IsLimitedByTheFramePeriod) {
    feature_bench camera;
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 100.0), status::success);
    EXPECT_EQ(camera.write_float("ExposureTime", 9981.0), status::invalid_parameter);
    EXPECT_EQ(camera.write_float("ExposureTime", 9980.0), status::success);
    EXPECT_DOUBLE_EQ(std::bit_cast<double>(camera.read(camera.named("ExposureTime").max_address, 8)), 9980.0);
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 200.0), status::success);
    EXPECT_DOUBLE_EQ(camera.read_float("ExposureTime"), 4980.0);
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 0.5), status::success);
    EXPECT_EQ(camera.write_float("ExposureTime", sensor::max_exposure_us), status::success);
}

TEST(ExposureTime, CanBeIndependentOfTheFrameRate) {
    feature_bench camera(with_independent_limits(640, 480));
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 100.0), status::success);
    EXPECT_EQ(camera.write_float("ExposureTime", sensor::max_exposure_us), status::success);
    EXPECT_EQ(camera.write_float("AcquisitionFrameRate", 200.0), status::success);
    EXPECT_DOUBLE_EQ(camera.read_float("ExposureTime"), sensor::max_exposure_us);
}

TEST(Gain, IsStoredPerSelectorAndMultiplied) {
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

TEST(FloatFeature, RejectsNan) {
    feature_bench camera;
    EXPECT_EQ(camera.write_float("Gain", std::nan("")), status::invalid_parameter);
    EXPECT_EQ(camera.write_float("ExposureTime", INFINITY), status::invalid_parameter);
    EXPECT_EQ(camera.write_float("ExposureTime", 9.99), status::invalid_parameter);
}

TEST(Command, AcceptsOnlyItsCommandValue) {
    feature_bench camera;
    EXPECT_EQ(camera.write("AcquisitionStart", 2), status::invalid_parameter);
    EXPECT_FALSE(camera.state.acquiring);
}

TEST(TimestampValue, IsTheValueLatchedLast) {
    camera_options options;
    options.first_tick = 1000;
    feature_bench camera(options);
    auto const value = [&] { return camera.read(camera.named("GevTimestampValue").address, 8); };
    EXPECT_EQ(value(), 0U);
    camera.state.latched_ticks = 1234;
    EXPECT_EQ(value(), 1234U);
    EXPECT_EQ(value(), 1234U);
}

TEST(TimestampValue, CanRun) {
    camera_options options;
    options.first_tick = 1000;
    options.timestamp_value = timestamp_value::running;
    feature_bench camera(options);
    std::uint64_t const first = camera.read(camera.named("GevTimestampValue").address, 8);
    EXPECT_GE(first, 1000U);
    EXPECT_EQ(camera.state.latched_ticks, first);
    EXPECT_GE(camera.read(camera.named("GevTimestampValue").address, 8), first);
}

TEST(GenicamXml, HasNodesWithUniqueNames) {
    camera_state state({}, {}, {});
    std::string const xml = genicam_xml("JAI Corporation", "GO-5100M-PGE", place(camera_features(state)));
    std::set<std::string> names;
    for (std::size_t at = xml.find("\n  <"); at != std::string::npos; at = xml.find("\n  <", at + 1)) {
        std::string const line = xml.substr(at + 1, xml.find('\n', at + 1) - at - 1);
        std::size_t const name = line.find("Name=\"");
        if (name != std::string::npos) {
            std::size_t const begin = name + 6;
            EXPECT_TRUE(names.insert(line.substr(begin, line.find('"', begin) - begin)).second) << line;
        }
    }
    EXPECT_GT(names.size(), 100U);
}

TEST(GenicamXml, ContainsLimitsUnitsAndAccess) {
    camera_state state({}, {}, {});
    std::string const xml = genicam_xml("JAI Corporation", "GO-5100M-PGE", place(camera_features(state)));
    EXPECT_THAT(xml, AllOf(HasSubstr("VendorName=\"JAI_Corporation\""), HasSubstr("ModelName=\"GO_5100M_PGE\"")));
    EXPECT_THAT(node(xml, "Width"),
                AllOf(HasSubstr("<Min>16</Min>"), HasSubstr("<pMax>WidthMaxLimitReg</pMax>"), HasSubstr("<Inc>8</Inc>"),
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
    EXPECT_THAT(node(xml, "AcquisitionFrameRate"), HasSubstr("<pMax>AcquisitionFrameRateMaxLimitReg</pMax>"));
}

TEST(GenicamXml, ContainsThePortsOfChunks) {
    camera_state state({}, {}, {});
    std::string const xml = genicam_xml("A", "B", place(camera_features(state)));
    EXPECT_THAT(node(xml, "ChunkExposureTimeReg"),
                AllOf(HasSubstr("<pPort>ChunkExposureTimePort</pPort>"), HasSubstr("<Length>4</Length>"),
                      HasSubstr("<Address>0x0</Address>"), HasSubstr("<Endianess>LittleEndian</Endianess>")));
    EXPECT_THAT(node(xml, "ChunkExposureTimePort"), HasSubstr("<ChunkID>2004</ChunkID>"));
    EXPECT_THAT(node(xml, "ChunkTimestampReg"), HasSubstr("<Length>8</Length>"));
    EXPECT_THAT(node(xml, "ChunkTimestamp"), HasSubstr("<pIsAvailable>ChunkModeActive</pIsAvailable>"));
}

TEST(GenicamXml, OmitsFeaturesThatTheCameraLacks) {
    camera_state state({}, {}, {});
    std::vector<feature> features = camera_features(state);
    std::erase_if(features, [](feature const& one) { return one.name == "DeviceTemperature"; });
    EXPECT_THAT(genicam_xml("A", "B", place(std::move(features))), Not(HasSubstr("DeviceTemperature")));
}

TEST(GenicamXml, EscapesReservedCharacters) {
    std::vector<feature> features;
    features.push_back({.name = "One", .category = "C", .tooltip = "a < b & \"c\"", .kind = command_kind{}});
    EXPECT_THAT(genicam_xml("A", "B", place(std::move(features))), HasSubstr("a &lt; b &amp; &quot;c&quot;"));
}
