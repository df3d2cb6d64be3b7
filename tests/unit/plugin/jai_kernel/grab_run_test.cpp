// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;

struct grab_run : plugin_test::kernel_fixture {
    int run() { return kernel.ProcOnce(&device(), info(), &factory); }
    /// \return number of loop runs
    static size_t loops() { return calls({"MgGi__ResetTermSigProc"}).size(); }
    void a_frame_at_each_fetch() {
        cam().endless = [](uint32_t n) { return scripted::block{.timestamp = n * 1'000'000}; };
    }
};

TEST_F(grab_run, AnnouncesTheDeviceAndStartsWithACleanState) {
    a_frame_at_each_fetch();
    host().fnum = 1;
    kernel.dynLutStep = dyn_lut_step::compute;
    kernel.dynLutMode = dyn_lut_mode::back_to_8_bits;
    kernel.chunkMask = 0x30;
    cam().features.erase("ChunkModeActive");
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "Using device Model:GO-5100M-PGE Serial:U700001"));
    EXPECT_EQ(loops(), 1u);
    EXPECT_TRUE(logged(level::info, "", tag, "Restore some changed camera values (0)"));
}

TEST_F(grab_run, ALoopThatEndsWith0InDynamicLutMode6Or7IsRepeatedWithoutANewSearch) {
    a_frame_at_each_fetch();
    // User signal 2 switches to 12 bits; the cycle switches back by itself; then a stop.
    uint32_t polls = 0;
    host().next_signal = [&] { return ++polls == 2 ? 4 : polls == 12 ? 1 : 0; };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(loops(), 3u) << "in 8 bits, in 12 bits, and back in 8 bits";
    EXPECT_EQ(calls({"Find"}).size(), 0u);
    EXPECT_EQ(calls({"PvDevice::CreateAndConnect"}).size(), 0u);
}

TEST_F(grab_run, ALoopThatEndsWithMinus10IsNotRepeatedInAnyDynamicLutMode) {
    cam().endless = [this](uint32_t n) {
        if (n == 3) {
            kernel.dynLutMode = dyn_lut_mode::back_to_8_bits;
            throw std::runtime_error("x");
        }
        return scripted::block{.timestamp = n * 1'000'000};
    };
    EXPECT_EQ(run(), -10);
    EXPECT_EQ(loops(), 1u);
}

TEST_F(grab_run, AFailedConfigurationIsNeverRepeated) {
    cam()["PixelFormat"].refuse_write();
    EXPECT_EQ(run(), -2);
}

TEST_F(grab_run, AConfigurationThatFailsAfterTheSwitchOfDepthIsNotRepeated) {
    a_frame_at_each_fetch();
    host().signals = {0, 4};
    cam()["PixelFormat"].before_write = [selections = 0](auto& feature) mutable {
        if (++selections > 20) {
            throw std::runtime_error("the configuration is repeated without an end");
        }
        feature.write = selections == 1 ? scripted::ok : scripted::refused;
    };
    EXPECT_EQ(run(), -2);
    EXPECT_EQ(loops(), 1u);
}

TEST_F(grab_run, AHostThatKeepsTheRequestedFormatIsBackIn8BitsAfterTheTrip) {
    a_frame_at_each_fetch();
    uint32_t polls = 0;
    host().next_signal = [&] { return ++polls == 2 ? 4 : polls == 12 ? 1 : 0; };
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(calls({"MgGiMainCtx__SetFormat"}),
                testing::ElementsAre("MgGiMainCtx__SetFormat(2)", "MgGiMainCtx__SetFormat(1)"));
    EXPECT_EQ(host().format, 1);
}

TEST_F(grab_run, ACameraThatRefusesMono12PackedIsMeasuredIn8BitsAndComesBack) {
    std::erase_if(cam()["PixelFormat"].entries, [](auto const& entry) { return entry.first == "Mono12Packed"; });
    a_frame_at_each_fetch();
    uint32_t polls = 0;
    host().next_signal = [&] { return ++polls == 2 ? 4 : polls == 12 ? 1 : 0; };
    host().get_lut = [](uint16_t* lut, uint32_t bits) { std::fill(lut, lut + (1U << bits), uint16_t{77}); };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(loops(), 3u);
    EXPECT_THAT(calls({"MgGi__CalcLutDynam", "MgGi__GetLutDynam", "MgGiMainCtx__SetFormat"}),
                testing::ElementsAre("MgGiMainCtx__SetFormat(2)", "MgGi__CalcLutDynam(frame, 640, 480, 640, 8)",
                                     "MgGi__GetLutDynam(8, 12)", "MgGiMainCtx__SetFormat(1)"));
    EXPECT_EQ(calls({"PvGenInteger::SetValue(LUTValue, 77)"}).size(), 256u);
    EXPECT_EQ(kernel.formatCode, 1);
}

TEST_F(grab_run, ATickFrequencyThatCantBeReadAfterTheSwitchOfDepthIsTheKnownOne) {
    a_frame_at_each_fetch();
    host().tsadjns = 1;
    host().signals = {0, 4, 0, 1};
    cam()["GevTimestampTickFrequency"].before_read = [reads = 0](auto& feature) mutable {
        feature.read = ++reads == 1 ? scripted::ok : scripted::refused;
    };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(loops(), 2u);
    EXPECT_EQ(kernel.tickFrequency, 1'000'000'000u);
    EXPECT_FALSE(mentioned("timestamp frequency is 0"));
}

TEST_F(grab_run, StartsWithoutTheDynamicLutOfAnEarlierRun) {
    a_frame_at_each_fetch();
    kernel.dynLutStep = dyn_lut_step::armed;
    kernel.dynLutMode = dyn_lut_mode::in_12_bits;
    uint32_t polls = 0;
    host().next_signal = [&] {
        if (++polls == 1) {
            EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
            EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
        }
        return polls == 3 ? 1 : 0;
    };
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(loops(), 1u);
}

TEST_F(grab_run, ReleasesTheDynamicLutsBuffers) {
    a_frame_at_each_fetch();
    uint32_t polls = 0;
    host().next_signal = [&] { return ++polls == 2 ? 3 : polls == 8 ? 1 : 0; };
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(logged(level::info, "", tag, "allocated LUT array for 8 bits pixel"));
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
}

}  // namespace
