// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

struct pixel_format : plugin_test::kernel_fixture {
    unsigned char code = 0, container = 99, significant = 99;
    PvPixelType type = static_cast<PvPixelType>(99);
    char const* name = "untouched";

    int select(unsigned char wanted, bool on_camera = true) {
        code = wanted;
        auto& connected = device();
        return kernel.ProcSetPixelFormat(on_camera ? &connected : nullptr, connected.getDevParams(), &code, &container,
                                         &significant, &type, &name);
    }
    static void without(std::vector<PvPixelType> const& formats) {
        std::erase_if(cam()["PixelFormat"].entries, [&](auto const& entry) {
            return std::find(formats.begin(), formats.end(), entry.second) != formats.end();
        });
    }
    void expect_untouched() const {
        EXPECT_EQ(container, 99);
        EXPECT_EQ(significant, 99);
        EXPECT_EQ(type, 99u);
        EXPECT_STREQ(name, "untouched");
    }
};

TEST_F(pixel_format, Code3OnADeviceWithoutMono12FallsBackToMono8) {
    without({PvPixelMono12});
    EXPECT_EQ(select(3), 0);
    EXPECT_THAT(writes(),
                ElementsAre("SetEnumValue(PixelFormat, 0x01100005)", "SetEnumValue(PixelFormat, 0x01080001)"));
    EXPECT_EQ(code, 1);
    EXPECT_EQ(container, 8);
    EXPECT_EQ(significant, 8);
    EXPECT_EQ(type, PvPixelMono8);
    EXPECT_STREQ(name, "MONO8T");
    EXPECT_THAT(calls({"MgSc__SetParamVal"}), ElementsAre("MgSc__SetParamVal(4, MONO8T, 8)"));
    EXPECT_TRUE(logged(level::warning, "ProcSetPixelFormat", tag,
                       "The pixel format 'MONO12T' is not supported, forced to 'MONO8T'"));
    EXPECT_EQ(count_in_system_log(level::warning, "ProcSetPixelFormat",
                                  "The pixel format 'MONO12T' is not supported, forced to 'MONO8T'\n"),
              1u);
}

TEST_F(pixel_format, Code2OnADeviceWithoutMono12PackedFallsBackToMono8AlsoWhenWarningsAreOff) {
    without({PvPixelMono12Packed});
    gMgLogLevelLib = 1;
    EXPECT_EQ(select(2), 0);
    EXPECT_EQ(code, 1);
    EXPECT_THAT(writes(),
                ElementsAre("SetEnumValue(PixelFormat, 0x010C0006)", "SetEnumValue(PixelFormat, 0x01080001)"));
    EXPECT_FALSE(mentioned("forced"));
    gMgLogLevelLib = 2;
    EXPECT_EQ(select(2), 0);
    EXPECT_TRUE(logged(level::warning, "ProcSetPixelFormat", tag,
                       "The pixel format 'MONO12PT' is not supported, forced to 'MONO8T'"));
}

TEST_F(pixel_format, AFallbackThatIsRefusedTooIsMinus1) {
    without({PvPixelMono12, PvPixelMono8});
    EXPECT_EQ(select(3), -1);
    EXPECT_EQ(code, 1);
    expect_untouched();
    EXPECT_TRUE(logged(level::warning, "ProcSetPixelFormat", tag, "The pixel format 'MONO8T' is not supported"));
}

TEST_F(pixel_format, Code2Yields12And12AndCode3Yields16And12) {
    EXPECT_EQ(select(2), 0);
    EXPECT_EQ(container, 12);
    EXPECT_EQ(significant, 12);
    EXPECT_EQ(type, PvPixelMono12Packed);
    EXPECT_STREQ(name, "MONO12PT");
    EXPECT_EQ(select(3), 0);
    EXPECT_EQ(container, 16);
    EXPECT_EQ(significant, 12);
    EXPECT_EQ(type, PvPixelMono12);
    EXPECT_THAT(calls({"MgSc__SetParamVal"}),
                ElementsAre("MgSc__SetParamVal(4, MONO12PT, 12)", "MgSc__SetParamVal(4, MONO12T, 12)"));
}

