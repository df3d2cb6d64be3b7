// SPDX-License-Identifier: MIT
/// \file
/// The host functions as a plug-in calls them.

#include <gtest/gtest.h>

#include <array>

#include "collecting_sink.hpp"
#include "config/configuration_file.hpp"
#include "mg_host_api.hpp"
#include "plugin/host_context.hpp"

using namespace mediagrabber;

namespace {

/// A host with a configuration, and no plug-in's run under way.
class host {
public:
    explicit host(std::string const& text = "", std::uint64_t frames = 0)
        : configurations(parse_configuration(text, "f").values),
          exporter(sink, 4, [](auto const&, auto const&) {}),
          receiver(&exporter, 4, frames, progress),
          plugin(FAKE_PLUGIN),
          context(configurations, latch, receiver, progress, plugin) {}

    collecting_sink sink;
    grab_progress progress;
    signal_latch latch;
    configuration_store configurations;
    frame_exporter exporter;
    frame_receiver receiver;
    plugin_library plugin;
    host_context context;
};

}  // namespace

TEST(HostFunctions, ReturnTheValuesForNotConfigured) {
    host const any;
    EXPECT_EQ(MgGiMainCtx__GetModelStr(), nullptr);
    EXPECT_EQ(MgGiMainCtx__GetIdStr(), nullptr);
    EXPECT_EQ(MgGiMainCtx__GetActiveCamMask(), 1U);
    EXPECT_EQ(MgGiMainCtx__GetWidth(), -1);
    EXPECT_EQ(MgGiMainCtx__GetHeight(), -1);
    EXPECT_EQ(MgGiMainCtx__GetOffsetX(), -1);
    EXPECT_EQ(MgGiMainCtx__GetOffsetY(), -1);
    EXPECT_EQ(MgGiMainCtx__GetFormat(), 1);
    EXPECT_EQ(MgGiMainCtx__GetCformat(), 0);
    EXPECT_GT(MgGiMainCtx__GetDatachunk(), 9000U);
    EXPECT_EQ(MgGiMainCtx__GetFps(), -1.0F);
    EXPECT_EQ(MgGiMainCtx__GetTsadjns(), 0);
    EXPECT_EQ(MgGiMainCtx__GetExptMan(), -1.0F);
    EXPECT_EQ(MgGiMainCtx__GetGainMan(), -100.0F);
    EXPECT_EQ(MgGiMainCtx__GetAtbright(), -1.0F);
    EXPECT_EQ(MgGiMainCtx__GetGainlimsLow(), -100.0F);
    EXPECT_EQ(MgGiMainCtx__GetEtlimsLow(), -1.0F);
    EXPECT_EQ(MgGiMainCtx__GetSweepProf(), 0);
    EXPECT_EQ(MgGiMainCtx__GetSweepGainMod(), 0);
    EXPECT_EQ(MgGiMainCtx__GetSweepEtimeMod(), 0);
    EXPECT_EQ(MgGiMainCtx__GetSweepLutMod(), 0);
    EXPECT_EQ(MgGiMainCtx__GetGamma(), -1.0F);
    EXPECT_EQ(MgGiMainCtx__GetIoboxNum(), 0U);
    EXPECT_EQ(MgGiMainCtx__GetLutDataU16(), nullptr);
    EXPECT_EQ(MgGiMainCtx__GetLutArrCount(), 0U);
    EXPECT_EQ(MgGiMainCtx__GetLutBitSize(), 0U);
    EXPECT_EQ(MgGiMainCtx__GetFnum(), 0U);
}

