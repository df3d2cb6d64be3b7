// SPDX-License-Identifier: MIT
#include <chrono>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "test_camera.hpp"

namespace {

using clock = std::chrono::steady_clock;

constexpr uint32_t no_timeout = 0xFFFFFFFF;
/// Longer than any local operation. A request to an unresponsive camera takes seconds.
constexpr std::chrono::milliseconds locally{200};

/// Acquisition from each of the two cameras.
class Loss : public testing::TestWithParam<char const*> {
protected:
    void SetUp() override {
        start_camera();
        id = find_only_camera();
        device = connect(id);
        ASSERT_TRUE(device);
        stream = open_stream(id);
        ASSERT_TRUE(stream);
        set = std::make_unique<buffer_set>(8, device->GetPayloadSize());
        width = device->GetParameters()->GetInteger("Width");
        ASSERT_NE(width, nullptr);
    }

    void start_camera() { camera = std::string(GetParam()) == "camsim" ? start_camsim() : start_aravis_camera(); }

    void grab_a_frame(PvDevice& from, PvStream& through) {
        set->queue(through);
        ASSERT_TRUE(ok(start_acquisition(from)));
        PvBuffer* buffer = nullptr;
        PvResult operation;
        ASSERT_TRUE(ok(through.RetrieveBuffer(&buffer, &operation, 10'000)));
        EXPECT_TRUE(ok(operation));
    }

    /// Retrieves until a call fails. \return whether it reported the loss of the camera
    bool retrieve_until_lost() {
        for (;;) {
            PvBuffer* buffer = nullptr;
            PvResult operation;
            PvResult const result = stream->RetrieveBuffer(&buffer, &operation, no_timeout);
            if (!result.IsOK()) {
                return result.GetCode() == PvResult::Code::NOT_CONNECTED;
            }
        }
    }

    void expect_everything_fails_locally() {
        auto const start = clock::now();
        using code = PvResult::Code;
        PvGenParameterArray& features = *device->GetParameters();
        int64_t value = 0;
        EXPECT_FALSE(device->IsConnected());
        EXPECT_TRUE(has_code(width->GetValue(value), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(width->SetValue(64), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(width->GetMax(value), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(features.GetIntegerValue("PayloadSize", value), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(features.ExecuteCommand("AcquisitionStop"), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(device->StreamDisable(), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(device->StreamEnable(), code::NOT_CONNECTED));
        EXPECT_EQ(device->GetPayloadSize(), 0U);
        auto& gev = dynamic_cast<PvDeviceGEV&>(*device);
        EXPECT_TRUE(has_code(gev.SetPacketSize(1500), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(gev.NegotiatePacketSize(), code::NOT_CONNECTED));
        EXPECT_TRUE(has_code(gev.SetStreamDestination("127.0.0.1", 5000), code::NOT_CONNECTED));
        PvResult opened;
        EXPECT_EQ(PvStream::CreateAndOpen(id, &opened), nullptr);
        EXPECT_TRUE(has_code(opened, code::NOT_CONNECTED));
        EXPECT_LT(clock::now() - start, locally);
    }

    std::unique_ptr<test_process> camera;
    PvString id;
    device_handle device;
    stream_handle stream;
    std::unique_ptr<buffer_set> set;
    PvGenInteger* width = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Cameras, Loss, testing::Values("aravis", "camsim"),
                         [](auto const& info) { return std::string(info.param); });

}  // namespace

TEST_P(Loss, IsReportedSoonWhenTheCameraIsKilledWhileItSends) {
    grab_a_frame(*device, *stream);
    auto const start = clock::now();
    camera->kill();
    EXPECT_TRUE(retrieve_until_lost());
    EXPECT_LT(clock::now() - start, std::chrono::seconds(2));
    expect_everything_fails_locally();
}

TEST_P(Loss, IsReportedWithinSecondsWhenTheCameraIsUnresponsive) {
    grab_a_frame(*device, *stream);
    auto const start = clock::now();
    camera->freeze();
    EXPECT_TRUE(retrieve_until_lost());
    EXPECT_LT(clock::now() - start, std::chrono::seconds(4));
    expect_everything_fails_locally();
}

TEST_P(Loss, IsNotReportedForABriefSilence) {
    camera->freeze();
    EXPECT_FALSE(wait_until([this] { return !device->IsConnected(); }, std::chrono::milliseconds(1000)));
    camera->thaw();
    int64_t value = 0;
    EXPECT_TRUE(ok(width->GetValue(value)));
    EXPECT_TRUE(device->IsConnected());
}

TEST_P(Loss, IsReportedWhenTheCameraRestartsQuickly) {
    camera->kill();
    start_camera();
    ASSERT_TRUE(camera);
    EXPECT_TRUE(wait_until([this] { return !device->IsConnected(); }))
        << "it responds, but is not controlled by this process";
}

TEST_P(Loss, AllowsANewConnectionAfterwards) {
    grab_a_frame(*device, *stream);
    camera->kill();
    EXPECT_TRUE(retrieve_until_lost());
    auto const start = clock::now();
    EXPECT_TRUE(ok(device->Disconnect()));
    stream.reset();
    device.reset();
    EXPECT_LT(clock::now() - start, locally);
    start_camera();
    EXPECT_EQ(find_only_camera(), id);
    device = connect(id);
    ASSERT_TRUE(device);
    stream = open_stream(id);
    ASSERT_TRUE(stream);
    grab_a_frame(*device, *stream);
}

TEST_P(Loss, IsRepairedByConnectingTheSameDeviceAgain) {
    grab_a_frame(*device, *stream);
    camera->kill();
    EXPECT_TRUE(retrieve_until_lost());
    EXPECT_TRUE(ok(stream->AbortQueuedBuffers()));
    EXPECT_TRUE(retrieve_until_lost()) << "aborted buffers are returned first";
    EXPECT_EQ(stream->GetQueuedBufferCount(), 0U);
    start_camera();
    ASSERT_TRUE(ok(device->Connect(id)));
    EXPECT_TRUE(device->IsConnected());
    int64_t value = 0;
    EXPECT_TRUE(ok(width->GetValue(value))) << "parameters looked up before the loss work again";
    grab_a_frame(*device, *stream);
}

TEST_P(Loss, MakesConnectFailWhileTheCameraIsAbsent) {
    camera->kill();
    EXPECT_TRUE(wait_until([this] { return !device->IsConnected(); }));
    EXPECT_TRUE(has_code(device->Connect(id), PvResult::Code::NOT_FOUND));
    EXPECT_FALSE(device->IsConnected());
}

TEST(LossOfTheCable, IsReportedAndRepairedWhenItIsPluggedInAgain) {
    cable_to_camsim cable(1500);
    PvString const id = find_only_camera();
    auto const device = connect(id);
    ASSERT_TRUE(device);
    cable.pull();
    EXPECT_TRUE(wait_until([&device] { return !device->IsConnected(); }));
    cable.plug();
    EXPECT_TRUE(wait_until([&] { return device->Connect(id).IsOK(); }));
    int64_t value = 0;
    EXPECT_TRUE(ok(device->GetParameters()->GetIntegerValue("Width", value)));
}
