// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_test.hpp"

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

TEST_F(dynamic_lut, DoesNothingWhileIdle) {
    for (uint32_t const number : {0U, 6U, 7U, 9U, 0xFFFFFFFFU}) {
        auto const step = static_cast<dyn_lut_step>(number);
        for (auto const mode : {dyn_lut_mode::native, dyn_lut_mode::in_12_bits, dyn_lut_mode::back_to_8_bits}) {
            give_arrays();
            kernel.dynLutStep = step;
            kernel.dynLutMode = mode;
            auto const* const lut = kernel.dynLut.get();
            auto const* const cdf = kernel.dynCdf.get();
            device().sensor->initialize();
            recording::the_system_log().lines.clear();
            call(3);
            EXPECT_EQ(kernel.dynLutStep, step);
            EXPECT_EQ(kernel.dynLutMode, mode);
            EXPECT_EQ(kernel.dynLut.get(), lut);
            EXPECT_EQ(kernel.dynCdf.get(), cdf);
            EXPECT_THAT(support::journal().calls(), IsEmpty()) << number;
            EXPECT_FALSE(mentioned("LUT")) << number;
        }
    }
}

TEST_F(dynamic_lut, AnArmedCycleStaysArmedAndKeepsItsArrays) {
    give_arrays();
    kernel.dynLutStep = dyn_lut_step::armed;
    for (auto const mode : {dyn_lut_mode::native, dyn_lut_mode::back_to_8_bits}) {
        kernel.dynLutMode = mode;
        auto const* const lut = kernel.dynLut.get();
        auto const* const cdf = kernel.dynCdf.get();
        ASSERT_NE(lut, nullptr);
        ASSERT_NE(cdf, nullptr);
        call(2);
        EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::armed);
        EXPECT_EQ(kernel.dynLutMode, mode);
        EXPECT_EQ(kernel.dynLut.get(), lut);
        EXPECT_EQ(kernel.dynCdf.get(), cdf);
        EXPECT_THAT(support::journal().calls(), IsEmpty());
    }
}

TEST_F(dynamic_lut, AnArmedCycleIn12BitModeFreesTheArraysOfTheOtherDepth) {
    give_arrays();
    kernel.dynLutStep = dyn_lut_step::armed;
    kernel.dynLutMode = dyn_lut_mode::in_12_bits;
    call();
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::armed);
}

TEST_F(dynamic_lut, SettingTheStepTo2ByHandOnAn8BitNativeStreamWaitsTwoFramesThenComputesAndUpdatesTheCamera) {
    kernel.dynLutStep = dyn_lut_step::wait_two_frames;
    host().get_lut = [](uint16_t* lut, uint32_t) { std::fill(lut, lut + 256, uint16_t{77}); };
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::wait_one_frame);
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::compute);
    EXPECT_THAT(lut_calls(), IsEmpty());
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
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
    kernel.dynLutStep = dyn_lut_step::compute;
    call();
    recording::the_system_log().lines.clear();
    kernel.dynLutStep = dyn_lut_step::compute;
    call();
    EXPECT_FALSE(mentioned("allocated"));
    EXPECT_EQ(values_written(), 256u);
}

TEST_F(dynamic_lut, WithCdfBits12AndLutBits8TheCdfHolds4096EntriesAndTheLut256) {
    kernel.cdfBits = 12;
    kernel.dynLutStep = dyn_lut_step::compute;
    // With a smaller array, the address sanitizer fails the test here.
    host().calc_lut = [](uint32_t* cdf, uint32_t bits) { std::fill(cdf, cdf + (1U << bits), 1U); };
    host().get_lut = [](uint16_t* lut, uint32_t bits) { std::fill(lut, lut + (1U << bits), uint16_t{1}); };
    call();
    EXPECT_EQ(kernel.dynLutEntries, 256u);
    EXPECT_THAT(lut_calls(), ElementsAre("MgGi__CalcLutDynam(frame, 640, 480, 640, 12)", "MgGi__GetLutDynam(8, 12)"));
    EXPECT_TRUE(info_line("allocated CDF array for 12 bits pixel"));
}

