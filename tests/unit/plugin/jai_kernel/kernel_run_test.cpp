// SPDX-License-Identifier: MIT
#include "jai_kernel/kernel_run.hpp"

#include <PvDeviceInfo.h>
#include <PvSystem.h>

#include "errors.hpp"
#include "plugin_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;
using Vorn::Support::MediaGrabber::Jai::Kernel__Run;

constexpr char tag[] = "MG_JAI_PROC";
constexpr char setup[] = "_T_setup_gev_packet_size";

struct kernel_run : plugin_test::plugin {
    /// Runs on the script's camera. It refuses the pixel format, so the run ends with -2 before the first frame.
    int run() {
        cam()["PixelFormat"].refuse_write();
        system_.Find();
        return Kernel__Run(system_.GetInterface(0)->GetDeviceInfo(0));
    }
    static std::vector<std::string> transport_calls() {
        return calls({"SetPacketSize", "NegotiatePacketSize", "SetStreamDestination", "PvGenBoolean::SetValue"});
    }
    static constexpr int end_of_run = -2;

private:
    PvSystem system_;
};

TEST_F(kernel_run, CreatesTheCameraPreparesTheTransportRunsAndReleases) {
    host().datachunk = 1400;
    EXPECT_EQ(run(), end_of_run);
    EXPECT_THAT(calls({"PvDevice::", "PvStream::", "SetPacketSize", "SetStreamDestination", "Disconnect"}),
                ElementsAre("PvDevice::CreateAndConnect(10.0.0.7)", "PvStream::CreateAndOpen(10.0.0.7)",
                            "SetPacketSize(1400, 0)", "SetStreamDestination(10.0.0.1, 50000, 0)", "Disconnect()",
                            "PvStream::Free()", "PvDevice::Free()"));
    EXPECT_TRUE(logged(level::debug, "Kernel__Run", tag, "exec: PvDeviceInfoType:0"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: rc:-2)"));
}

TEST_F(kernel_run, ACameraWhoseConnectionFailsReturnsMinus5WithOnlyTheCamerasOwnErrorMessage) {
    cam().connect = PvResult::Code::NOT_CONNECTED;
    EXPECT_EQ(run(), -5);
    EXPECT_TRUE(
        logged(level::error, "", "JAI_CAM", "fail: PvDevice::CreateAndConnect (model:GO-5100M-PGE, serial:U700001)"));
    EXPECT_EQ(system_lines().size(), 2u) << "the device type and the error";
}

TEST_F(kernel_run, ACameraWhoseStreamCantBeOpenedReturnsMinus5) {
    cam().open_stream = scripted::refused;
    EXPECT_EQ(run(), -5);
    EXPECT_EQ(scripted::sdk().devices_alive, 0u);
}

TEST_F(kernel_run, AFailingResultCountsEvenIfThereIsAnObject) {
    cam().half_connected = true;
    cam().connect = scripted::refused;
    EXPECT_EQ(run(), -5);
    EXPECT_THAT(calls({"PvStream::"}), IsEmpty());
    cam().connect = scripted::ok;
    cam().open_stream = scripted::refused;
    EXPECT_EQ(run(), -5);
    EXPECT_THAT(calls({"SetStreamDestination"}), IsEmpty());
    EXPECT_EQ(scripted::sdk().devices_alive, 0u);
    EXPECT_EQ(scripted::sdk().streams_alive, 0u);
}

TEST_F(kernel_run, AnyOtherExceptionOfTheCamerasConstructorReachesTheCaller) {
    scripted::sdk().on_text = [](char const* made) {
        if (made == std::string("Line3")) {
            throw std::runtime_error("no memory");
        }
    };
    EXPECT_THROW(run(), std::runtime_error);
    scripted::sdk().on_text = [](char const* made) {
        if (made == std::string("Line3")) {
            throw Vorn::Support::params_error();
        }
    };
    EXPECT_THROW(run(), Vorn::Support::params_error);
    EXPECT_FALSE(mentioned("done: rc"));
}

TEST_F(kernel_run, LogsItsResultBeforeTheCameraIsDisconnected) {
    size_t logged_before = 0;
    cam().on_disconnect = [&] { logged_before = count_in_system_log(level::info, "", "done: rc:-2)\n"); };
    EXPECT_EQ(run(), end_of_run);
    EXPECT_EQ(logged_before, 1u);
}

TEST_F(kernel_run, ADeviceOfAnotherTypeSkipsTheTransportSilently) {
    cam().type = static_cast<PvDeviceInfoType>(1);
    EXPECT_EQ(run(), end_of_run);
    EXPECT_THAT(transport_calls(), IsEmpty());
    EXPECT_TRUE(logged(level::debug, "Kernel__Run", tag, "exec: PvDeviceInfoType:1"));
    EXPECT_FALSE(mentioned(setup));
}

TEST_F(kernel_run, ADeviceThatIsNotAGevDeviceSkipsTheTransportSilently) {
    cam().is_gev = false;
    EXPECT_EQ(run(), end_of_run);
    EXPECT_THAT(transport_calls(), IsEmpty());
}

TEST_F(kernel_run, AStreamThatIsNotAGevStreamGetsNoDestination) {
    cam().stream_is_gev = false;
    EXPECT_EQ(run(), end_of_run);
    EXPECT_THAT(calls({"SetStreamDestination"}), IsEmpty());
}

TEST_F(kernel_run, WithoutDeviceParametersThePacketSizeIsLeftButTheDestinationIsSet) {
    cam().has_features = false;
    EXPECT_EQ(run(), end_of_run);
    EXPECT_THAT(transport_calls(), ElementsAre("SetStreamDestination(10.0.0.1, 50000, 0)"));
    EXPECT_TRUE(logged(level::error, "", tag, "fail: PvDeviceGEV::GetParameters"));
}

TEST_F(kernel_run, WithoutCommunicationParametersThePacketSizeIsLeftButTheDestinationIsSet) {
    cam().has_communication = false;
    EXPECT_EQ(run(), end_of_run);
    EXPECT_THAT(transport_calls(), ElementsAre("SetStreamDestination(10.0.0.1, 50000, 0)"));
    EXPECT_TRUE(logged(level::error, "", tag, "fail: PvDeviceGEV::GetCommunicationParameters"));
}

TEST_F(kernel_run, ARefusedDestinationIsIgnored) {
    cam().destination = scripted::refused;
    EXPECT_EQ(run(), end_of_run);
}

TEST_F(kernel_run, AnExceptionFromTheRunReachesTheCallerAfterTheCameraIsReleased) {
    cam()["GevTimestampTickFrequency"].before_read = [](auto&) { throw std::runtime_error("cable pulled"); };
    EXPECT_THROW(run(), std::runtime_error);
    EXPECT_EQ(scripted::sdk().devices_alive, 0u);
    EXPECT_EQ(scripted::sdk().streams_alive, 0u);
}

// ---- Unconditional streaming --------------------------------------------------------------------

TEST_F(kernel_run, UnconditionalStreamingThatIsOffIsReportedAsDone) {
    run();
    EXPECT_TRUE(logged(level::info, "", tag,
                       "done: PvGenBoolean::SetValue (name:GevSCCFGUnconditionalStreaming, value:false)"));
    EXPECT_THAT(calls({"PvGenBoolean::SetValue(GevSCCFG"}), IsEmpty());
}

TEST_F(kernel_run, UnconditionalStreamingIsSwitchedOff) {
    cam()["GevSCCFGUnconditionalStreaming"].flag = true;
    run();
    EXPECT_FALSE(cam()["GevSCCFGUnconditionalStreaming"].flag);
    EXPECT_TRUE(logged(level::info, "", tag,
                       "done: PvGenBoolean::SetValue (name:GevSCCFGUnconditionalStreaming, value:false)"));
}

TEST_F(kernel_run, UnconditionalStreamingThatCantBeSwitchedOffGetsNoPacketSizeChangeAtAllButStillItsDestination) {
    cam()["GevSCCFGUnconditionalStreaming"].flag = true;
    cam()["GevSCCFGUnconditionalStreaming"].refuse_write();
    cam()["GevStreamChannelCount"].integer = 4;
    host().datachunk = 1400;
    run();
    EXPECT_THAT(transport_calls(), ElementsAre("PvGenBoolean::SetValue(GevSCCFGUnconditionalStreaming, false)",
                                               "SetStreamDestination(10.0.0.1, 50000, 0)"));
    EXPECT_TRUE(logged(level::warning, setup, tag,
                       "fail: PvGenBoolean::SetValue (name:GevSCCFGUnconditionalStreaming, value:false)"));
}

TEST_F(kernel_run, ACameraWithoutUnconditionalStreamingIsWarnedAboutAndGetsItsPacketSize) {
    cam().features.erase("GevSCCFGUnconditionalStreaming");
    host().datachunk = 1400;
    run();
    EXPECT_TRUE(logged(level::warning, setup, tag,
                       "fail: PvGenParameterArray::GetBoolean (name:GevSCCFGUnconditionalStreaming)"));
    EXPECT_THAT(calls({"SetPacketSize"}), ElementsAre("SetPacketSize(1400, 0)"));
}

TEST_F(kernel_run, UnconditionalStreamingThatCantBeReadIsWarnedAboutAndThePacketSizeSet) {
    cam()["GevSCCFGUnconditionalStreaming"].refuse_read();
    host().datachunk = 1400;
    run();
    EXPECT_TRUE(
        logged(level::warning, setup, tag, "fail: PvGenBoolean::GetValue (name:GevSCCFGUnconditionalStreaming)"));
    EXPECT_THAT(calls({"SetPacketSize"}), ElementsAre("SetPacketSize(1400, 0)"));
}

// ---- Fixed packet size --------------------------------------------------------------------------

TEST_F(kernel_run, ADataChunkOfExactly9000TakesTheFixedPath) {
    host().datachunk = 9000;
    run();
    EXPECT_THAT(transport_calls(), ElementsAre("PvGenBoolean::SetValue(AutoNegotiation, false)",
                                               "SetPacketSize(9000, 0)", "SetStreamDestination(10.0.0.1, 50000, 0)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvGenBoolean::SetValue (name:AutoNegotiation, value:false)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvDeviceGEV::SetPacketSize (value:9000)"));
}

TEST_F(kernel_run, ADataChunkOf9001TakesTheNegotiatedPath) {
    host().datachunk = 9001;
    cam().communication["AutoNegotiation"].flag = false;
    run();
    EXPECT_THAT(transport_calls(),
                ElementsAre("PvGenBoolean::SetValue(AutoNegotiation, true)", "NegotiatePacketSize(0, 0)",
                            "SetStreamDestination(10.0.0.1, 50000, 0)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvGenBoolean::SetValue (name:AutoNegotiation, value:true)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvDeviceGEV::NegotiatePacketSize"));
}

TEST_F(kernel_run, ADataChunkOf0IsAFixedSizeAndTheLargestIsNegotiated) {
    host().datachunk = 0;
    run();
    EXPECT_THAT(calls({"SetPacketSize", "NegotiatePacketSize"}), ElementsAre("SetPacketSize(0, 0)"));
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvDeviceGEV::SetPacketSize (value:0)"));
    support::journal().clear();
    host().datachunk = 0xFFFFFFFF;
    run();
    EXPECT_THAT(calls({"SetPacketSize", "NegotiatePacketSize"}), ElementsAre("NegotiatePacketSize(0, 0)"));
}

TEST_F(kernel_run, ASizeEqualToTheDefaultIsNotSetButReportedAsDone) {
    host().datachunk = 1476;
    run();
    EXPECT_THAT(calls({"SetPacketSize"}), IsEmpty());
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvDeviceGEV::SetPacketSize (value:1476)"));
}

TEST_F(kernel_run, ARefusedPacketSizeIsAWarningAndTheRunGoesOn) {
    host().datachunk = 1400;
    cam().set_packet_size = [](uint32_t, uint32_t) { return scripted::refused; };
    EXPECT_EQ(run(), end_of_run);
    EXPECT_TRUE(logged(level::warning, setup, tag, "fail: PvDeviceGEV::SetPacketSize (value:1400)"));
    EXPECT_FALSE(mentioned("done: PvDeviceGEV::SetPacketSize"));
}

TEST_F(kernel_run, ADefaultSizeThatCantBeReadIsAWarningAndNothingIsSet) {
    cam().communication["DefaultPacketSize"].refuse_read();
    host().datachunk = 1400;
    run();
    EXPECT_TRUE(
        logged(level::warning, setup, tag, "fail: PvGenParameterArray::GetIntegerValue (name:DefaultPacketSize)"));
    EXPECT_THAT(calls({"SetPacketSize"}), IsEmpty());
}

TEST_F(kernel_run, AutoNegotiationThatIsOffAlreadyIsNotWritten) {
    cam().communication["AutoNegotiation"].flag = false;
    run();
    EXPECT_THAT(calls({"PvGenBoolean::SetValue(Auto"}), IsEmpty());
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvGenBoolean::SetValue (name:AutoNegotiation, value:false)"));
}

TEST_F(kernel_run, FailuresOfAutoNegotiationAreWarningsAndTheFixedSizeIsStillSet) {
    host().datachunk = 1400;
    cam().communication["AutoNegotiation"].refuse_write();
    run();
    EXPECT_TRUE(logged(level::warning, setup, tag, "fail: PvGenBoolean::SetValue (name:AutoNegotiation, value:false)"));
    EXPECT_THAT(calls({"SetPacketSize"}), ElementsAre("SetPacketSize(1400, 0)"));
}

TEST_F(kernel_run, AutoNegotiationThatIsAbsentOrUnreadableIsAWarning) {
    cam().communication["AutoNegotiation"].refuse_read();
    run();
    cam().communication.erase("AutoNegotiation");
    run();
    EXPECT_TRUE(logged(level::warning, setup, tag, "fail: PvGenBoolean::GetValue (name:AutoNegotiation)"));
    EXPECT_TRUE(logged(level::warning, setup, tag, "fail: PvGenParameterArray::GetBoolean (name:AutoNegotiation)"));
}

TEST_F(kernel_run, WithoutAutoNegotiationTheSizeIsStillSetOrNegotiated) {
    cam().communication.erase("AutoNegotiation");
    host().datachunk = 1400;
    run();
    cam().communication["AutoNegotiation"] = scripted::boolean(true).refuse_read();
    run();
    host().datachunk = 9001;
    run();
    EXPECT_THAT(calls({"SetPacketSize", "NegotiatePacketSize", "PvGenBoolean::SetValue(Auto"}),
                ElementsAre("SetPacketSize(1400, 0)", "SetPacketSize(1400, 0)", "NegotiatePacketSize(0, 0)"));
}

// ---- Negotiated packet size ---------------------------------------------------------------------

TEST_F(kernel_run, AFailedNegotiationIsAWarning) {
    host().datachunk = 9001;
    cam().negotiate = scripted::refused;
    EXPECT_EQ(run(), end_of_run);
    EXPECT_TRUE(logged(level::warning, setup, tag, "fail: PvDeviceGEV::NegotiatePacketSize"));
    EXPECT_FALSE(mentioned("done: PvDeviceGEV::NegotiatePacketSize"));
}

TEST_F(kernel_run, AutoNegotiationThatIsOnAlreadyIsNotWritten) {
    host().datachunk = 9001;
    run();
    EXPECT_THAT(calls({"PvGenBoolean::SetValue(Auto"}), IsEmpty());
    EXPECT_TRUE(logged(level::info, "", tag, "done: PvGenBoolean::SetValue (name:AutoNegotiation, value:true)"));
}

TEST_F(kernel_run, NoFailedStepOfTheSetUpIsReportedAsDone) {
    cam()["GevSCCFGUnconditionalStreaming"].refuse_read();
    cam().communication["AutoNegotiation"].refuse_write();
    cam().set_packet_size = [](uint32_t, uint32_t) { return scripted::refused; };
    host().datachunk = 1400;
    run();
    EXPECT_FALSE(mentioned("done: Pv"));
    cam().communication["AutoNegotiation"].refuse_read();
    cam().communication["AutoNegotiation"].flag = false;
    cam().negotiate = scripted::refused;
    host().datachunk = 9001;
    run();
    EXPECT_FALSE(mentioned("done: Pv"));
}

TEST_F(kernel_run, FailuresOfAutoNegotiationDoNotPreventNegotiation) {
    host().datachunk = 9001;
    cam().communication["AutoNegotiation"].flag = false;
    cam().communication["AutoNegotiation"].refuse_write();
    run();
    EXPECT_TRUE(logged(level::warning, setup, tag, "fail: PvGenBoolean::SetValue (name:AutoNegotiation, value:true)"));
    EXPECT_THAT(calls({"NegotiatePacketSize"}), ElementsAre("NegotiatePacketSize(0, 0)"));
}

// ---- Other channels -----------------------------------------------------------------------------

TEST_F(kernel_run, ADeviceWithASingleStreamChannelGetsNoPropagationAndNoMessage) {
    run();
    EXPECT_THAT(calls({"SetPacketSize(1476, 1)"}), IsEmpty());
    EXPECT_FALSE(mentioned("channel"));
}

TEST_F(kernel_run, ADeviceWithoutAChannelCountGetsNoPropagationAndNoMessage) {
    cam().features.erase("GevStreamChannelCount");
    run();
    EXPECT_FALSE(mentioned("channel"));
}

TEST_F(kernel_run, AChannelCountOf0OrBelowOrThatCantBeReadGetsNoPropagationAndNoMessage) {
    for (int64_t const count : {int64_t{0}, int64_t{-4}, INT64_MIN}) {
        cam()["GevStreamChannelCount"].integer = count;
        run();
    }
    cam()["GevStreamChannelCount"] = scripted::integer(4).refuse_read();
    run();
    EXPECT_THAT(calls({"SetPacketSize"}), IsEmpty());
    EXPECT_FALSE(mentioned("channel"));
}

TEST_F(kernel_run, AChannelCountBeyondTheStandardsEndsAt512) {
    cam()["GevStreamChannelCount"].integer = INT64_MAX;
    run();
    EXPECT_EQ(calls({"SetPacketSize"}).size(), 511u);
    EXPECT_EQ(calls({"SetPacketSize"}).back(), "SetPacketSize(1476, 511)");
}

TEST_F(kernel_run, APacketSizeThatDoesNotFit32BitsIsNotPropagated) {
    cam()["GevStreamChannelCount"].integer = 2;
    for (int64_t const size : {int64_t{-1}, int64_t{1} << 32, INT64_MAX}) {
        recording::the_system_log().lines.clear();
        cam()["GevSCPSPacketSize"].integer = size;
        run();
        EXPECT_EQ(count_in_system_log(level::warning, setup, "Could not read back streaming channel 0 packet size\n"),
                  1u);
    }
    EXPECT_THAT(calls({"SetPacketSize"}), IsEmpty());
    cam()["GevSCPSPacketSize"].integer = 0xFFFFFFFF;
    run();
    EXPECT_THAT(calls({"SetPacketSize"}), ElementsAre("SetPacketSize(4294967295, 1)"));
}

TEST_F(kernel_run, TheActivePacketSizeIsSetOnTheOtherChannelsInOrder) {
    cam()["GevStreamChannelCount"].integer = 3;
    cam()["GevSCPSPacketSize"].integer = 1500;
    host().datachunk = 9001;
    run();
    EXPECT_THAT(calls({"SetPacketSize"}), ElementsAre("SetPacketSize(1500, 1)", "SetPacketSize(1500, 2)"));
}

TEST_F(kernel_run, ASizeThatChannel0RefusesGivesTheOthersTheActiveOne) {
    cam()["GevStreamChannelCount"].integer = 2;
    cam()["GevSCPSPacketSize"].integer = 1500;
    host().datachunk = 1400;
    cam().set_packet_size = [](uint32_t, uint32_t channel) { return channel == 0 ? scripted::refused : scripted::ok; };
    run();
    cam().communication["DefaultPacketSize"].refuse_read();
    run();
    host().datachunk = 9001;
    cam().negotiate = scripted::refused;
    run();
    EXPECT_THAT(calls({"SetPacketSize"}), ElementsAre("SetPacketSize(1400, 0)", "SetPacketSize(1500, 1)",
                                                      "SetPacketSize(1500, 1)", "SetPacketSize(1500, 1)"));
}

TEST_F(kernel_run, AFailureToSetChannel2Of4LeavesChannel3UntouchedAndWarnsOnce) {
    cam()["GevStreamChannelCount"].integer = 4;
    cam().set_packet_size = [](uint32_t, uint32_t channel) { return channel == 2 ? scripted::refused : scripted::ok; };
    run();
    EXPECT_THAT(calls({"SetPacketSize"}), ElementsAre("SetPacketSize(1476, 1)", "SetPacketSize(1476, 2)"));
    EXPECT_TRUE(logged(level::warning, setup, tag, "Failed to propagate GevSCPSPacketSize on all streaming channels"));
    EXPECT_EQ(
        count_in_system_log(level::warning, setup, "Failed to propagate GevSCPSPacketSize on all streaming channels\n"),
        1u);
}

TEST_F(kernel_run, APacketSizeThatCantBeReadBackIsNotPropagated) {
    cam()["GevStreamChannelCount"].integer = 2;
    cam()["GevSCPSPacketSize"].refuse_read();
    run();
    EXPECT_THAT(calls({"SetPacketSize"}), IsEmpty());
    EXPECT_TRUE(logged(level::warning, setup, tag, "Could not read back streaming channel 0 packet size"));
}

}  // namespace
