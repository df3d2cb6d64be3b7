#include "kernel_test.hpp"

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
    /// Configures the camera, then forgets what that took.
    void configure() {
        kernel.ProcSetCamConfig(&device(), info(), &buffers);
        kernel.lutBits = 8;
        recording::the_system_log().lines.clear();
        support::journal().clear();
    }
    unsigned signal(uint32_t code) {
        kernel.signalCode = code;
        return kernel.ProcSignal(&device(), 17, &stop);
    }
    /// A set-up of the camera leaves this line.
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

TEST_F(signals, ALookStoresTheHostsSignal) {
    host().signals = {4};
    kernel.ProcLookSignal();
    EXPECT_EQ(kernel.signalCode, 4u);
    kernel.ProcLookSignal();
    EXPECT_EQ(kernel.signalCode, 0u);
}

TEST_F(signals, UserSignal1ArmsTheDynamicTable) {
    kernel.signalCode = 3;
    EXPECT_EQ(kernel.ProcSignalUsr(9), 0);
    EXPECT_EQ(kernel.signalCode, 0u);
    EXPECT_EQ(kernel.dynLutStep, 1u);
    EXPECT_TRUE(info_line("Grabbed 9 images, processing SIGUSR1..."));
}

TEST_F(signals, UserSignal1sHandlerLeavesOtherCodesAlone) {
    for (uint32_t const code : {0U, 1U, 2U, 4U, 5U, 9U}) {
        kernel.signalCode = code;
        EXPECT_EQ(kernel.ProcSignalUsr(9), 0);
        EXPECT_EQ(kernel.signalCode, code);
        EXPECT_EQ(kernel.dynLutStep, 0u);
    }
}

// ---- None ---------------------------------------------------------------------------------------

TEST_F(signals, WithoutASignalTheHostIsAskedForADynamicChange) {
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

TEST_F(signals, WithADynamicLutCycleUnderWayTheDynamicConfigurationPollIsSkippedEntirely) {
    for (auto const& [step, mode] : {std::pair{1U, 0U}, {0U, 6U}, {5U, 7U}}) {
        kernel.dynLutStep = step;
        kernel.dynLutMode = mode;
        EXPECT_EQ(signal(0), 0u);
    }
    EXPECT_THAT(host_calls(), IsEmpty());
}

// ---- Stops --------------------------------------------------------------------------------------

TEST_F(signals, Code1StopsCaptureAndTellsTheHost) {
    EXPECT_EQ(signal(1), 0u);
    EXPECT_TRUE(stop);
    EXPECT_EQ(kernel.signalCode, 0u);
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
    for (uint32_t const code : {1U, 2U, 4U, 5U, 3U, 99U}) {
        kernel.signalCode = code;
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
    EXPECT_EQ(kernel.signalCode, 0u);
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

TEST_F(signals, Code2WithRc0AndTheExitFlagSetStopsWithoutAskingForTheRegion) {
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
    EXPECT_EQ(kernel.dynLutStep, 1u);
    EXPECT_EQ(kernel.dynLutMode, 6u);
    EXPECT_THAT(host_calls(), ElementsAre("Execute(AcquisitionStop)", "StreamDisable(0)", "MgGiMainCtx__SetFormat(2)"));
    EXPECT_TRUE(info_line("Grabbed 17 images, processing SIGUSR2..."));
    EXPECT_TRUE(info_line("...Switching to 12-bit mode for dynamic LUT calculation/applying..."));

    support::journal().clear();
    EXPECT_EQ(signal(4), 0u);
    EXPECT_FALSE(stop);
    EXPECT_EQ(kernel.signalCode, 0u);
    EXPECT_EQ(kernel.dynLutMode, 6u);
    EXPECT_THAT(host_calls(), IsEmpty());
}

TEST_F(signals, Code4InMode7SwitchesBack) {
    kernel.dynLutMode = 7;
    kernel.dynLutStep = 5;
    EXPECT_EQ(signal(4), 0u);
    EXPECT_TRUE(stop);
    EXPECT_EQ(kernel.dynLutMode, 7u);
    EXPECT_EQ(kernel.dynLutStep, 5u);
    EXPECT_THAT(host_calls(), ElementsAre("MgGiMainCtx__SetFormat(1)", "Execute(AcquisitionStop)", "StreamDisable(0)"));
    EXPECT_TRUE(info_line("...Switching back to 8-bit mode..."));
}

TEST_F(signals, Code4OnA12BitFormatArmsTheTableInPlace) {
    kernel.lutBits = 12;
    stop = true;
    EXPECT_EQ(signal(4), 0u);
    EXPECT_FALSE(stop);
    EXPECT_EQ(kernel.dynLutStep, 1u);
    EXPECT_EQ(kernel.dynLutMode, 0u);
    EXPECT_THAT(host_calls(), IsEmpty());
}

TEST_F(signals, AnyOtherCodeIsLeftPendingAndDoesNotStop) {
    for (uint32_t const code : {3U, 6U, 0xFFFFFFFFU}) {
        stop = true;
        EXPECT_EQ(signal(code), 0u);
        EXPECT_FALSE(stop);
        EXPECT_EQ(kernel.signalCode, code);
    }
    EXPECT_THAT(host_calls(), IsEmpty());
}

}  // namespace
