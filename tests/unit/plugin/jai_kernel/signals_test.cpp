// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

struct signals : plugin_test::kernel_fixture {
    unsigned buffers = 4;
    signals() {
        recording::clock().steered = true;
        recording::clock().microseconds = 1'700'000'000'000'000;
        kernel.lutBits = 8;
    }
    /// Configures the camera, then clears journal and log.
    void configure() {
        kernel.ProcSetCamConfig(&device(), info(), &buffers);
        kernel.lutBits = 8;
        recording::the_system_log().lines.clear();
        support::journal().clear();
    }
    unsigned signal(int32_t code) {
        kernel.signalCode = static_cast<signal_code>(code);
        return kernel.ProcSignal(&device(), 17, &stop);
    }
    /// \return whether the camera was set up: a set-up logs this line
    static bool was_set_up() { return mentioned("~~ Camera Device New Settings ~~"); }
    static std::vector<std::string> host_calls() {
        return calls({"MgGi__", "MgGiMainCtx__SetFormat", "Execute", "StreamDisable"});
    }
    void expect_stop_unwritten() {
        for (bool const before : {true, false}) {
            stop = before;
            kernel.ProcSignal(&device(), 17, &stop);
            EXPECT_EQ(stop, before);
        }
    }
    bool info_line(std::string const& text) { return logged(level::info, "", tag, text); }

    bool stop = false;
};

TEST_F(signals, ProcLookSignalStoresTheHostsSignal) {
    host().signals = {4};
    kernel.ProcLookSignal();
    EXPECT_EQ(kernel.signalCode, signal_code::user_2);
    kernel.ProcLookSignal();
    EXPECT_EQ(kernel.signalCode, signal_code::none);
}

TEST_F(signals, UserSignal1ArmsTheDynamicLut) {
    kernel.signalCode = signal_code::user_1;
    EXPECT_EQ(kernel.ProcSignalUsr(9), 0);
    EXPECT_EQ(kernel.signalCode, signal_code::none);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::armed);
    EXPECT_TRUE(info_line("Grabbed 9 images, processing SIGUSR1..."));
}

TEST_F(signals, UserSignal1sHandlerLeavesOtherCodesPending) {
    for (int32_t const code : {0, 1, 2, 4, 5, 9}) {
        kernel.signalCode = static_cast<signal_code>(code);
        EXPECT_EQ(kernel.ProcSignalUsr(9), 0);
        EXPECT_EQ(value_of(kernel.signalCode), code);
        EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::idle);
    }
}

// ---- None ---------------------------------------------------------------------------------------

TEST_F(signals, WithoutASignalTheHostIsPolledForADynamicChange) {
    EXPECT_EQ(signal(0), 0u);
    EXPECT_THAT(host_calls(), ElementsAre("MgGi__CheckDynConfig((nil), (nil), (nil), (nil))"));
    expect_stop_unwritten();
}

