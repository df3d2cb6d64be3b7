// SPDX-License-Identifier: MIT
#include "jai_camera/camera.hpp"

#include <PvSystem.h>

#include "errors.hpp"
#include "jai_property_bag/property_bag.hpp"
#include "plugin_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;
using Vorn::Support::internal_error;
using Vorn::Support::MediaGrabber::Jai::camera;
using Vorn::Support::MediaGrabber::Jai::property;
using Vorn::Support::MediaGrabber::Jai::property_bag;

constexpr char tag[] = "JAI_CAM";

struct camera_device : plugin_test::plugin {
    camera_device() { system_.Find(); }
    PvDeviceInfo const* info() const { return system_.GetInterface(0)->GetDeviceInfo(0); }
    /// Connects the script's camera and, by default, gives it its features.
    std::unique_ptr<camera> connected(bool configured = true) const {
        auto made = std::make_unique<camera>(info());
        if (configured) {
            made->deviceParams = made->device->GetParameters();
        }
        return made;
    }
    static std::vector<std::string> capture_calls() { return calls({"Execute", "StreamEnable", "StreamDisable"}); }

private:
    PvSystem system_;
};

TEST_F(camera_device, ConnectsAndOpensTheStreamByTheSameId) {
    auto const cam = connected();
    EXPECT_THAT(calls({"PvDevice::", "PvStream::"}),
                ElementsAre("PvDevice::CreateAndConnect(10.0.0.7)", "PvStream::CreateAndOpen(10.0.0.7)"));
}

TEST_F(camera_device, HasNoFeaturesUntilItIsConfigured) {
    auto const made = connected(false);
    EXPECT_EQ(made->getDevParams(), nullptr);
    EXPECT_STREQ(made->gammaFeatureName, "JAIGamma");
    EXPECT_EQ(made->gammaMin, 0.0F);
    EXPECT_EQ(made->gammaMax, 0.0F);
    EXPECT_FALSE(made->gammaRangeKnown);
    EXPECT_TRUE(made->gammaValues.empty());
}

TEST_F(camera_device, AccessesNoFeatureDuringConstruction) {
    auto const made = connected(false);
    EXPECT_THAT(calls({"Get", "Set", "PvGen"}), IsEmpty());
}

TEST_F(camera_device, DisconnectsThenFreesTheStreamThenTheDevice) {
    connected().reset();
    EXPECT_THAT(calls({"Disconnect", "PvDevice::Free", "PvStream::Free"}),
                ElementsAre("Disconnect()", "PvStream::Free()", "PvDevice::Free()"));
}

TEST_F(camera_device, IgnoresAFailureToDisconnect) {
    cam().disconnect = scripted::refused;
    connected().reset();
    EXPECT_EQ(scripted::sdk().devices_alive, 0u);
}

TEST_F(camera_device, ADeviceThatCantBeConnectedIsAnInternalError) {
    cam().connect = PvResult::Code::NOT_CONNECTED;
    EXPECT_THROW(connected(), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag, "fail: PvDevice::CreateAndConnect (model:GO-5100M-PGE, serial:U700001)"));
    EXPECT_THAT(calls({"PvStream::CreateAndOpen"}), IsEmpty());
}

TEST_F(camera_device, ADeviceThatConnectsButWhoseStreamCannotBeOpenedYieldsOneErrorAndTheDeviceIsFreed) {
    cam().open_stream = scripted::refused;
    EXPECT_THROW(connected(), internal_error);
    EXPECT_TRUE(logged(level::error, "", tag, "fail: PvStream::CreateAndOpen (model:GO-5100M-PGE, serial:U700001)"));
    EXPECT_EQ(system_lines().size(), 1u);
    EXPECT_EQ(scripted::sdk().devices_alive, 0u);
    EXPECT_THAT(calls({"PvDevice::Free", "Disconnect"}), ElementsAre("PvDevice::Free()"));
}

TEST_F(camera_device, AFeatureBlockThatCantBeMadeIsReportedAndPassedOn) {
    for (char const* const refused : {"OffsetX", "ALCReference", "Line2", "Line3"}) {
        scripted::sdk().on_text = [refused](char const* made) {
            if (made == std::string(refused)) {
                throw internal_error();
            }
        };
        EXPECT_THROW(connected(), internal_error) << refused;
    }
    EXPECT_TRUE(logged(level::error, "", "JAI_SENSOR", "fail"));
    EXPECT_TRUE(logged(level::error, "", "JAI_GC", "fail"));
    EXPECT_TRUE(logged(level::error, "", "JAI_GPIO", "fail"));
    EXPECT_EQ(system_lines().size(), 4u);
    EXPECT_THAT(calls({"PvDevice::"}), IsEmpty());
}

TEST_F(camera_device, StartsByEnablingTheStreamThenTheCommand) {
    EXPECT_EQ(connected()->ExStartCapture(), 0);
    EXPECT_THAT(capture_calls(), ElementsAre("StreamEnable(0)", "Execute(AcquisitionStart)"));
}

TEST_F(camera_device, StopsByTheCommandThenDisablingTheStream) {
    EXPECT_EQ(connected()->ExStopCapture(), 0);
    EXPECT_THAT(capture_calls(), ElementsAre("Execute(AcquisitionStop)", "StreamDisable(0)"));
}

TEST_F(camera_device, StartAndStopBeforeConfigurationReturnMinus1) {
    auto const made = connected(false);
    EXPECT_EQ(made->ExStartCapture(), -1);
    EXPECT_EQ(made->ExStopCapture(), -1);
    EXPECT_TRUE(logged(level::warning, "ExStartCapture", tag, "Can't get contexts to start capture"));
    EXPECT_TRUE(logged(level::warning, "ExStopCapture", tag, "Can't get contexts to stop capture"));
    EXPECT_THAT(capture_calls(), IsEmpty());
}

