// SPDX-License-Identifier: MIT
#include <algorithm>

#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

struct manual_lut : plugin_test::kernel_fixture {
    manual_lut() { kernel.lutBits = 8; }

    /// \return the LUT that the camera received, by index, one channel after the other
    static std::vector<int64_t> written() {
        std::vector<int64_t> values;
        for (auto const& call : calls({"PvGenInteger::SetValue(LUTValue"})) {
            values.push_back(std::stoll(call.substr(call.find(", ") + 2)));
        }
        return values;
    }
    static void host_lut(size_t count, uint16_t bits, std::function<uint16_t(size_t)> value) {
        host().lut.resize(count);
        for (size_t i = 0; i < count; ++i) {
            host().lut[i] = value(i);
        }
        host().lut_bits = bits;
    }
    int load(bool restart = false) { return kernel.setupCamLutManual(&device(), false, restart); }
    int load_dynamic(uint32_t entries, dyn_lut_mode mode, std::function<uint16_t(size_t)> value, bool restart = false) {
        kernel.dynLut.reset(static_cast<uint16_t*>(std::malloc(entries * sizeof(uint16_t))));
        for (size_t i = 0; i < entries; ++i) {
            kernel.dynLut[i] = value(i);
        }
        kernel.dynLutEntries = entries;
        kernel.dynLutMode = mode;
        kernel.dynLutStep = dyn_lut_step::apply;
        return kernel.setupCamLutManual(&device(), true, restart);
    }
    static std::vector<std::string> capture() { return calls({"Execute"}); }
    bool warning(std::string const& text) { return logged(level::warning, "setupCamLutManual", tag, text); }
    bool info_line(std::string const& text) { return logged(level::info, "", tag, text); }
    void mode(std::string const& entry) { cam()["JAILUTMode"] = scripted::enumeration(entry, {"Off", "LUT", "Gamma"}); }
};

// ---- The host's LUT -----------------------------------------------------------------------------

TEST_F(manual_lut, AHostArrayOf4096EntriesWithBitSize12IsThinnedBy16AndCopiedUnshifted) {
    host_lut(4096, 12, [](size_t i) { return static_cast<uint16_t>(i); });
    EXPECT_EQ(load(), 1);
    auto const table = written();
    ASSERT_EQ(table.size(), 256u);
    for (size_t k = 0; k < 256; ++k) {
        EXPECT_EQ(table[k], static_cast<int64_t>(16 * k));
    }
    char pointer[32];
    std::snprintf(pointer, sizeof pointer, "%p", static_cast<void*>(host().lut.data()));
    EXPECT_TRUE(info_line(std::string("LUT settings handler entry LUT arr ") + pointer));
    EXPECT_TRUE(info_line("  current LUT state: ena 0, entries 256"));
    EXPECT_TRUE(info_line("  check LUT value[10] = 10"));
    EXPECT_TRUE(mentioned("[i] LUT handler exit (nValuesDev = 256, nCfgVals = 256, time = "));
    EXPECT_EQ(cam()["JAILUTMode"].entry_name(), "LUT");
}

TEST_F(manual_lut, AHostArrayOf1024EntriesWithBitSize16IsScaledTo12BitsWithRounding) {
    host_lut(1024, 16, [](size_t i) {
        return static_cast<uint16_t>(i == 0 ? 0xFFFF : i == 4 ? 7 : i == 8 ? 8 : 0x1000);
    });
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(written()[0], 4096) << "0xFFFF rounds up beyond 12 bits and is written as is";
    EXPECT_EQ(written()[1], 0);
    EXPECT_EQ(written()[2], 1);
    EXPECT_EQ(written()[3], 256);
}

TEST_F(manual_lut, AHostArrayOf256EntriesWithBitSize8IsShiftedLeftBy4) {
    host_lut(256, 8, [](size_t i) { return static_cast<uint16_t>(255 - i); });
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(written()[0], 255 << 4);
    EXPECT_EQ(written()[255], 0);
}

TEST_F(manual_lut, ACountThatIsNotAMultipleOf256IsThinnedByTheIntegerQuotient) {
    host_lut(1000, 12, [](size_t i) { return static_cast<uint16_t>(i); });
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(written()[255], 255 * 3);
}