TEST(HostFunctions, ReturnTheConfiguredValues) {
    host const any(R"(
        camera = { model = "M", serial = "S", active_mask = 4 }
        image = { width = 10, height = 11, offset_x = 12, offset_y = 13, format = "Mono12", convert_to = "Mono8", rotation_deg = 180 }
        transport.packet_size_bytes = 1500
        timing = { frame_rate_hz = 25.5, clock_correction_ppb = -7 }
        exposure = { auto = "Off", time_us = 250.5, limits_us = [10, 20] }
        gain = { auto = "Continuous", db = 3.5, limits_db = [1, 12] }
        auto = { brightness = 0.25, area = true }
        tone = { enable = true, gamma = 0.5 }
        memory.buffers = 5
        [[line]]
        pin = "Out2"
        source = "ExposureActive"
        inverted = true
        [[line]]
        pin = "Out1"
        source = "Low"
    )");
    EXPECT_STREQ(MgGiMainCtx__GetModelStr(), "M");
    EXPECT_STREQ(MgGiMainCtx__GetIdStr(), "S");
    EXPECT_EQ(MgGiMainCtx__GetActiveCamMask(), 4U);
    EXPECT_EQ(MgGiMainCtx__GetWidth(), 10);
    EXPECT_EQ(MgGiMainCtx__GetHeight(), 11);
    EXPECT_EQ(MgGiMainCtx__GetOffsetX(), 12);
    EXPECT_EQ(MgGiMainCtx__GetOffsetY(), 13);
    EXPECT_EQ(MgGiMainCtx__GetFormat(), 3);
    EXPECT_EQ(MgGiMainCtx__GetCformat(), 1);
    EXPECT_EQ(MgGiMainCtx__GetRotate(), 2);
    EXPECT_EQ(MgGiMainCtx__GetDatachunk(), 1500U);
    EXPECT_EQ(MgGiMainCtx__GetFps(), 25.5F);
    EXPECT_EQ(MgGiMainCtx__GetTsadjns(), -7);
    EXPECT_EQ(MgGiMainCtx__GetExptMan(), 250.5F);
    EXPECT_EQ(MgGiMainCtx__GetEtlimsLow(), 10.0F);
    EXPECT_EQ(MgGiMainCtx__GetEtlimsHigh(), 20.0F);
    EXPECT_EQ(MgGiMainCtx__GetGainMan(), 3.5F);
    EXPECT_EQ(MgGiMainCtx__GetGainlimsLow(), 1.0F);
    EXPECT_EQ(MgGiMainCtx__GetGainlimsHigh(), 12.0F);
    EXPECT_EQ(MgGiMainCtx__GetAtbright(), 0.25F);
    EXPECT_EQ(MgGiMainCtx__GetSweepProf(), 1);
    EXPECT_EQ(MgGiMainCtx__GetSweepEtimeMod(), 1);
    EXPECT_EQ(MgGiMainCtx__GetSweepGainMod(), 2);
    EXPECT_EQ(MgGiMainCtx__GetSweepLutMod(), 1);
    EXPECT_EQ(MgGiMainCtx__GetGamma(), 0.5F);
    EXPECT_EQ(MgGiMainCtx__GetBnum(), 5U);
    ASSERT_EQ(MgGiMainCtx__GetIoboxNum(), 2U);
    EXPECT_EQ(MgGiMainCtx__GetIoboxPin(0), 6U);
    EXPECT_EQ(MgGiMainCtx__GetIoboxSrc(0), 2U);
    EXPECT_EQ(MgGiMainCtx__GetIoboxInv(0), 2U);
    EXPECT_EQ(MgGiMainCtx__GetIoboxPin(1), 5U);
    EXPECT_EQ(MgGiMainCtx__GetIoboxSrc(1), 1U);
    EXPECT_EQ(MgGiMainCtx__GetIoboxInv(1), 1U);
    EXPECT_EQ(MgGiMainCtx__GetIoboxPin(2), 0U);
}

TEST(HostFunctions, ReturnTextsThatStayAfterAnotherConfigurationIsActive) {
    std::string const name = "a model whose name is not short enough to lie in the string itself";
    host any("camera.model = \"" + name + "\"");
    char const* const given = MgGiMainCtx__GetModelStr();
    any.configurations.stage(configuration{});
    MgGi__DoReconfig(nullptr);
    EXPECT_EQ(MgGiMainCtx__GetModelStr(), nullptr);
    EXPECT_EQ(given, name);
}

TEST(HostFunctions, ReturnTheLutWithItsSizeOnATwelveBitScale) {
    host any;
    auto next = any.configurations.active();
    next.tone.lut = interned_lut(lookup_table(512, 7));
    any.configurations.stage(next);
    MgGi__DoReconfig(nullptr);
    EXPECT_EQ(MgGiMainCtx__GetLutArrCount(), 512);
    EXPECT_EQ(MgGiMainCtx__GetLutBitSize(), 12);
    EXPECT_EQ(MgGiMainCtx__GetLutDataU16(), next.tone.lut->data());
}