TEST_F(camera_device, WithAnEmptyStreamHandleStopReturnsMinus1WhileStartProceeds) {
    auto const made = connected();
    made->stream.reset();
    EXPECT_EQ(made->ExStopCapture(), -1);
    EXPECT_EQ(made->ExStartCapture(), 0);
}

TEST_F(camera_device, WithoutItsCommandStartAndStopReturnMinus2AndLeaveStreamingUntouched) {
    cam().features.erase("AcquisitionStart");
    cam().features.erase("AcquisitionStop");
    auto const made = connected();
    EXPECT_EQ(made->ExStartCapture(), -2);
    EXPECT_EQ(made->ExStopCapture(), -2);
    EXPECT_THAT(capture_calls(), IsEmpty());
    EXPECT_TRUE(logged(level::warning, "ExStartCapture", tag, "Can't map AcquisitionStart command"));
    EXPECT_TRUE(logged(level::warning, "ExStopCapture", tag, "Can't map AcquisitionStop command"));
}

TEST_F(camera_device, AnAcquisitionStartThatIsNotACommandReturnsMinus2) {
    cam()["AcquisitionStart"] = scripted::integer(0);
    EXPECT_EQ(connected()->ExStartCapture(), -2);
    EXPECT_THAT(capture_calls(), IsEmpty());
}

TEST_F(camera_device, AnAcquisitionStopThatIsNotACommandReturnsMinus2) {
    cam()["AcquisitionStop"] = scripted::boolean(true);
    EXPECT_EQ(connected()->ExStopCapture(), -2);
    EXPECT_THAT(capture_calls(), IsEmpty());
    EXPECT_TRUE(logged(level::warning, "ExStopCapture", tag, "Can't map AcquisitionStop command"));
}

TEST_F(camera_device, AStreamThatCantBeEnabledReturnsMinus3BeforeTheCommand) {
    cam().enable = scripted::refused;
    EXPECT_EQ(connected()->ExStartCapture(), -3);
    EXPECT_THAT(capture_calls(), ElementsAre("StreamEnable(0)"));
    EXPECT_TRUE(logged(level::warning, "ExStartCapture", tag, "Can't enable stream to start capture"));
}

TEST_F(camera_device, ARefusedStartReturnsMinus4AndLeavesTheStreamEnabled) {
    cam()["AcquisitionStart"].execute = scripted::refused;
    EXPECT_EQ(connected()->ExStartCapture(), -4);
    EXPECT_THAT(capture_calls(), ElementsAre("StreamEnable(0)", "Execute(AcquisitionStart)"));
    EXPECT_TRUE(
        logged(level::warning, "ExStartCapture", tag, "Can't execute AcquisitionStart command to start capture"));
}

TEST_F(camera_device, AFailingAcquisitionStopReturnsMinus4AndLeavesStreamingEnabled) {
    cam()["AcquisitionStop"].execute = scripted::refused;
    EXPECT_EQ(connected()->ExStopCapture(), -4);
    EXPECT_THAT(capture_calls(), ElementsAre("Execute(AcquisitionStop)"));
    EXPECT_TRUE(logged(level::warning, "ExStopCapture", tag, "Can't execute AcquisitionStop command to stop capture"));
}

TEST_F(camera_device, AStreamThatCantBeDisabledReturnsMinus3) {
    cam().disable = scripted::refused;
    EXPECT_EQ(connected()->ExStopCapture(), -3);
    EXPECT_TRUE(logged(level::warning, "ExStopCapture", tag, "Can't disable stream to stop capture"));
}

TEST_F(camera_device, WithTheLogLevelBelow2FailuresReturnTheirCodesWithoutAnyMessage) {
    gMgLogLevelLib = 1;
    cam()["AcquisitionStart"].execute = scripted::refused;
    cam()["AcquisitionStop"].execute = scripted::refused;
    auto const made = connected();
    EXPECT_EQ(made->ExStartCapture(), -4);
    EXPECT_EQ(made->ExStopCapture(), -4);
    EXPECT_THAT(system_lines(), IsEmpty());
}

TEST_F(camera_device, AFailingLine2DoesNotKeepLine3FromBeingConfigured) {
    auto const made = connected();
    cam()["LineSelector"].before_write = [first = true](auto& feature) mutable {
        feature.write = first ? scripted::refused : scripted::ok;
        first = false;
    };
    property_bag bag;
    bag.setInt64(property::line2_source, 1);
    bag.setInt64(property::line3_source, 1);
    made->setupGpio(bag);
    EXPECT_THAT(writes(), ElementsAre("SetEnumValue(LineSelector, Line2)", "SetEnumValue(LineSelector, Line3)",
                                      "SetEnumValue(LineSource, ExposureActive)"));
}

TEST_F(camera_device, AFailureOfLine3IsIgnoredToo) {
    auto const made = connected();
    cam()["LineSource"].refuse_write();
    property_bag bag;
    bag.setInt64(property::line3_source, 2);
    EXPECT_NO_THROW(made->setupGpio(bag));
}

TEST_F(camera_device, AnyOtherExceptionOfALinePropagates) {
    auto const made = connected();
    cam()["LineSelector"].before_write = [](auto&) { throw std::runtime_error("x"); };
    property_bag bag;
    bag.setInt64(property::line2_source, 1);
    EXPECT_THROW(made->setupGpio(bag), std::runtime_error);
}

}  // namespace