TEST_F(manual_lut, AHugeBitSizeMakesAllValues0) {
    host_lut(256, 40'000, [](size_t) { return uint16_t{0xFFFF}; });
    EXPECT_EQ(load(), 1);
    EXPECT_THAT(written(), testing::Each(0));
    host_lut(256, 28, [](size_t) { return uint16_t{0xFFFF}; });
    kernel.lastLutData = nullptr;
    support::journal().clear();
    EXPECT_EQ(load(), 1);
    EXPECT_THAT(written(), testing::Each(1)) << "16 bits too many round 0xFFFF to 1";
}

TEST_F(manual_lut, ABitSizeOf0IsShiftedBy12) {
    host_lut(256, 0, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 1);
    EXPECT_THAT(written(), testing::Each(4096));
}

TEST_F(manual_lut, AHostArrayOfFewerThan256EntriesIsRefusedBeforeAnyEntryIsRead) {
    host_lut(5, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 0);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(warning("LUT of 5 entries is refused, the camera needs at least 256"));
    host_lut(255, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 0);
    EXPECT_FALSE(mentioned("check LUT value"));
}

TEST_F(manual_lut, TheSameArrayIsNotLoadedAgain) {
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 1);
    support::journal().clear();
    EXPECT_EQ(load(), 0);
    EXPECT_THAT(support::journal().calls(), IsEmpty());
    EXPECT_TRUE(info_line("  LUT configuration is skipped: no data change is detected"));
}

TEST_F(manual_lut, HostDataWhileADynamicCycleIsArmedIsSkipped) {
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    kernel.dynLutStep = dyn_lut_step::armed;
    EXPECT_EQ(load(), 0);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(info_line("  LUT configuration from file is skipped (dynamic mode is active)"));
}

TEST_F(manual_lut, ADeviceWithoutALutIsWarnedAbout) {
    cam().features.erase("JAILUTMode");
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 0);
    EXPECT_TRUE(warning("LUT is not supported for this device"));
}

TEST_F(manual_lut, A12BitMonochromeFormatHasNoLut) {
    kernel.lutBits = 12;
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 0);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_TRUE(warning("LUT is not supported for 12 bit pixel format"));
}

TEST_F(manual_lut, AColourCameraGetsTheSameLutOnAllThreeChannels) {
    kernel.isColor = 1;
    kernel.lutBits = 12;
    host_lut(256, 12, [](size_t i) { return static_cast<uint16_t>(i); });
    EXPECT_EQ(load(), 1);
    auto const table = written();
    ASSERT_EQ(table.size(), 768u);
    EXPECT_TRUE(std::equal(table.begin(), table.begin() + 256, table.begin() + 512));
    EXPECT_THAT(calls({"PvGenEnum::SetValue(LUTSelector"}),
                ElementsAre("PvGenEnum::SetValue(LUTSelector, R)", "PvGenEnum::SetValue(LUTSelector, G)",
                            "PvGenEnum::SetValue(LUTSelector, B)"));
}

TEST_F(manual_lut, ARefusedChannelIsIgnored) {
    kernel.isColor = 1;
    cam()["LUTSelector"].refuse_write();
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(written().size(), 768u);
}

TEST_F(manual_lut, CaptureIsPausedOnRequest) {
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(true), 1);
    auto const order = calls({"Execute", "SetEnumValue(JAILUTMode"});
    EXPECT_THAT(order,
                ElementsAre("Execute(AcquisitionStop)", "SetEnumValue(JAILUTMode, LUT)", "Execute(AcquisitionStart)"));
    EXPECT_EQ(support::journal().calls().back(), "Execute(AcquisitionStart)");
}

TEST_F(manual_lut, CaptureIsNotPausedOtherwise) {
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(false), 1);
    EXPECT_THAT(capture(), IsEmpty());
}

TEST_F(manual_lut, AModeThatCantBeSwitchedOnIsOnlyAWarning) {
    cam()["JAILUTMode"].refuse_write();
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(written().size(), 256u);
    EXPECT_TRUE(warning("can't enable LUT: rc = -4"));
}

TEST_F(manual_lut, ARefusedValueIsMinus2RestartsCaptureAndIsNotTriedAgain) {
    host_lut(256, 12, [](size_t i) { return static_cast<uint16_t>(i); });
    cam()["LUTIndex"].before_write = [n = 0](auto& feature) mutable {
        feature.write = ++n > 100 ? scripted::refused : scripted::ok;
    };
    EXPECT_EQ(load(true), -2);
    EXPECT_EQ(written().size(), 100u);
    EXPECT_THAT(capture(), ElementsAre("Execute(AcquisitionStop)", "Execute(AcquisitionStart)"));
    EXPECT_FALSE(mentioned("LUT handler exit"));
    EXPECT_EQ(load(true), 0) << "the same array counts as loaded";
}