TEST_F(signals, ADynamicChangeIsAppliedInPlace) {
    configure();
    host().dyn_config = {1};
    host().fps = 50.0F;
    cam()["LineSelector"].before_write = [](auto&) { recording::clock().microseconds += 1'234; };
    host().iobox_num = 1;
    host().io_lines = {{.pin = 5, .source = 1, .inverter = 1}};
    stop = true;
    EXPECT_EQ(signal(0), 0u);
    EXPECT_TRUE(stop) << "not written";
    EXPECT_TRUE(was_set_up());
    EXPECT_THAT(calls({"SetFloatValue(Acq"}), IsEmpty()) << "without what needs a full set-up";
    EXPECT_TRUE(info_line("Grabbed 17 images, dynamic reconfiguration..."));
    EXPECT_TRUE(info_line("...done, spent 1234us"));
}

TEST_F(signals, AFailureOfADynamicChangeIsIgnored) {
    configure();
    host().dyn_config = {1};
    cam().connected = false;
    cam().reconnect = scripted::refused;
    EXPECT_EQ(signal(0), 0u);
    EXPECT_TRUE(info_line("...done, spent 0us"));
}

TEST_F(signals, DuringADynamicLutCycleTheDynamicConfigurationPollIsSkipped) {
    for (auto const& [step, mode] : {std::pair{dyn_lut_step::armed, dyn_lut_mode::native},
                                     {dyn_lut_step::idle, dyn_lut_mode::in_12_bits},
                                     {dyn_lut_step::apply, dyn_lut_mode::back_to_8_bits}}) {
        kernel.dynLutStep = step;
        kernel.dynLutMode = mode;
        EXPECT_EQ(signal(0), 0u);
    }
    EXPECT_THAT(host_calls(), IsEmpty());
}

TEST_F(signals, WhileGrabbingAChangedLutStopsAndStartsCapture) {
    configure();
    host().sweep_lut_mod = 1;
    for (int32_t const code : {0, 2}) {
        support::journal().clear();
        host().lut = std::vector<uint16_t>(256, 1);  // an array at another address
        host().dyn_config = {1};
        EXPECT_EQ(signal(code), 0u);
        auto const order = calls({"Execute", "SetEnumValue(JAILUTMode"});
        EXPECT_THAT(order, ElementsAre("Execute(AcquisitionStop)", "SetEnumValue(JAILUTMode, LUT)",
                                       "Execute(AcquisitionStart)"))
            << code;
        kernel.lastLutData = nullptr;
    }
}

TEST_F(signals, WhileGrabbingAChangedGammaStopsAndStartsCapture) {
    cam()["JAILUTMode"] = scripted::enumeration("Gamma", {"Off", "LUT", "Gamma"});
    configure();
    host().sweep_lut_mod = 1;
    host().gamma = 0.6F;
    for (int32_t const code : {0, 2}) {
        support::journal().clear();
        host().dyn_config = {1};
        EXPECT_EQ(signal(code), 0u);
        EXPECT_THAT(
            calls({"Execute", "PvGenEnum::SetValue(JAIGamma"}),
            ElementsAre("Execute(AcquisitionStop)", "PvGenEnum::SetValue(JAIGamma, 1)", "Execute(AcquisitionStart)"))
            << code;
    }
}

// ---- Stops --------------------------------------------------------------------------------------

TEST_F(signals, Code1StopsCaptureAndReportsToTheHost) {
    EXPECT_EQ(signal(1), 0u);
    EXPECT_TRUE(stop);
    EXPECT_EQ(kernel.signalCode, signal_code::none);
    EXPECT_THAT(host_calls(), ElementsAre("Execute(AcquisitionStop)", "StreamDisable(0)", "MgGi__SetNewCfgVendor()",
                                          "MgGi__SetNewCfgPlugin()", "MgGi__SetSignalAction(1)"));
    EXPECT_TRUE(info_line("Grabbed 17 images, finishing with signal..."));
}

TEST_F(signals, Code5BehavesAsCode1AndPasses5) {
    EXPECT_EQ(signal(5), 0u);
    EXPECT_TRUE(stop);
    EXPECT_EQ(host_calls().back(), "MgGi__SetSignalAction(5)");
    EXPECT_EQ(host_calls().size(), 5u);
}

TEST_F(signals, TheStopFlagMayBeNull) {
    configure();
    for (int32_t const code : {1, 2, 4, 5, 3, 99}) {
        kernel.signalCode = static_cast<signal_code>(code);
        EXPECT_EQ(kernel.ProcSignal(&device(), 1, nullptr), 0u) << code;
    }
}

// ---- Reload -------------------------------------------------------------------------------------

TEST_F(signals, Code2WithANewConfigurationIsAppliedInPlace) {
    configure();
    host().fps = 50.0F;
    host().on_reconfig = [] { recording::clock().microseconds += 777; };
    stop = true;
    EXPECT_EQ(signal(2), 0u);
    EXPECT_FALSE(stop);
    EXPECT_EQ(kernel.signalCode, signal_code::none);
    EXPECT_TRUE(was_set_up());
    EXPECT_THAT(calls({"SetFloatValue(Acq"}), ElementsAre("SetFloatValue(AcquisitionFrameRate, 50)"));
    EXPECT_TRUE(info_line("Grabbed 17 images, reconfiguration..."));
    EXPECT_TRUE(info_line("done, spent 777us"));
    EXPECT_TRUE(info_line("continue grabbing with new configuration..."));
    EXPECT_THAT(calls({"MgGi__DoReconfig", "MgGi__SetSignalAction"}), ElementsAre("MgGi__DoReconfig(0)"));
}

TEST_F(signals, Code2WithAChangedRegionOfInterestStopsGrabbingWithoutCallingSetupCam) {
    configure();
    host().width = 320;
    EXPECT_EQ(signal(2), 0u);
    EXPECT_TRUE(stop);
    EXPECT_FALSE(was_set_up());
    EXPECT_TRUE(info_line("can't continue grabbing with new configuration, exiting..."));
    EXPECT_THAT(host_calls(), ElementsAre("MgGi__DoReconfig(0)", "Execute(AcquisitionStop)", "StreamDisable(0)",
                                          "MgGi__SetSignalAction(2)"));
}

TEST_F(signals, Code2WithACameraThatCantBeConnectedAgainStopsGrabbing) {
    configure();
    cam().connected = false;
    cam().reconnect = scripted::refused;
    EXPECT_EQ(signal(2), 0u);
    EXPECT_TRUE(stop);
}

TEST_F(signals, Code2WithRcMinus1AndTheExitFlagSetReturns1) {
    host().reconfig_result = -1;
    host().reconfig_exit = 1;
    EXPECT_EQ(signal(2), 1u);
    EXPECT_TRUE(stop);
    EXPECT_THAT(host_calls(), ElementsAre("MgGi__DoReconfig(0)", "Execute(AcquisitionStop)", "StreamDisable(0)",
                                          "MgGi__SetSignalAction(2)"));
}

TEST_F(signals, Code2WithRcMinus1AndNoFlagReturns0AndKeepsGrabbing) {
    host().reconfig_result = -1;
    stop = true;
    EXPECT_EQ(signal(2), 0u);
    EXPECT_FALSE(stop);
    EXPECT_FALSE(was_set_up());
    EXPECT_FALSE(mentioned("continue grabbing"));
    EXPECT_THAT(host_calls(), ElementsAre("MgGi__DoReconfig(0)"));
}

TEST_F(signals, Code2WithRc0AndTheExitFlagSetStopsWithoutReadingTheRegion) {
    host().reconfig_exit = 3;
    EXPECT_EQ(signal(2), 0u);
    EXPECT_TRUE(stop);
    EXPECT_FALSE(was_set_up());
}

TEST_F(signals, Code2WithAPositiveRcAndTheExitFlagSetReturns0) {
    host().reconfig_result = 1;
    host().reconfig_exit = 1;
    EXPECT_EQ(signal(2), 0u);
    EXPECT_TRUE(stop);
}

// ---- User signal 2 ------------------------------------------------------------------------------

TEST_F(signals, Code4TwiceOnAn8BitFormatTheFirstSwitchesTo12BitsTheSecondDoesNothing) {
    EXPECT_EQ(signal(4), 0u);
    EXPECT_TRUE(stop);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::armed);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::in_12_bits);
    EXPECT_THAT(host_calls(), ElementsAre("Execute(AcquisitionStop)", "StreamDisable(0)", "MgGiMainCtx__SetFormat(2)"));
    EXPECT_TRUE(info_line("Grabbed 17 images, processing SIGUSR2..."));
    EXPECT_TRUE(info_line("...Switching to 12-bit mode for dynamic LUT calculation/applying..."));

    support::journal().clear();
    EXPECT_EQ(signal(4), 0u);
    EXPECT_FALSE(stop);
    EXPECT_EQ(kernel.signalCode, signal_code::none);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::in_12_bits);
    EXPECT_THAT(host_calls(), IsEmpty());
}

