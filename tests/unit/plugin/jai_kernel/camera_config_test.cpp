// SPDX-License-Identifier: MIT
#include <cfloat>
#include <cmath>

#include "errors.hpp"
#include "jai_kernel/kernel_test.hpp"
#include "jai_property_bag/property_bag.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char rule[] = "===================================";

struct camera_config : plugin_test::kernel_fixture {
    unsigned buffers = 4;
    int configure() { return kernel.ProcSetCamConfig(&device(), info(), &buffers); }
    /// Runs `setupCam` on a configured camera; the journal holds only its calls.
    int set_up(bool restart, bool full) {
        configure();
        forget();
        return kernel.setupCam(&device(), restart, full);
    }
    static void forget() {
        recording::the_system_log().lines.clear();
        support::journal().clear();
    }
    bool info_line(std::string const& text) { return logged(level::info, "", tag, text); }
};

// ---- Reports ------------------------------------------------------------------------------------

TEST_F(camera_config, ReportsTheDevice) {
    cam().vendor = "Vend";
    cam().version = "7.7";
    EXPECT_EQ(configure(), 0);
    EXPECT_TRUE(info_line("== Camera Device Information =="));
    EXPECT_TRUE(info_line(rule));
    EXPECT_TRUE(info_line("Vendor           : Vend"));
    EXPECT_TRUE(info_line("Model            : GO-5100M-PGE"));
    EXPECT_TRUE(info_line("Version          : 7.7"));
    EXPECT_TRUE(info_line("DeviceSerialID   : U700001"));
    EXPECT_TRUE(info_line("ID               : GO-5100M-PGE [10.0.0.7]"));
    EXPECT_TRUE(info_line("Temperature, C   : 41.50"));
}

TEST_F(camera_config, LogsTheTemperatureInTheTypeOfItsFeature) {
    cam()["DeviceTemperature"] = scripted::text("warm");
    configure();
    disconnect();
    cam()["DeviceTemperature"] = scripted::integer(42);
    configure();
    disconnect();
    cam()["DeviceTemperature"] = scripted::boolean(true);
    configure();
    disconnect();
    cam().features.erase("DeviceTemperature");
    configure();
    EXPECT_TRUE(info_line("Temperature, C   : warm"));
    EXPECT_TRUE(info_line("Temperature, C   : 42"));
    EXPECT_TRUE(info_line("Temperature, C   : undefined val (type 2)"));
    EXPECT_TRUE(info_line("Temperature, C   : undefined val (type -1)"));
}

TEST_F(camera_config, LogsATemperatureThatIsNegativeOrCantBeRead) {
    cam()["DeviceTemperature"].real = -7.25;
    configure();
    disconnect();
    cam()["DeviceTemperature"].refuse_read();
    configure();
    disconnect();
    cam()["DeviceTemperature"] = scripted::integer(-5);
    configure();
    disconnect();
    cam()["DeviceTemperature"].refuse_read();
    configure();
    disconnect();
    cam()["DeviceTemperature"] = scripted::text("warm").refuse_read();
    configure();
    disconnect();
    cam()["DeviceTemperature"].type_result = scripted::refused;
    configure();
    EXPECT_TRUE(info_line("Temperature, C   : -7.25"));
    EXPECT_TRUE(info_line("Temperature, C   : 0.00"));
    EXPECT_TRUE(info_line("Temperature, C   : 4294967291"));
    EXPECT_TRUE(info_line("Temperature, C   : 0"));
    EXPECT_TRUE(info_line("Temperature, C   : "));
    EXPECT_TRUE(info_line("Temperature, C   : undefined val (type -1)"));
}

TEST_F(camera_config, LogsTheCurrentValuesBeforeTheConfiguration) {
    cam()["AcquisitionFrameRate"].real = 25.06;
    cam()["Gain"].real = 2.0;
    cam()["ExposureTime"].real = 2'500.25;
    host().fps = 50.0F;
    configure();
    EXPECT_TRUE(info_line("~~ Camera Device Current Settings ~~"));
    EXPECT_TRUE(info_line("ResultingFrameRate  : 25.1"));
    EXPECT_TRUE(info_line("Gain, dB            : 6.0"));
    EXPECT_TRUE(info_line("ExposureTimeAbs, us : 2500.2"));
    EXPECT_TRUE(info_line("Gamma               : Gamma045"));
    EXPECT_TRUE(info_line("PixelFormat         : 0x01080001"));
}