TEST(HostFunctions, EndARotation) {
    host const any;
    EXPECT_NE(MgGiMainCtx__GetRotate(), 2);
    EXPECT_NE(MgGiMainCtx__GetRotate(), 0) << "0 would leave the rotation as it is";
}

TEST(HostFunctions, RequestOneFrameMoreThanConfigured) {
    host const any("", 10);
    EXPECT_EQ(MgGiMainCtx__GetFnum(), 11U);
}

TEST(HostFunctions, ReturnTheFormatOfThePluginUntilItsRunEnds) {
    setenv("FAKE_PLUGIN_SCRIPT", "exit 0", 1);
    host any("image.format = \"Mono12\"");
    MgGiMainCtx__SetFormat(1);
    EXPECT_EQ(MgGiMainCtx__GetFormat(), 1);
    any.context.run();
    EXPECT_EQ(MgGiMainCtx__GetFormat(), 3);
}

TEST(HostFunctions, ReturnToTheConfiguredFormatWith8Bits) {
    host const any("image.format = \"BayerRG8\"");
    MgGiMainCtx__SetFormat(2);
    EXPECT_EQ(MgGiMainCtx__GetFormat(), 2);
    MgGiMainCtx__SetFormat(1);
    EXPECT_EQ(MgGiMainCtx__GetFormat(), 9);
}

TEST(HostFunctions, ReturnNoGammaWhileALutIsConfigured) {
    host any("tone = { enable = true, gamma = 0.5 }");
    EXPECT_EQ(MgGiMainCtx__GetGamma(), 0.5F);
    auto next = any.configurations.active();
    next.tone.lut = interned_lut(lookup_table(256, 7));
    any.configurations.stage(next);
    MgGi__DoReconfig(nullptr);
    EXPECT_EQ(MgGiMainCtx__GetGamma(), -1.0F);
}

TEST(HostFunctions, RefuseA12BitRequestOnceTheCameraHasRefusedTheFormat) {
    host any;
    MgGiMainCtx__SetFormat(2);
    MgSc__SetParamVal(4, "MONO8T", 8U);
    MgGiMainCtx__SetFormat(1);
    EXPECT_TRUE(any.context.refuses_12_bits());
    any.latch.raise(signal_code::user_1);
    any.latch.raise(signal_code::user_2);
    EXPECT_EQ(MgUtl__CheckSignal(), 3);
    MgGi__HaltStop(64, 48, 0.0F);
    EXPECT_EQ(MgUtl__CheckSignal(), 0) << "user signal 2 is refused";
    any.configurations.stage(any.configurations.active());
    MgGi__DoReconfig(nullptr);
    any.latch.raise(signal_code::user_2);
    EXPECT_EQ(MgUtl__CheckSignal(), 4);
}

