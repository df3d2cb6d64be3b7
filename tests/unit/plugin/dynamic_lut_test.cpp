#include "kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

struct dynamic_lut : plugin_test::kernel_fixture {
    dynamic_lut() {
        kernel.lutBits = 8;
        kernel.cdfBits = 8;
        kernel.frameData = &pixel_;
    }
    void call(int times = 1) {
        device().sensor->initialize();
        support::journal().clear();
        for (int i = 0; i < times; ++i) {
            kernel.ProcDynamLut(&device());
        }
    }
    static std::vector<std::string> lut_calls() { return calls({"MgGi__CalcLutDynam", "MgGi__GetLutDynam"}); }
    static size_t values_written() { return calls({"PvGenInteger::SetValue(LUTValue"}).size(); }
    void give_arrays() {
        kernel.dynLut.reset(static_cast<uint16_t*>(std::calloc(256, sizeof(uint16_t))));
        kernel.dynLutEntries = 256;
        kernel.dynCdf.reset(static_cast<uint32_t*>(std::calloc(256, sizeof(uint32_t))));
    }
    bool info_line(std::string const& text) { return logged(level::info, "", tag, text); }

private:
    uint8_t pixel_ = 0;
};

TEST_F(dynamic_lut, WhileItIsIdleNothingHappens) {
    for (uint32_t const step : {0U, 6U, 7U, 9U, 0xFFFFFFFFU}) {
        kernel.dynLutStep = step;
        call(3);
        EXPECT_EQ(kernel.dynLutStep, step);
    }
    EXPECT_THAT(lut_calls(), IsEmpty());
    EXPECT_FALSE(mentioned("dynamic"));
}

TEST_F(dynamic_lut, AnArmedCycleStaysArmedAndKeepsItsArrays) {
    give_arrays();
    kernel.dynLutStep = 1;
    call(2);
    EXPECT_EQ(kernel.dynLutStep, 1u);
    EXPECT_NE(kernel.dynLut, nullptr);
}

TEST_F(dynamic_lut, AnArmedCycleIn12BitModeFreesTheArraysOfTheOtherDepth) {
    give_arrays();
    kernel.dynLutStep = 1;
    kernel.dynLutMode = 6;
    call();
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
    EXPECT_EQ(kernel.dynLutStep, 1u);
}

TEST_F(dynamic_lut, SettingTheStepTo2ByHandOnAn8BitNativeStreamWaitsTwoFramesThenComputesAndUpdatesTheCamera) {
    kernel.dynLutStep = 2;
    host().get_lut = [](uint16_t* lut, uint32_t) { std::fill(lut, lut + 256, uint16_t{77}); };
    call();
    EXPECT_EQ(kernel.dynLutStep, 3u);
    call();
    EXPECT_EQ(kernel.dynLutStep, 4u);
    EXPECT_THAT(lut_calls(), IsEmpty());
    call();
    EXPECT_EQ(kernel.dynLutStep, 0u);
    EXPECT_THAT(lut_calls(), ElementsAre("MgGi__CalcLutDynam(frame, 640, 480, 640, 8)", "MgGi__GetLutDynam(8, 12)"));
    EXPECT_EQ(values_written(), 256u);
    EXPECT_EQ(cam()["LUTValue"].integer, 77);
    EXPECT_THAT(calls({"Execute"}), ElementsAre("Execute(AcquisitionStop)", "Execute(AcquisitionStart)"));
    EXPECT_NE(kernel.dynLut, nullptr) << "kept for the next cycle";
    EXPECT_TRUE(info_line("dynamic LUT is waiting for new clear picture 2 frames yet"));
    EXPECT_TRUE(info_line("dynamic LUT is waiting for new clear picture 1 frame yet"));
    EXPECT_TRUE(info_line("allocated CDF array for 8 bits pixel"));
    EXPECT_TRUE(info_line("allocated LUT array for 8 bits pixel"));
    EXPECT_TRUE(info_line("a new LUT was dynamically calculated..."));
    EXPECT_TRUE(info_line("continue operation with new LUT (dynamically calculated)..."));
}

TEST_F(dynamic_lut, ASecondCycleAllocatesNothing) {
    kernel.dynLutStep = 4;
    call();
    recording::the_system_log().lines.clear();
    kernel.dynLutStep = 4;
    call();
    EXPECT_FALSE(mentioned("allocated"));
    EXPECT_EQ(values_written(), 256u);
}