TEST_F(pixel_format, Code0And4And10YieldMinus1WithNoMessageAndLeaveAllOutputsUntouched) {
    for (auto const unknown : std::vector<unsigned char>{0, 4, 10, 255}) {
        EXPECT_EQ(select(unknown), -1);
        EXPECT_EQ(code, unknown);
        expect_untouched();
    }
    EXPECT_THAT(system_lines(), IsEmpty());
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(pixel_format, WithANullCameraCode9FillsTheOutputsAndCallsNothing) {
    EXPECT_EQ(select(9, false), 0);
    EXPECT_STREQ(name, "BayerRG8T");
    EXPECT_EQ(type, 0x01080009u);
    EXPECT_EQ(container, 8);
    EXPECT_EQ(significant, 8);
    EXPECT_TRUE(logged(level::info, "", tag, "BAYER_TILE_MAPPING value: meta codec chosen 'BayerRG8T'"));
    EXPECT_TRUE(logged(level::info, "", tag, "Use pixel format: 'Bayer8T'"));
    EXPECT_EQ(system_lines().size(), 2u);
    EXPECT_THAT(support::journal().calls(), IsEmpty());
}

TEST_F(pixel_format, WithACameraASelectionOfCode3LogsTheConfigureLineBeforeTheUseLine) {
    EXPECT_EQ(select(3), 0);
    EXPECT_THAT(system_lines(),
                ElementsAre("[i] Configure pixel format: 0x01100005\n", "[i] Use pixel format: 'MONO12T'\n"));
    EXPECT_TRUE(logged(level::info, "", tag, "Configure pixel format: 0x01100005"));
    EXPECT_TRUE(logged(level::info, "", tag, "Use pixel format: 'MONO12T'"));
}

TEST_F(pixel_format, Code9WithACameraPublishesItsNameAndBitsAndLogsItsLinesInOrder) {
    EXPECT_EQ(select(9), 0);
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(PixelFormat, 0x01080009)"));
    EXPECT_THAT(calls({"MgSc__SetParamVal"}), ElementsAre("MgSc__SetParamVal(4, BayerRG8T, 8)"));
    EXPECT_THAT(system_lines(),
                ElementsAre("[i] BAYER_TILE_MAPPING value: meta codec chosen 'BayerRG8T'\n",
                            "[i] Configure pixel format: 0x01080009\n", "[i] Use pixel format: 'Bayer8T'\n"));
    EXPECT_EQ(container, 8);
    EXPECT_EQ(significant, 8);
}

TEST_F(pixel_format, ARefusedMono8IsMinus1) {
    without({PvPixelMono8});
    EXPECT_EQ(select(1), -1);
    expect_untouched();
    EXPECT_TRUE(logged(level::warning, "ProcSetPixelFormat", tag, "The pixel format 'MONO8T' is not supported"));
    EXPECT_THAT(calls({"MgSc"}), IsEmpty());
}

TEST_F(pixel_format, ARefusedBayerIsMinus1WithNoFallback) {
    without({PvPixelBayerRG8});
    EXPECT_EQ(select(9), -1);
    EXPECT_EQ(code, 9);
    EXPECT_TRUE(logged(level::warning, "ProcSetPixelFormat", tag, "The pixel format 'Bayer8T' is not supported"));
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(PixelFormat, 0x01080009)"));
}

TEST_F(pixel_format, OutputsMayBeNull) {
    code = 1;
    EXPECT_EQ(kernel.ProcSetPixelFormat(nullptr, nullptr, &code, nullptr, nullptr, nullptr, nullptr), 0);
}

TEST_F(pixel_format, WithoutFeaturesTheFormatIsRefused) {
    code = 1;
    EXPECT_EQ(kernel.ProcSetPixelFormat(&device(), nullptr, &code, nullptr, nullptr, nullptr, nullptr), -1);
}

TEST_F(pixel_format, ASelectionClearsTheTriggerFlag) {
    kernel.triggerFlag = 7;
    select(1);
    EXPECT_EQ(kernel.triggerFlag, 0);
    kernel.triggerFlag = 7;
    select(1, false);
    EXPECT_EQ(kernel.triggerFlag, 7);
}

}  // namespace