TEST_F(camera_config, AValueThatCantBeReadDoesNotPreventReadingTheOthers) {
    auto const all = cam().features;
    for (auto const* const missing : {"OffsetX", "AcquisitionFrameRate", "Gain", "JAIGamma", "JAILUTMode"}) {
        forget();
        kernel.tickFrequency = 0;
        cam().features = all;
        cam().features.erase(missing);
        EXPECT_EQ(configure(), 0) << missing;
        EXPECT_TRUE(mentioned("ExposureTimeAbs, us : 10000.0\n")) << missing;
        EXPECT_EQ(kernel.tickFrequency, 1'000'000'000u) << missing;
        disconnect();
    }
}

TEST_F(camera_config, ReadsTheCurrentValuesAtAnyLogLevel) {
    gMgLogLevelLib = 0;
    configure();
    EXPECT_THAT(calls({"GetFloatValue(AcquisitionFrameRate", "GetFloatValue(ExposureTime", "GetIntegerValue(OffsetX"}),
                testing::SizeIs(testing::Ge(3)));
    EXPECT_EQ(kernel.frameRate, 30.0F);
    EXPECT_EQ(kernel.framePeriod, 33'333u);
}

TEST_F(camera_config, ReportsTheNewSettings) {
    host().offset_x = 16;
    host().offset_y = 4;
    host().width = 320;
    host().height = 200;
    host().format = 2;
    host().fps = 50.0F;
    host().sweep_gain_mod = 1;
    host().gain_man = 0.0F;
    cam()["PayloadSize"].integer = 96'000;
    EXPECT_EQ(configure(), 0);
    EXPECT_TRUE(info_line("~~ Camera Device New Settings ~~"));
    EXPECT_TRUE(info_line("ROI OffsX x OffsY   : 16 x 4"));
    EXPECT_TRUE(info_line("ROI Width x Height  : 320 x 200"));
    EXPECT_TRUE(info_line("ResultingFrameRate  : 50.000000"));
    EXPECT_TRUE(info_line("Gain, dB            : 0.000000"));
    EXPECT_TRUE(info_line("ExposureTimeAbs, us : 10000.000000"));
    EXPECT_TRUE(info_line("Gamma               : 0.000000"));
    EXPECT_TRUE(info_line("PixelFormat         : 0x010C0006"));
    EXPECT_TRUE(info_line("Stride              : 480"));
    EXPECT_TRUE(info_line("Full frame size     : 96000"));
    EXPECT_TRUE(info_line("Applying initial configuration..."));
    EXPECT_TRUE(info_line("...initial configuration is applied"));
    EXPECT_EQ(count_in_system_log(level::info, "", std::string(rule) + "\n"), 4u)
        << "one after each head line and one at the end";
}

// ---- Steps --------------------------------------------------------------------------------------

TEST_F(camera_config, RunsItsStepsInOrder) {
    host().offset_x = 8;
    host().width = 320;
    host().fps = 50.0F;
    host().sweep_gain_mod = 1;
    host().gain_man = 6.0F;
    host().sweep_lut_mod = 1;
    host().gamma = 0.6F;
    host().iobox_num = 1;
    host().io_lines = {{.pin = 5, .source = 2, .inverter = 1}};
    EXPECT_EQ(configure(), 0);
    auto steps = writes();
    std::erase_if(steps, [](std::string const& call) {
        return call.find("Chunk") != std::string::npos || call == "SetEnumValue(GainSelector, AnalogAll)";
    });
    EXPECT_THAT(steps, ElementsAre("SetEnumValue(PixelFormat, 0x01080001)", "SetIntegerValue(OffsetX, 8)",
                                   "SetIntegerValue(Width, 320)", "SetFloatValue(AcquisitionFrameRate, 50)",
                                   "SetEnumValue(GainAuto, Off)", "SetFloatValue(Gain, 1.99526)",
                                   "SetEnumValue(JAILUTMode, Gamma)", "PvGenEnum::SetValue(JAIGamma, 1)",
                                   "SetEnumValue(LineSelector, Line2)", "SetEnumValue(LineSource, ExposureActive)",
                                   "SetBooleanValue(LineInverter, false)"));
}

TEST_F(camera_config, ARefusedPixelFormatIsMinus1AndNothingElseIsConfigured) {
    cam()["PixelFormat"].refuse_write();
    host().width = 320;
    EXPECT_EQ(configure(), -1);
    EXPECT_TRUE(logged(level::error, "", tag, "The asked pixel format is not supported by device!"));
    EXPECT_THAT(calls({"SetIntegerValue", "SetFloatValue", "PvGenBoolean::SetValue"}), IsEmpty());
}

TEST_F(camera_config, WithoutFeaturesThePixelFormatIsRefused) {
    device();
    cam().has_features = false;
    EXPECT_EQ(configure(), -1);
}

TEST_F(camera_config, ARefusedRegionLeavesTheCamerasRegion) {
    host().width = 641;
    host().fps = 50.0F;
    EXPECT_EQ(configure(), 0);
    EXPECT_THAT(calls({"SetIntegerValue(Width"}), IsEmpty());
    EXPECT_EQ(host().last_value(1), 640.0);
    EXPECT_THAT(calls({"SetFloatValue(Acq"}), ElementsAre("SetFloatValue(AcquisitionFrameRate, 50)"));
}

TEST_F(camera_config, DerivesTheDepthOfTheImageFromTheActiveFormat) {
    host().format = 9;
    configure();
    EXPECT_EQ(kernel.isColor, 1);
    EXPECT_EQ(kernel.lutBits, 8);
    EXPECT_EQ(kernel.cdfBits, 8);
    host().format = 3;
    configure();
    EXPECT_EQ(kernel.isColor, 0);
    EXPECT_EQ(kernel.lutBits, 12);
    EXPECT_EQ(kernel.cdfBits, 12);
}

TEST_F(camera_config, PublishesTheGeometryAfterTheCameraIsSetUp) {
    host().format = 3;
    EXPECT_EQ(configure(), 0);
    auto const published = calls({"MgSc__SetParamVal", "MgGiMemInst__SetActFsize"});
    EXPECT_THAT(published, ElementsAre("MgSc__SetParamVal(4, MONO12T, 12)", "MgSc__SetParamVal(8, 1280)",
                                       "MgSc__SetParamVal(1, 640)", "MgSc__SetParamVal(2, 480)",
                                       "MgGiMemInst__SetActFsize(0, 614400)"));
    EXPECT_EQ(kernel.instance0FrameSize, 614'400u);
}

TEST_F(camera_config, PublishesTheSizeOfTheImageWithoutWhatFollowsIt) {
    cam()["PayloadSize"].integer = 700'000;
    host().format = 3;
    EXPECT_EQ(configure(), 0);
    EXPECT_THAT(calls({"MgGiMemInst__SetActFsize"}), ElementsAre("MgGiMemInst__SetActFsize(0, 614400)"));
    EXPECT_GE(kernel.frameSize, 700'000u);
}

TEST_F(camera_config, AStrideOfPackedPixelsIsRoundedUpToAWholeByte) {
    cam()["Width"] = scripted::integer(641, 1, 2464);
    host().format = 2;
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(kernel.stride, 962u);
    EXPECT_EQ(kernel.fullFrameSize, 962u * 480);
}

TEST_F(camera_config, Instance1IsSetUpForTheLargerOfTheRawAndTheConvertedFrame) {
    host().format = 1;
    host().cformat = 3;
    configure();
    EXPECT_EQ(kernel.instance1SetupSize, 640u * 480 * 2);
    EXPECT_EQ(kernel.instance1FrameSize, 640u * 480);
    host().format = 3;
    host().cformat = 1;
    configure();
    EXPECT_EQ(kernel.instance1SetupSize, 640u * 480 * 2);
    host().cformat = 0;
    configure();
    EXPECT_EQ(kernel.instance1SetupSize, 640u * 480 * 2);
}

// ---- Frame size and buffers ---------------------------------------------------------------------

TEST_F(camera_config, APayloadSizeOf1000Becomes1024AndOneOf1024Stays) {
    cam()["Width"].integer = 16;
    cam()["Height"].integer = 16;
    cam()["PayloadSize"].integer = 1'000;
    configure();
    EXPECT_EQ(kernel.frameSize, 1'024u);
    cam()["PayloadSize"].integer = 1'024;
    configure();
    EXPECT_EQ(kernel.frameSize, 1'024u);
    cam()["PayloadSize"].integer = 1'025;
    configure();
    EXPECT_EQ(kernel.frameSize, 1'056u);
}

TEST_F(camera_config, AnImageLargerThanThePayloadDecidesTheFrameSize) {
    cam()["PayloadSize"].integer = 1'000;
    configure();
    EXPECT_EQ(kernel.frameSize, 640u * 480);
}

TEST_F(camera_config, ACameraWithoutPayloadSizeAndWithoutPixelFormatGetsItsFrameSizeFromTheDevice) {
    cam().features.erase("PayloadSize");
    cam().payload_size = 4'711;
    // The format can be set, but disappears before the frame size is read.
    cam()["PixelFormat"].before_write = [](auto&) { cam()["PixelFormat"].refuse_read(); };
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(kernel.frameSize, 4'711u);
    EXPECT_THAT(calls({"GetPayloadSize"}), ElementsAre("GetPayloadSize()"));
}

TEST_F(camera_config, WithOnlyThePayloadSizeThatIsTheFrameSize) {
    cam()["PayloadSize"].integer = 1'000;
    cam()["PixelFormat"].before_write = [](auto&) { cam()["PixelFormat"].refuse_read(); };
    configure();
    EXPECT_EQ(kernel.frameSize, 1'024u);
}

TEST_F(camera_config, WithOnlyThePixelFormatTheImageIsTheFrameSize) {
    cam().features.erase("PayloadSize");
    cam().features.erase("ChunkModeActive");
    host().format = 2;
    configure();
    EXPECT_EQ(kernel.frameSize, 640u * 480 * 12 / 8);
}

TEST_F(camera_config, APayloadSizeThatCantBeReadLeavesRoomForTheEnabledChunks) {
    cam()["PayloadSize"].refuse_read();
    configure();
    EXPECT_EQ(kernel.frameSize, 640u * 480 + 11 + 4 * 16) << "padding and trailer of the image, four chunks";
    std::erase_if(cam()["ChunkSelector"].entries, [](auto const& entry) { return entry.first != "Timestamp"; });
    configure();
    EXPECT_EQ(kernel.chunkMask, 4u);
    EXPECT_EQ(kernel.frameSize, 640u * 480 + 11 + 16);
    cam()["PayloadSize"].refuse_read(scripted::ok);
    configure();
    EXPECT_EQ(kernel.frameSize, 640u * 480) << "a payload size that can be read includes them";
}

TEST_F(camera_config, AnImageOfExactly2147483646BytesIsTheFrameSizeAndOneMoreIsTheDevices) {
    cam()["PayloadSize"].integer = 0;
    cam()["Width"] = scripted::integer(2, 1, 1 << 30);
    cam()["Height"] = scripted::integer(1'073'741'823, 1, 1 << 30);
    cam().payload_size = 4'711;
    configure();
    EXPECT_EQ(kernel.frameSize, 2'147'483'646u);
    cam()["PayloadSize"].integer = 2'147'483'646;
    configure();
    EXPECT_EQ(kernel.frameSize, 4'711u) << "rounded up to 2,147,483,648";
    cam()["PayloadSize"].integer = 0;
    cam()["Width"].integer = 1;
    cam()["Height"] = scripted::integer(2'147'483'647);
    configure();
    EXPECT_EQ(kernel.frameSize, 4'711u);
}

TEST_F(camera_config, AFrameSizeBeyond2147483646IsTheDevices) {
    cam().payload_size = 4'711;
    for (int64_t const size : {INT64_MAX, int64_t{2'147'483'647}, int64_t{2'147'483'648}}) {
        cam()["PayloadSize"].integer = size;
        configure();
        EXPECT_EQ(kernel.frameSize, 4'711u) << size;
    }
    cam()["PayloadSize"].integer = 2'147'483'616;
    configure();
    EXPECT_EQ(kernel.frameSize, 2'147'483'616u);
}

TEST_F(camera_config, APayloadSizeOf0WithoutAnImageIsTheDevices) {
    cam()["PayloadSize"].integer = 0;
    cam()["PixelFormat"].before_write = [](auto&) { cam()["PixelFormat"].refuse_read(); };
    cam().payload_size = 4'711;
    configure();
    EXPECT_EQ(kernel.frameSize, 4'711u);
}

TEST_F(camera_config, ANegativePayloadSizeDoesNotCount) {
    cam()["PayloadSize"].integer = -1'000;
    cam().payload_size = 4'711;
    EXPECT_EQ(configure(), 0);
    EXPECT_GE(kernel.frameSize, 640u * 480) << "the image decides";
    EXPECT_THAT(calls({"GetPayloadSize"}), IsEmpty());
}

TEST_F(camera_config, ARequestedBufferCountAboveTheStreamsMaximumComesBackAsTheMaximumAndTheLogShowsBoth) {
    cam().queue_maximum = 16;
    buffers = 100;
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(buffers, 16u);
    EXPECT_EQ(kernel.bufferCount, 16u);
    EXPECT_TRUE(info_line("Set gBufferFrameSize to 307200, bufNum to 16 (old 100)"));
}

TEST_F(camera_config, ARequestedBufferCountWithinTheMaximumStays) {
    buffers = 4;
    configure();
    EXPECT_EQ(buffers, 4u);
    EXPECT_TRUE(info_line("Set gBufferFrameSize to 307200, bufNum to 4 (old 4)"));
}

// ---- Frame rate and timestamps ------------------------------------------------------------------

TEST_F(camera_config, AConfiguredFrameRateIsReadBackAndItsPeriodAnnounced) {
    host().fps = 59.94F;
    EXPECT_EQ(configure(), 0);
    EXPECT_FLOAT_EQ(kernel.frameRate, 59.94F);
    EXPECT_EQ(kernel.framePeriod, 16'683u);
    EXPECT_THAT(calls({"MgGi__SetCurrFpsUs"}), ElementsAre("MgGi__SetCurrFpsUs(16683)"));
}

TEST_F(camera_config, TheFramePeriodIsRoundedToTheNearestMicrosecond) {
    host().fps = 60.0F;
    configure();
    EXPECT_EQ(kernel.framePeriod, 16'667u) << "of 16,666.67";
    host().fps = 30.0F;
    configure();
    EXPECT_EQ(kernel.framePeriod, 33'333u) << "of 33,333.33";
}

TEST_F(camera_config, TheActiveRateIsTheOneReadBackNotTheRequestedOne) {
    host().fps = 60.0F;
    cam()["AcquisitionFrameRate"].before_read = [](auto& feature) {
        feature.real = feature.real == 60.0 ? 58.5 : feature.real;
    };
    configure();
    EXPECT_EQ(kernel.frameRate, 58.5F);
    EXPECT_EQ(kernel.framePeriod, 17'094u);
}

TEST_F(camera_config, AConfiguredFrameRateOfMinus1LeavesTheCamerasUntouchedAndLogsThatItIsSkipped) {
    for (float const unset : {-1.0F, -1.0009F, -0.9991F}) {
        host().fps = unset;
        configure();
    }
    EXPECT_THAT(calls({"SetFloatValue(Acq", "MgGi__SetCurrFpsUs"}), IsEmpty());
    EXPECT_TRUE(info_line("  Fps config is skipped"));
    EXPECT_EQ(count_in_system_log(level::info, "", "  Fps config is skipped\n"), 3u);
    EXPECT_EQ(kernel.frameRate, 30.0F) << "what the camera had";
}

TEST_F(camera_config, ARefusedFrameRateLeavesRateAndPeriodAsTheyWere) {
    host().fps = 50.0F;
    cam()["AcquisitionFrameRate"].refuse_write();
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(kernel.frameRate, 30.0F);
    EXPECT_EQ(kernel.framePeriod, 33'333u);
    EXPECT_THAT(calls({"MgGi__SetCurrFpsUs"}), IsEmpty());
}

TEST_F(camera_config, ARateThatTheRegionHasChangedIsReadAgainWithoutAMessage) {
    cam()["Width"].before_write = [](auto&) { cam()["AcquisitionFrameRate"].real = 12.5; };
    host().width = 1'280;
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(kernel.frameRate, 12.5F);
    EXPECT_EQ(kernel.framePeriod, 80'000u);
    EXPECT_THAT(calls({"MgGi__SetCurrFpsUs"}), IsEmpty());
    EXPECT_TRUE(info_line("ResultingFrameRate  : 30.0"));
    EXPECT_TRUE(info_line("ResultingFrameRate  : 12.500000"));
    EXPECT_FALSE(mentioned("name:AcquisitionFrameRate"));
}

TEST_F(camera_config, ARateThatTheChunksHaveChangedIsReadAgain) {
    cam()["ChunkEnable"].before_write = [](auto&) { cam()["AcquisitionFrameRate"].real = 20.0; };
    configure();
    EXPECT_EQ(kernel.framePeriod, 50'000u);
}

TEST_F(camera_config, ASecondReadOfTheRateThatFailsOrGivesNoRateKeepsTheFirst) {
    for (double const rate : {0.0, -1.0, std::nan("")}) {
        cam()["AcquisitionFrameRate"] = scripted::real(30.0);
        cam()["ChunkEnable"].before_write = [rate](auto&) { cam()["AcquisitionFrameRate"].real = rate; };
        configure();
        EXPECT_EQ(kernel.frameRate, 30.0F) << rate;
        EXPECT_EQ(kernel.framePeriod, 33'333u);
    }
    cam()["AcquisitionFrameRate"] = scripted::real(30.0);
    cam()["ChunkEnable"].before_write = [](auto&) { cam()["AcquisitionFrameRate"].refuse_read(); };
    forget();
    configure();
    EXPECT_EQ(kernel.frameRate, 30.0F);
    EXPECT_FALSE(mentioned("fail: PvGenParameterArray::GetFloatValue (name:AcquisitionFrameRate"));
}

TEST_F(camera_config, AfterARefusedRateTheCamerasIsReadAgain) {
    host().fps = 50.0F;
    cam()["AcquisitionFrameRate"].before_write = [](auto& feature) {
        feature.real = 24.0;  // takes another rate, and reports a failure
        feature.write = scripted::refused;
    };
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(kernel.frameRate, 24.0F);
    EXPECT_EQ(kernel.framePeriod, 41'667u);
    EXPECT_THAT(calls({"MgGi__SetCurrFpsUs"}), IsEmpty());
}

TEST_F(camera_config, ARateThatIsWrittenButCantBeReadBackLeavesRateAndPeriod) {
    host().fps = 50.0F;
    cam()["AcquisitionFrameRate"].before_write = [](auto& feature) { feature.read = scripted::refused; };
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(cam()["AcquisitionFrameRate"].real, 50.0);
    EXPECT_EQ(kernel.frameRate, 30.0F);
    EXPECT_EQ(kernel.framePeriod, 33'333u);
    EXPECT_THAT(calls({"MgGi__SetCurrFpsUs"}), IsEmpty());
}

TEST_F(camera_config, ARateThatReadsBackAsNoRateHasPeriod0) {
    struct expected {
        double rate;
        float stored;
        uint32_t period;
    };
    for (auto const& [rate, stored, period] : {expected{0.0, 0.0F, 0},
                                               {-2.0, -2.0F, 0},
                                               {HUGE_VAL, FLT_MAX, 0},
                                               {1e300, FLT_MAX, 0},
                                               {1e-30, 1e-30F, UINT32_MAX}}) {
        host().fps = 50.0F;
        cam()["AcquisitionFrameRate"] = scripted::real(30.0);
        cam()["AcquisitionFrameRate"].before_write = [rate = rate](auto& feature) {
            feature.before_read = [rate](auto& read) { read.real = rate; };
        };
        support::journal().clear();
        EXPECT_EQ(configure(), 0);
        EXPECT_EQ(kernel.frameRate, stored);
        EXPECT_EQ(kernel.framePeriod, period) << rate;
        EXPECT_THAT(calls({"MgGi__SetCurrFpsUs"}), ElementsAre("MgGi__SetCurrFpsUs(" + std::to_string(period) + ")"));
    }
    cam()["AcquisitionFrameRate"] = scripted::real(30.0);
    cam()["AcquisitionFrameRate"].before_write = [](auto& feature) {
        feature.before_read = [](auto& read) { read.real = std::nan(""); };
    };
    configure();
    EXPECT_TRUE(std::isnan(kernel.frameRate));
    EXPECT_EQ(kernel.framePeriod, 0u);
}

TEST_F(camera_config, ATickFrequencyThatCantBeReadAgainIsTheKnownOne) {
    cam()["GevTimestampTickFrequency"].integer = 125'000'000;
    configure();
    cam()["GevTimestampTickFrequency"].refuse_read();
    forget();
    configure();
    EXPECT_EQ(kernel.tickFrequency, 125'000'000u);
    EXPECT_FALSE(mentioned("timestamp frequency is 0"));
    cam()["GevTimestampTickFrequency"] = scripted::integer(0);
    configure();
    EXPECT_EQ(kernel.tickFrequency, 0u) << "a frequency of 0 that was read counts";
}

TEST_F(camera_config, ATimestampAdjustmentOf0SelectsTheHostTimeMode) {
    configure();
    EXPECT_EQ(kernel.timestampAdjustment, 0);
    EXPECT_TRUE(info_line("REGULAR mode - TS is obtained using box gettimeofday"));
}

TEST_F(camera_config, AnyOtherTimestampAdjustmentSelectsTheCameraTimeMode) {
    host().tsadjns = -40'000;
    configure();
    EXPECT_EQ(kernel.timestampAdjustment, -40'000);
    EXPECT_TRUE(info_line("REFCAMTS mode - TS is obtained from cam (sync accuracy -4e-05)"));
}

TEST_F(camera_config, ATickFrequencyBeyond32BitsSaturates) {
    cam()["GevTimestampTickFrequency"].integer = int64_t{1} << 40;
    configure();
    EXPECT_EQ(kernel.tickFrequency, UINT32_MAX);
    cam()["GevTimestampTickFrequency"].integer = -5;
    configure();
    EXPECT_EQ(kernel.tickFrequency, 0u);
}

TEST_F(camera_config, AnExceptionWhileReadingTheTickFrequencyPropagates) {
    cam()["GevTimestampTickFrequency"].before_read = [](auto&) { throw std::runtime_error("x"); };
    EXPECT_THROW(configure(), std::runtime_error);
}

// ---- Gain and exposure --------------------------------------------------------------------------

struct grab_control_config : camera_config {
    /// The writes of a second set-up.
    std::vector<std::string> second_set_up() {
        configure();
        support::journal().clear();
        EXPECT_EQ(kernel.setupCam(&device(), true, false), 0);
        auto found = writes();
        std::erase(found, "SetEnumValue(GainSelector, AnalogAll)");
        return found;
    }
    std::vector<std::string> first_set_up() {
        configure();
        auto found = writes();
        std::erase_if(found, [](std::string const& call) {
            return call.find("Chunk") != std::string::npos || call.find("PixelFormat") != std::string::npos ||
                   call == "SetEnumValue(GainSelector, AnalogAll)";
        });
        return found;
    }
};

TEST_F(grab_control_config, ManualModesSwitchTheAutomaticOffAndSetTheManualValues) {
    host().sweep_gain_mod = 1;
    host().sweep_etime_mod = 1;
    host().gain_man = 12.0F;
    host().expt_man = 2'000.0F;
    host().atbright = 0.5F;
    EXPECT_THAT(first_set_up(), ElementsAre("SetEnumValue(GainAuto, Off)", "SetEnumValue(ExposureAuto, Off)",
                                            "SetFloatValue(Gain, 3.98107)", "SetFloatValue(ExposureTime, 2000)"));
    EXPECT_NEAR(kernel.gainDb, 12.0, 1e-4);
    EXPECT_EQ(kernel.exposure, 2'000.0);
}

TEST_F(grab_control_config, EachManualValueFollowsItsOwnMode) {
    host().gain_man = 12.0F;
    host().expt_man = 2'000.0F;
    host().sweep_etime_mod = 1;
    EXPECT_THAT(first_set_up(), ElementsAre("SetEnumValue(ExposureAuto, Off)", "SetFloatValue(ExposureTime, 2000)"));
    host().sweep_etime_mod = 0;
    host().sweep_gain_mod = 1;
    EXPECT_THAT(second_set_up(), ElementsAre("SetFloatValue(Gain, 3.98107)"));
}

TEST_F(grab_control_config, AutomaticModesSetTheirLimitsAndNoManualValue) {
    host().sweep_prof = 1;
    host().sweep_gain_mod = 2;
    host().sweep_etime_mod = 2;
    host().atbright = 0.4F;
    host().gainlims_low = 0.0F;
    host().gainlims_high = 12.0F;
    host().etlims_low = 100.0F;
    host().etlims_high = 9'000.0F;
    host().gain_man = 3.0F;
    host().expt_man = 50.0F;
    EXPECT_THAT(first_set_up(),
                ElementsAre("SetEnumValue(GainAuto, Continuous)", "SetEnumValue(ExposureAuto, Continuous)",
                            "SetEnumValue(ALCAreaEnable, On)", "SetIntegerValue(ALCReference, 40)",
                            "SetIntegerValue(AutoGainControlGainRawMin, 100)",
                            "SetIntegerValue(AutoGainControlGainRawMax, 398)",
                            "SetIntegerValue(AutoShutterControlExposureMin, 100)",
                            "SetIntegerValue(AutoShutterControlExposureMax, 9000)"));
}

TEST_F(grab_control_config, OneAutomaticModeIsEnoughForTheAutomaticValues) {
    host().sweep_etime_mod = 2;
    host().atbright = 0.4F;
    EXPECT_THAT(first_set_up(),
                ElementsAre("SetEnumValue(ExposureAuto, Continuous)", "SetIntegerValue(ALCReference, 40)"));
}

TEST_F(grab_control_config, AnActiveModeIsNotWrittenAgainButItsValuesAre) {
    host().sweep_gain_mod = 1;
    host().gain_man = 6.0F;
    EXPECT_THAT(second_set_up(), ElementsAre("SetFloatValue(Gain, 1.99526)"));
}

TEST_F(grab_control_config, BothModesAreRememberedEachForItself) {
    host().sweep_gain_mod = 1;
    host().sweep_etime_mod = 2;
    EXPECT_THAT(second_set_up(), IsEmpty());
    host().sweep_gain_mod = 2;
    support::journal().clear();
    kernel.setupCam(&device(), true, false);
    EXPECT_THAT(calls({"SetEnumValue(GainAuto", "SetEnumValue(ExposureAuto"}),
                ElementsAre("SetEnumValue(GainAuto, Continuous)"));
    host().sweep_etime_mod = 1;
    support::journal().clear();
    kernel.setupCam(&device(), true, false);
    EXPECT_THAT(calls({"SetEnumValue(GainAuto", "SetEnumValue(ExposureAuto"}),
                ElementsAre("SetEnumValue(ExposureAuto, Off)"));
}

TEST_F(grab_control_config, AReconnectedCameraHasLostItsExposureModeToo) {
    host().sweep_etime_mod = 2;
    configure();
    cam().connected = false;
    support::journal().clear();
    kernel.setupCam(&device(), true, false);
    EXPECT_THAT(calls({"SetEnumValue(ExposureAuto"}), ElementsAre("SetEnumValue(ExposureAuto, Continuous)"));
}

TEST_F(grab_control_config, AChangedModeIsSwitched) {
    host().sweep_gain_mod = 1;
    configure();
    host().sweep_gain_mod = 2;
    support::journal().clear();
    kernel.setupCam(&device(), true, false);
    EXPECT_THAT(calls({"SetEnumValue(GainAuto"}), ElementsAre("SetEnumValue(GainAuto, Continuous)"));
}

TEST_F(grab_control_config, AModeThatTheCameraRefusedIsTriedAgain) {
    host().sweep_gain_mod = 2;
    cam()["GainAuto"].refuse_write();
    configure();
    cam()["GainAuto"].refuse_write(scripted::ok);
    support::journal().clear();
    kernel.setupCam(&device(), true, false);
    EXPECT_THAT(calls({"SetEnumValue(GainAuto"}), ElementsAre("SetEnumValue(GainAuto, Continuous)"));
}

TEST_F(grab_control_config, AGainThatCantBeReadBackAfterTheSetUpLeavesTheModesRemembered) {
    host().sweep_gain_mod = 2;
    cam()["Gain"].refuse_read();
    kernel.gainDb = 3.0F;
    kernel.exposure = 7.0;
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(kernel.gainDb, 3.0F);
    EXPECT_EQ(kernel.exposure, 7.0) << "is read after the gain";
    support::journal().clear();
    kernel.setupCam(&device(), true, false);
    EXPECT_THAT(calls({"SetEnumValue(GainAuto"}), IsEmpty()) << "the camera has accepted the mode";
}

TEST_F(grab_control_config, OtherModesConfigureNothing) {
    host().sweep_gain_mod = 3;
    host().sweep_etime_mod = 0;
    host().gain_man = 6.0F;
    host().expt_man = 6.0F;
    host().atbright = 0.1F;
    EXPECT_THAT(first_set_up(), IsEmpty());
}

TEST_F(grab_control_config, ARefusedSettingEndsNeitherTheRunNorTheSetUp) {
    host().sweep_gain_mod = 1;
    host().gain_man = 6.0F;
    cam()["Gain"].refuse_write();
    host().iobox_num = 1;
    host().io_lines = {{.pin = 6, .source = 1, .inverter = 2}};
    EXPECT_EQ(configure(), 0);
    EXPECT_THAT(calls({"SetEnumValue(Line", "SetBooleanValue(Line"}),
                ElementsAre("SetEnumValue(LineSelector, Line3)", "SetEnumValue(LineSource, Low)",
                            "SetBooleanValue(LineInverter, true)"));
}

// ---- setupCam -----------------------------------------------------------------------------------

TEST_F(camera_config, WithoutFullNeitherFrameRateNorRotationIsApplied) {
    host().fps = 50.0F;
    host().rotate = 2;
    set_up(true, false);
    EXPECT_THAT(calls({"SetFloatValue(Acq"}), IsEmpty());
    EXPECT_FALSE(mentioned("Rotate settings"));
    EXPECT_TRUE(logged(level::debug, "setupCam", tag, "done: PvDevice::IsConnected"));
}

TEST_F(camera_config, WithFullBothAre) {
    host().fps = 50.0F;
    host().rotate = 2;
    set_up(true, true);
    EXPECT_THAT(calls({"SetFloatValue(Acq"}), ElementsAre("SetFloatValue(AcquisitionFrameRate, 50)"));
    EXPECT_TRUE(mentioned("Rotate settings"));
}

TEST_F(camera_config, WithLutSweepModeOtherThan1NeitherTheLutNorTheGammaIsTouched) {
    host().sweep_lut_mod = 2;
    host().gamma = 0.6F;
    host().lut.assign(256, 1);
    EXPECT_EQ(configure(), 0);
    EXPECT_FALSE(mentioned("LUT settings handler"));
    EXPECT_FALSE(mentioned("Gamma settings handler"));
}

TEST_F(camera_config, GammaIsAppliedOnlyWhenTheLutStepDidNothing) {
    host().sweep_lut_mod = 1;
    host().gamma = 0.6F;
    host().lut.assign(256, 1);
    EXPECT_EQ(configure(), 0);
    EXPECT_TRUE(mentioned("LUT handler exit"));
    EXPECT_FALSE(mentioned("Gamma settings handler"));
    forget();
    kernel.setupCam(&device(), false, false);
    EXPECT_TRUE(mentioned("Gamma settings handler"));
}

TEST_F(camera_config, AfterALutThatFailedTheGammaIsNotApplied) {
    host().sweep_lut_mod = 1;
    host().gamma = 0.6F;
    host().lut.assign(256, 1);
    cam()["LUTValue"].refuse_write();
    EXPECT_EQ(configure(), 0);
    EXPECT_TRUE(mentioned("can't set LUT value"));
    EXPECT_FALSE(mentioned("Gamma settings handler"));

    forget();
    host().lut.clear();
    cam()["JAILUTMode"].integer = 1;
    cam()["JAILUTMode"].refuse_write();
    EXPECT_EQ(kernel.setupCam(&device(), false, false), 0);
    EXPECT_TRUE(mentioned("can't disable LUT"));
    EXPECT_FALSE(mentioned("Gamma settings handler"));
}

TEST_F(camera_config, TheLutAndTheGammaStopCaptureOnlyWhileGrabbing) {
    host().sweep_lut_mod = 1;
    host().gamma = 0.6F;
    set_up(false, false);
    EXPECT_THAT(calls({"Execute"}), IsEmpty());
    forget();
    host().gamma = 0.45F;
    kernel.setupCam(&device(), true, false);
    EXPECT_THAT(calls({"Execute"}), ElementsAre("Execute(AcquisitionStop)", "Execute(AcquisitionStart)"));
}

TEST_F(camera_config, ALostCameraIsConnectedAndConfiguredAgain) {
    host().sweep_gain_mod = 1;
    configure();
    forget();
    cam().connected = false;
    EXPECT_EQ(kernel.setupCam(&device(), true, true), 0);
    EXPECT_TRUE(info_line("done: PvDevice::Connect (camera is reconnected)"));
    EXPECT_THAT(calls({"Connect", "SetEnumValue(GainAuto"}),
                ElementsAre("Connect(10.0.0.7)", "SetEnumValue(GainAuto, Off)"))
        << "a reconnected camera has lost its modes";
}

TEST_F(camera_config, ACameraThatCantBeConnectedAgainIsMinus1) {
    configure();
    forget();
    cam().connected = false;
    cam().reconnect = scripted::refused;
    EXPECT_EQ(kernel.setupCam(&device(), true, true), -1);
    EXPECT_TRUE(logged(level::warning, "setupCam", tag, "fail: PvDevice::Connect (configuration is skipped)"));
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(camera_config, ACameraThatIsLostDuringConfigurationEndsIt) {
    cam().connected = false;
    cam().reconnect = scripted::refused;
    EXPECT_EQ(configure(), -1);
    EXPECT_THAT(calls({"MgSc__SetParamVal(1,"}), IsEmpty());
}

TEST_F(camera_config, TheSensorBlockDecidesWhetherTheRegionChanges) {
    using Vorn::Support::MediaGrabber::Jai::property;
    Vorn::Support::MediaGrabber::Jai::property_bag bag;
    configure();
    bag.setInt64(property::sensor_w, 640);
    EXPECT_FALSE(kernel.testCamSensorChanged(&device(), bag));
    bag.setInt64(property::sensor_w, 320);
    EXPECT_TRUE(kernel.testCamSensorChanged(&device(), bag));
    kernel.setupCamSensor(&device(), bag);
    EXPECT_FALSE(kernel.testCamSensorChanged(&device(), bag));
}

}  // namespace