TEST_F(signals, Code4InMode7SwitchesBack) {
    kernel.dynLutMode = dyn_lut_mode::back_to_8_bits;
    kernel.dynLutStep = dyn_lut_step::apply;
    EXPECT_EQ(signal(4), 0u);
    EXPECT_TRUE(stop);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::back_to_8_bits);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::apply);
    EXPECT_THAT(host_calls(), ElementsAre("MgGiMainCtx__SetFormat(1)", "Execute(AcquisitionStop)", "StreamDisable(0)"));
    EXPECT_TRUE(info_line("...Switching back to 8-bit mode..."));
}

TEST_F(signals, Code4OnA12BitFormatArmsTheLutInPlace) {
    kernel.lutBits = 12;
    stop = true;
    EXPECT_EQ(signal(4), 0u);
    EXPECT_FALSE(stop);
    EXPECT_EQ(kernel.dynLutStep, dyn_lut_step::armed);
    EXPECT_EQ(kernel.dynLutMode, dyn_lut_mode::native);
    EXPECT_THAT(host_calls(), IsEmpty());
}

TEST_F(signals, AnyOtherCodeIsLeftPendingAndDoesNotStop) {
    for (int32_t const code : {3, 6, -1}) {
        stop = true;
        EXPECT_EQ(signal(code), 0u);
        EXPECT_FALSE(stop);
        EXPECT_EQ(value_of(kernel.signalCode), code);
    }
    EXPECT_THAT(host_calls(), IsEmpty());
}

}  // namespace