TEST(HostFunctions, RequestAnotherPassUntilALutIsLeft) {
    host any("tone.enable = true");
    auto const number = any.configurations.stage_change(configuration_store::way::live_update, [](configuration& next) {
        next.tone.lut_file = tone_configuration::no_lut;
    });
    auto const confirmed = [&] {
        return any.context.changes().wait_for(number, std::chrono::duration<double>(0)).values.has_value();
    };
    EXPECT_NE(MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr), 0);
    auto const pass = [] {
        MgGiMainCtx__GetSweepLutMod();
        bool const has_lut = MgGiMainCtx__GetLutDataU16() != nullptr;
        if (has_lut) {
            MgGiMainCtx__GetLutArrCount();
            MgGiMainCtx__GetLutBitSize();
        }
        return has_lut;
    };
    EXPECT_TRUE(pass()) << "the plug-in switches off only a LUT that it has loaded";
    MgGi__HaltStop(64, 48, 0.0F);
    MgUtl__CheckSignal();
    EXPECT_FALSE(confirmed());
    EXPECT_NE(MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_FALSE(pass());
    MgGi__HaltStop(64, 48, 0.0F);
    MgUtl__CheckSignal();
    EXPECT_TRUE(confirmed());
    EXPECT_EQ(MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(HostFunctions, ShowACalculatedLutOnlyIfThePluginLoadsIt) {
    host any("image.format = \"Mono12\"");
    std::vector<std::uint32_t> const cumulative(4096, 1);
    std::vector<std::uint16_t> lut(4096);
    any.context.last_histogram = {.cumulative = cumulative.data(), .bits = 12};
    EXPECT_EQ(MgGi__GetLutDynam(12, cumulative.data(), 12, lut.data()), 0);
    EXPECT_EQ(any.context.tone().current().what, tone_curve::kind::none) << "not in a 12-bit format";
    MgGiMainCtx__SetFormat(2);
    EXPECT_EQ(MgGi__GetLutDynam(12, cumulative.data(), 12, lut.data()), 0);
    EXPECT_EQ(any.context.tone().current().what, tone_curve::kind::calculated) << "after the switch back";
}

TEST(HostFunctions, ForgetACalculatedLutOnlyIfTheCameraWasLost) {
    for (auto const& [script, lost] : {std::pair("exit -2", false), std::pair("exit -10", true)}) {
        setenv("FAKE_PLUGIN_SCRIPT", script, 1);
        host any;
        any.context.tone().calculated({}, 12);
        any.context.run();
        EXPECT_EQ(any.context.tone().current().what, tone_curve::kind::calculated) << script;
        any.context.run();
        EXPECT_EQ(any.context.tone().current().what == tone_curve::kind::none, lost) << script;
    }
}

TEST(HostFunctions, CompareWithTheActiveConfiguration) {
    host any("timing.frame_rate_hz = 100");
    auto const requested = [&] { return any.context.delivery().values()[delivery_check::frame_rate].requested; };
    setenv("FAKE_PLUGIN_SCRIPT", "exit 0", 1);
    any.context.run();
    EXPECT_EQ(requested(), 100.0);
    auto next = any.configurations.active();
    next.timing.frame_rate_hz = 50.0F;
    any.configurations.stage(next);
    MgGi__DoReconfig(nullptr);
    EXPECT_EQ(requested(), 50.0);
}

TEST(HostFunctions, RefuseAReloadIfNothingIsStaged) {
    host const any;
    std::uint32_t exit_requested = 7;
    EXPECT_NE(MgGi__DoReconfig(&exit_requested), 0);
    EXPECT_EQ(exit_requested, 0U);
    EXPECT_NE(MgGi__DoReconfig(nullptr), 0);
}

TEST(HostFunctions, RequestTheEndOfTheRunIfAReloadNeedsARestart) {
    host any;
    auto next = any.configurations.active();
    next.image.format = format_code::Mono12;
    any.configurations.stage(next);
    any.latch.raise(signal_code::reload);
    EXPECT_EQ(MgUtl__CheckSignal(), 2);
    std::uint32_t exit_requested = 0;
    EXPECT_EQ(MgGi__DoReconfig(&exit_requested), 0);
    EXPECT_EQ(exit_requested, 1U);
    EXPECT_EQ(MgUtl__CheckSignal(), 0);
}

TEST(HostFunctions, ReportALiveUpdateOnce) {
    host any;
    EXPECT_EQ(MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr), 0);
    any.configurations.stage_change(configuration_store::way::live_update,
                                    [](configuration& next) { next.gain.db = 1.0F; });
    EXPECT_NE(MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(MgGiMainCtx__GetGainMan(), 1.0F);
    EXPECT_EQ(MgGi__CheckDynConfig(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(HostFunctions, ChangeTheLogOfThePluginWithAReload) {
    host any;
    auto next = any.configurations.active();
    next.log.level = 4;
    any.configurations.stage(next);
    std::uint32_t exit_requested = 0;
    EXPECT_EQ(MgGi__DoReconfig(&exit_requested), 0);
    testing::internal::CaptureStdout();
    setenv("FAKE_PLUGIN_SCRIPT", "exit 0", 1);
    any.context.run();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("level 4 mode 1"), std::string::npos);
}

TEST(HostFunctions, ExportAFrameWithItsValues) {
    host any;
    std::uint32_t const width = 4;
    std::uint32_t const height = 2;
    std::uint32_t const stride = 4;
    MgSc__SetParamVal(4, "BayerRG8T", std::uint32_t{8});
    MgSc__SetParamVal(8, &stride);
    MgSc__SetParamVal(1, &width);
    MgSc__SetParamVal(2, &height);
    MgGiMem__Init(8, 0, 8);
    MgGiMem__SetActFsize(8);
    MgGiMainCtx__SetBnum(2);
    EXPECT_NE(MgGiMem__IsFactoryUsed(), 0);
    MgGi__CommTriggerAll(999, 0, 0);
    MgGi__HaltStop(width, height, 30.0F);
    float const gain = 1.25F;
    float const exposure = 99.0F;
    std::uint64_t const ticks = 123'456'789'012;
    std::uint32_t const counter = 42;
    std::uint64_t const timestamp = 1'000;
    MgSc__SetParamVal(6, &gain);
    MgSc__SetParamVal(7, &exposure);
    MgSc__SetParamVal(9, &ticks);
    MgSc__SetParamVal(10, &counter);
    MgSc__SetParamVal(77, nullptr);
    EXPECT_EQ(MgGiMemInst__Trigger(0, 0, timestamp, MgGiMem__GetBufPtr(0), 0), 0);
    MgSc__SetParamVal(12, &timestamp);
    MgSc__ProcExport(timestamp);
    any.exporter.finish();
    ASSERT_EQ(any.sink.frames().size(), 1U);
    auto const& record = any.sink.frames()[0].record;
    EXPECT_EQ(record.timestamp_us, timestamp);
    EXPECT_EQ(record.announced_us, 999U);
    EXPECT_EQ(record.gain_db, gain);
    EXPECT_EQ(record.exposure_us, exposure);
    EXPECT_EQ(record.ticks, ticks);
    EXPECT_EQ(record.counter, counter);
    EXPECT_EQ(record.temperature_c, 30.0F);
    EXPECT_EQ(record.format->codec, "BayerRG8T");
}

TEST(HostFunctions, SubtractTimesWithNonNegativeMicroseconds) {
    timeval const early{.tv_sec = 10, .tv_usec = 900'000};
    timeval const late{.tv_sec = 12, .tv_usec = 100'000};
    EXPECT_EQ(MgUtl__TimeValDiff(&late, &early).tv_sec, 1);
    EXPECT_EQ(MgUtl__TimeValDiff(&late, &early).tv_usec, 200'000);
    EXPECT_EQ(MgUtl__TimeValDiff(&early, &late).tv_sec, -2);
    EXPECT_EQ(MgUtl__TimeValDiff(&early, &late).tv_usec, 800'000);
}

// ---- Histogram-equalised LUT --------------------------------------------------------------------

TEST(HostFunctions, CalculateALutFromAnImage) {
    host const any;
    MgSc__SetParamVal(4, "MONO8T", std::uint32_t{8});
    std::array<std::uint8_t, 256> image{};
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<std::uint8_t>(i);
    }
    std::array<std::uint32_t, 256> cdf{};
    std::array<std::uint16_t, 256> lut{};
    EXPECT_EQ(MgGi__CalcLutDynam(image.data(), 16, 16, 16, 8, cdf.data()), 0);
    EXPECT_EQ(cdf[0], 1U);
    EXPECT_EQ(cdf[255], 256U);
    EXPECT_EQ(MgGi__GetLutDynam(8, cdf.data(), 12, lut.data()), 0);
    EXPECT_EQ(lut[0], 0);
    EXPECT_EQ(lut[255], 4095);
}

TEST(HostFunctions, RefuseAnImageWithAnUnknownLayout) {
    host const any;
    std::array<std::uint8_t, 256> image{};
    std::array<std::uint32_t, 256> cdf{};
    EXPECT_NE(MgGi__CalcLutDynam(image.data(), 16, 16, 16, 8, cdf.data()), 0) << "no format is known";
    MgSc__SetParamVal(4, "MONO8T", std::uint32_t{8});
    EXPECT_NE(MgGi__CalcLutDynam(nullptr, 16, 16, 16, 8, cdf.data()), 0);
    EXPECT_NE(MgGi__CalcLutDynam(image.data(), 16, 16, 16, 8, nullptr), 0);
    EXPECT_NE(MgGi__CalcLutDynam(image.data(), 16, 16, 16, 12, cdf.data()), 0);
    EXPECT_NE(MgGi__CalcLutDynam(image.data(), 16, 16, 15, 8, cdf.data()), 0);
    std::array<std::uint16_t, 256> lut{};
    EXPECT_NE(MgGi__GetLutDynam(8, cdf.data(), 12, lut.data()), 0) << "nothing was counted";
}