TEST_F(dynamic_lut, In12BitModeTheMeasurementRaisesUserSignal2AndWaits) {
    kernel.lutBits = 12;
    kernel.cdfBits = 12;
    kernel.dynLutMode = dyn_lut_mode::in_12_bits;
    kernel.dynLutStep = dyn_lut_step::compute;
    call();
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::back_to_8_bits);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::apply);
    EXPECT_EQ(kernel.signalCode, signal_code::user_2);
    EXPECT_EQ(kernel.dynLutEntries, 4096u);
    EXPECT_EQ(values_written(), 0u);
    EXPECT_THAT(calls({"MgGi__", "Execute"}), ElementsAre("MgGi__CalcLutDynam(frame, 640, 480, 640, 12)",
                                                          "Execute(AcquisitionStop)", "MgGi__GetLutDynam(12, 12)"));
}

TEST_F(dynamic_lut, ALutMeasuredIn8BitsInAnArrayFor12IsCopied) {
    // User signal 1 on the first frame after the switch back to 8 bits starts a cycle with the arrays of the 12-bit
    // mode.
    kernel.dynLut.reset(static_cast<uint16_t*>(std::calloc(4096, sizeof(uint16_t))));
    kernel.dynLutEntries = 4096;
    kernel.dynCdf.reset(static_cast<uint32_t*>(std::calloc(4096, sizeof(uint32_t))));
    kernel.dynLutMode = dyn_lut_mode::back_to_8_bits;
    kernel.dynLutStep = dyn_lut_step::compute;
    host().get_lut = [](uint16_t* lut, uint32_t bits) { std::fill(lut, lut + (1U << bits), uint16_t{77}); };
    call(2);
    EXPECT_EQ(values_written(), 256u);
    EXPECT_EQ(calls({"PvGenInteger::SetValue(LUTValue, 77)"}).size(), 256u);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
}

TEST_F(dynamic_lut, BackIn8BitsTheLutIsLoadedAndTheCycleEnds) {
    give_arrays();
    kernel.dynLutMode = dyn_lut_mode::back_to_8_bits;
    kernel.dynLutStep = dyn_lut_step::apply;
    call();
    EXPECT_EQ(values_written(), 256u);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
}

TEST_F(dynamic_lut, Step5WithoutALutSkipsTheCameraUpdateButStillAdvances) {
    kernel.dynLutStep = dyn_lut_step::apply;
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    kernel.dynLutStep = dyn_lut_step::apply;
    kernel.dynLutMode = dyn_lut_mode::in_12_bits;
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::in_12_bits);
    EXPECT_EQ(values_written(), 0u);
    EXPECT_FALSE(mentioned("continue operation"));
}

TEST_F(dynamic_lut, Step8OutsideOf12BitModeOnlyEndsTheCycle) {
    give_arrays();
    kernel.dynLutStep = dyn_lut_step::finish;
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_NE(kernel.dynLut, nullptr);
    kernel.dynLutStep = dyn_lut_step::finish;
    kernel.dynLutMode = dyn_lut_mode::back_to_8_bits;
    call();
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
    EXPECT_EQ(kernel.dynLut, nullptr);
}

TEST_F(dynamic_lut, AnArrayThatCantBeAllocatedIsNotReportedAsAllocated) {
    kernel.dynLutStep = dyn_lut_step::compute;
    kernel.lutBits = 61;  // more memory than any machine has
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr) << "released with it";
    EXPECT_TRUE(info_line("allocated CDF array for 8 bits pixel"));
    EXPECT_FALSE(mentioned("allocated LUT array"));
    EXPECT_THAT(lut_calls(), IsEmpty());
}

TEST_F(dynamic_lut, AnAllocationThatFailsAbandonsTheCycleSilently) {
    kernel.dynLutStep = dyn_lut_step::compute;
    kernel.dynLutMode = dyn_lut_mode::in_12_bits;
    kernel.cdfBits = 61;  // more memory than any machine has
    call();
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::in_12_bits);
    EXPECT_EQ(kernel.dynLut, nullptr);
    EXPECT_EQ(kernel.dynCdf, nullptr);
    EXPECT_THAT(lut_calls(), IsEmpty());
    EXPECT_FALSE(mentioned("allocated CDF array"));
}

}  // namespace