TEST_F(manual_lut, ARefusedValueWithoutAPauseStartsNothing) {
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    cam()["LUTValue"].refuse_write();
    EXPECT_EQ(load(false), -2);
    EXPECT_THAT(capture(), IsEmpty());
}

TEST_F(manual_lut, LogsItsDuration) {
    recording::clock().steered = true;
    recording::clock().microseconds = 4'294'967'290;  // the difference is computed in 32 bits
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    cam()["JAILUTMode"].before_write = [](auto&) { recording::clock().microseconds += 1'500'000; };
    EXPECT_EQ(load(), 1);
    EXPECT_TRUE(info_line("LUT handler exit (nValuesDev = 256, nCfgVals = 256, time = 1500000us)"));
}

// ---- No LUT -------------------------------------------------------------------------------------

TEST_F(manual_lut, NullHostDataSwitchesAnActiveLutOff) {
    mode("LUT");
    uint16_t const earlier = 0;
    kernel.lastLutData = &earlier;
    EXPECT_EQ(load(true), 1);
    EXPECT_THAT(calls({"Execute", "SetEnumValue(JAILUTMode"}),
                ElementsAre("Execute(AcquisitionStop)", "SetEnumValue(JAILUTMode, Off)", "Execute(AcquisitionStart)"));
    EXPECT_EQ(kernel.lastLutData, nullptr);
    EXPECT_TRUE(info_line("  current LUT state: ena 1, entries 256"));
    EXPECT_TRUE(info_line("  LUT is disabled due to configuration"));
    EXPECT_TRUE(info_line("LUT settings handler entry LUT arr (nil)"));
}

TEST_F(manual_lut, NullHostDataWithTheCameraInGammaModeReturns0WritesNothingAndClearsTheLastArray) {
    mode("Gamma");
    uint16_t const earlier = 0;
    kernel.lastLutData = &earlier;
    EXPECT_EQ(load(true), 0);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_EQ(kernel.lastLutData, nullptr);
}

TEST_F(manual_lut, ALutThatCantBeSwitchedOffIsMinus1) {
    mode("LUT");
    cam()["JAILUTMode"].refuse_write();
    uint16_t const earlier = 0;
    kernel.lastLutData = &earlier;
    EXPECT_EQ(load(false), -1);
    EXPECT_EQ(kernel.lastLutData, &earlier);
    EXPECT_TRUE(warning("can't disable LUT follow configuration: rc=-4"));
    EXPECT_THAT(capture(), IsEmpty());
}

// ---- The dynamic LUT ----------------------------------------------------------------------------

TEST_F(manual_lut, ADynamicLutMeasuredIn12BitsIsThinnedBy16) {
    EXPECT_EQ(load_dynamic(4096, dyn_lut_mode::back_to_8_bits, [](size_t i) { return static_cast<uint16_t>(i / 2); }),
              1);
    EXPECT_EQ(written()[1], 8);
    EXPECT_EQ(written()[255], 16 * 255 / 2);
    EXPECT_TRUE(mentioned("nCfgVals = 256"));
}

TEST_F(manual_lut, ADynamicLutMeasuredIn8BitsIsCopied) {
    EXPECT_EQ(load_dynamic(256, dyn_lut_mode::native, [](size_t i) { return static_cast<uint16_t>(i * 16); }), 1);
    EXPECT_EQ(written()[1], 16);
    EXPECT_EQ(written()[255], 4080);
    EXPECT_TRUE(mentioned("nCfgVals = 0"));
    EXPECT_TRUE(info_line("  check LUT value[10] = 160"));
}

TEST_F(manual_lut, AShortDynamicLutIsNeverReadBeyondItsEnd) {
    EXPECT_EQ(load_dynamic(8, dyn_lut_mode::native, [](size_t) { return uint16_t{9}; }), 1);
    EXPECT_EQ(written()[7], 9);
    EXPECT_EQ(written()[8], 0);
    EXPECT_FALSE(mentioned("check LUT value"));
}

TEST_F(manual_lut, ADynamicLutNeitherNeedsNorChangesTheHostsArray) {
    host_lut(256, 12, [](size_t) { return uint16_t{1}; });
    kernel.lastLutData = host().lut.data();
    EXPECT_EQ(load_dynamic(256, dyn_lut_mode::native, [](size_t) { return uint16_t{2}; }), 1);
    EXPECT_EQ(kernel.lastLutData, host().lut.data());
}

}  // namespace