TEST_F(dynamic_lut, WithCdfBits12AndLutBits8TheCdfHolds4096EntriesAndTheLut256) {
    kernel.cdfBits = 12;
    kernel.dynLutStep = 4;
    // Under the address sanitizer a smaller array would not survive this.
    host().calc_lut = [](uint32_t* cdf, uint32_t bits) { std::fill(cdf, cdf + (1U << bits), 1U); };
    host().get_lut = [](uint16_t* lut, uint32_t bits) { std::fill(lut, lut + (1U << bits), uint16_t{1}); };
    call();
    EXPECT_EQ(kernel.dynLutEntries, 256u);
    EXPECT_THAT(lut_calls(), ElementsAre("MgGi__CalcLutDynam(frame, 640, 480, 640, 12)", "MgGi__GetLutDynam(8, 12)"));
    EXPECT_TRUE(info_line("allocated CDF array for 12 bits pixel"));
}

TEST_F(dynamic_lut, OnTheTripTo12BitsTheMeasurementRaisesUserSignal2AndWaits) {
    kernel.lutBits = 12;
    kernel.cdfBits = 12;
    kernel.dynLutMode = 6;
    kernel.dynLutStep = 4;
    call();
    EXPECT_EQ(kernel.dynLutMode, 7u);
    EXPECT_EQ(kernel.dynLutStep, 5u);
    EXPECT_EQ(kernel.signalCode, 4u);
    EXPECT_EQ(kernel.dynLutEntries, 4096u);
    EXPECT_EQ(values_written(), 0u);
    EXPECT_THAT(calls({"MgGi__", "Execute"}), ElementsAre("MgGi__CalcLutDynam(frame, 640, 480, 640, 12)",
                                                          "Execute(AcquisitionStop)", "MgGi__GetLutDynam(12, 12)"));
}

TEST_F(dynamic_lut, ATableCalculatedIn8BitsInAnArrayMadeFor12IsTakenOneToOne) {
    // User signal 1 on the first frame after the way back begins a cycle of its own, with the arrays of the trip.
    kernel.dynLut.reset(static_cast<uint16_t*>(std::calloc(4096, sizeof(uint16_t))));
    kernel.dynLutEntries = 4096;
    kernel.dynCdf.reset(static_cast<uint32_t*>(std::calloc(4096, sizeof(uint32_t))));
    kernel.dynLutMode = 7;
    kernel.dynLutStep = 4;
    host().get_lut = [](uint16_t* lut, uint32_t bits) { std::fill(lut, lut + (1U << bits), uint16_t{77}); };
    call(2);
    EXPECT_EQ(values_written(), 256u);
    EXPECT_EQ(calls({"PvGenInteger::SetValue(LUTValue, 77)"}).size(), 256u);
    EXPECT_EQ(kernel.dynLutStep, 0u);
    EXPECT_EQ(kernel.dynLutMode, 0u);
}

TEST_F(dynamic_lut, BackIn8BitsTheTableIsLoadedAndTheCycleEnds) {
    give_arrays();
    kernel.dynLutMode = 7;
    kernel.dynLutStep = 5;
    call();
    EXPECT_EQ(values_written(), 256u);
    EXPECT_EQ(kernel.dynLutMode, 0u);
    EXPECT_EQ(kernel.dynLutStep, 0u);
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
}

TEST_F(dynamic_lut, Step5WithoutATableSkipsTheCameraUpdateButStillMovesOn) {
    kernel.dynLutStep = 5;
    call();
    EXPECT_EQ(kernel.dynLutStep, 0u);
    kernel.dynLutStep = 5;
    kernel.dynLutMode = 6;
    call();
    EXPECT_EQ(kernel.dynLutStep, 0u);
    EXPECT_EQ(kernel.dynLutMode, 6u);
    EXPECT_EQ(values_written(), 0u);
    EXPECT_FALSE(mentioned("continue operation"));
}

TEST_F(dynamic_lut, Step8OutsideTheTripOnlyEndsTheCycle) {
    give_arrays();
    kernel.dynLutStep = 8;
    call();
    EXPECT_EQ(kernel.dynLutStep, 0u);
    EXPECT_NE(kernel.dynLut, nullptr);
    kernel.dynLutStep = 8;
    kernel.dynLutMode = 7;
    call();
    EXPECT_EQ(kernel.dynLutMode, 0u);
    EXPECT_EQ(kernel.dynLut, nullptr);
}

TEST_F(dynamic_lut, AnAllocationThatFailsAbandonsTheCycleSilently) {
    kernel.dynLutStep = 4;
    kernel.dynLutMode = 6;
    kernel.cdfBits = 61;  // no machine has that much
    call();
    EXPECT_EQ(kernel.dynLutStep, 0u);
    EXPECT_EQ(kernel.dynLutMode, 6u);
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
    EXPECT_THAT(lut_calls(), IsEmpty());
}

}  // namespace
