// SPDX-License-Identifier: MIT
#include <cstdint>
#include <memory>

#include <gtest/gtest.h>

#include "test_camera.hpp"

namespace {

int64_t packet_size(PvDevice& device) {
    int64_t bytes = 0;
    EXPECT_TRUE(ok(device.GetParameters()->GetIntegerValue("GevSCPSPacketSize", bytes)));
    return bytes;
}

PvDeviceGEV& gev(device_handle const& device) {
    return dynamic_cast<PvDeviceGEV&>(*device);
}

void expect_a_frame(PvDevice& device, PvStream& stream) {
    buffer_set set(4, device.GetPayloadSize());
    set.queue(stream);
    ASSERT_TRUE(ok(start_acquisition(device)));
    for (int i = 0; i < 3; ++i) {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        ASSERT_TRUE(ok(stream.RetrieveBuffer(&buffer, &operation, 10'000)));
        EXPECT_TRUE(ok(operation));
    }
    EXPECT_TRUE(ok(stop_acquisition(device)));
    EXPECT_TRUE(ok(stream.AbortQueuedBuffers()));
}

class PacketSize : public testing::Test {
protected:
    void SetUp() override {
        camera = start_camsim("127.0.0.1", {"--stream-channels", "2"});
        ASSERT_TRUE(camera);
        id = find_only_camera();
        device = connect(id);
        ASSERT_TRUE(device);
    }
    std::unique_ptr<test_process> camera;
    PvString id;
    device_handle device;
};

}  // namespace

TEST_F(PacketSize, IsSetWithinTheCamerasLimits) {
    PvGenInteger* const feature = device->GetParameters()->GetInteger("GevSCPSPacketSize");
    int64_t minimum = 0;
    int64_t maximum = 0;
    ASSERT_TRUE(ok(feature->GetMin(minimum)) && ok(feature->GetMax(maximum)));
    EXPECT_TRUE(ok(gev(device).SetPacketSize(static_cast<uint32_t>(maximum))));
    EXPECT_EQ(packet_size(*device), maximum);
    for (int64_t const bytes : {minimum - 4, maximum + 4, minimum + 1, int64_t{0}}) {
        EXPECT_TRUE(
            has_code(gev(device).SetPacketSize(static_cast<uint32_t>(bytes)), PvResult::Code::INVALID_PARAMETER));
    }
    EXPECT_EQ(packet_size(*device), maximum);
}

TEST_F(PacketSize, IsSetForOneChannelAndRestoresTheSelector) {
    ASSERT_TRUE(ok(gev(device).SetPacketSize(1500, 0)));
    ASSERT_TRUE(ok(gev(device).SetPacketSize(2000, 1)));
    EXPECT_EQ(packet_size(*device), 1500);
    ASSERT_TRUE(ok(device->GetParameters()->SetIntegerValue("GevStreamChannelSelector", 1)));
    EXPECT_EQ(packet_size(*device), 2000);
}

TEST_F(PacketSize, IsRefusedForAChannelThatTheCameraDoesNotHave) {
    EXPECT_TRUE(has_code(gev(device).SetPacketSize(1500, 2), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(has_code(gev(device).NegotiatePacketSize(2), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(has_code(gev(device).SetStreamDestination("127.0.0.1", 5000, 2), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(has_code(device->StreamEnable(2), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(has_code(device->StreamDisable(2), PvResult::Code::INVALID_PARAMETER));
}

TEST_F(PacketSize, IsRefusedWhileStreaming) {
    ASSERT_TRUE(ok(device->StreamEnable()));
    EXPECT_TRUE(has_code(gev(device).SetPacketSize(1500), PvResult::Code::NOT_SUPPORTED));
    EXPECT_TRUE(has_code(gev(device).NegotiatePacketSize(), PvResult::Code::NOT_SUPPORTED));
    ASSERT_TRUE(ok(device->StreamDisable()));
    EXPECT_TRUE(ok(gev(device).SetPacketSize(1500)));
}

TEST_F(PacketSize, IsNegotiatedToTheCamerasLargestOnLoopback) {
    int64_t maximum = 0;
    ASSERT_TRUE(ok(device->GetParameters()->GetInteger("GevSCPSPacketSize")->GetMax(maximum)));
    ASSERT_TRUE(ok(gev(device).SetPacketSize(1500)));
    EXPECT_TRUE(ok(gev(device).NegotiatePacketSize()));
    EXPECT_EQ(packet_size(*device), maximum);
}

TEST_F(PacketSize, MayBeChangedUnderAnOpenStream) {
    auto const stream = open_stream(id);
    ASSERT_TRUE(stream);
    for (uint32_t const bytes : {1500U, 8000U, 600U}) {
        ASSERT_TRUE(ok(gev(device).SetPacketSize(bytes)));
        expect_a_frame(*device, *stream);
        EXPECT_EQ(packet_size(*device), bytes);
    }
}

TEST_F(PacketSize, WrittenAsAFeatureIsKeptWhenStreamingIsEnabled) {
    ASSERT_TRUE(ok(device->GetParameters()->SetIntegerValue("GevSCPSPacketSize", 1200)));
    ASSERT_TRUE(ok(device->StreamEnable()));
    EXPECT_EQ(packet_size(*device), 1200);
}

TEST_F(PacketSize, IsNegotiatedWhenStreamingIsEnabledUnlessChosen) {
    int64_t maximum = 0;
    ASSERT_TRUE(ok(device->GetParameters()->GetInteger("GevSCPSPacketSize")->GetMax(maximum)));
    ASSERT_TRUE(ok(device->StreamEnable()));
    EXPECT_EQ(packet_size(*device), maximum);
}

TEST_F(PacketSize, IsTheDefaultWithoutNegotiation) {
    ASSERT_TRUE(ok(device->GetCommunicationParameters()->SetBooleanValue("AutoNegotiation", false)));
    ASSERT_TRUE(ok(device->StreamEnable()));
    EXPECT_EQ(packet_size(*device), 1476);
}

TEST_F(PacketSize, ChosenOnceIsSetAgainAfterAReconnection) {
    ASSERT_TRUE(ok(gev(device).SetPacketSize(2000)));
    camera->kill();
    ASSERT_TRUE(wait_until([this] { return !device->IsConnected(); }));
    camera = start_camsim("127.0.0.1", {"--stream-channels", "2"});
    ASSERT_TRUE(ok(device->Connect(id)));
    ASSERT_NE(packet_size(*device), 2000) << "the camera has reset it";
    ASSERT_TRUE(ok(device->StreamEnable()));
    EXPECT_EQ(packet_size(*device), 2000);
}

TEST_F(PacketSize, NegotiationRestoresTheStreamDestination) {
    ASSERT_TRUE(ok(gev(device).SetStreamDestination("127.0.0.1", 5000)));
    ASSERT_TRUE(ok(gev(device).NegotiatePacketSize()));
    int64_t address = 0;
    int64_t port = 0;
    ASSERT_TRUE(ok(device->GetParameters()->GetIntegerValue("GevSCDA", address)));
    ASSERT_TRUE(ok(device->GetParameters()->GetIntegerValue("GevSCPHostPort", port)));
    EXPECT_EQ(address, 0x7F000001);
    EXPECT_EQ(port, 5000);
}

TEST_F(PacketSize, DestinationMustBeAnAddress) {
    for (char const* const text : {"", "localhost", "127.0.0.1.1"}) {
        EXPECT_TRUE(has_code(gev(device).SetStreamDestination(text, 5000), PvResult::Code::INVALID_PARAMETER)) << text;
    }
}

TEST(PacketSizeOfAravissCamera, FallsBackToTheDefaultWithoutTestPackets) {
    auto const camera = start_aravis_camera();
    PvString const id = find_only_camera();
    auto const device = connect(id);
    auto const stream = open_stream(id);
    ASSERT_TRUE(device && stream);
    EXPECT_TRUE(has_code(gev(device).NegotiatePacketSize(0, 1300), PvResult::Code::TIMEOUT));
    EXPECT_EQ(packet_size(*device), 1300);
    EXPECT_TRUE(has_code(gev(device).NegotiatePacketSize(), PvResult::Code::TIMEOUT));
    EXPECT_EQ(packet_size(*device), 1476);
    expect_a_frame(*device, *stream);
}

TEST(PacketSizeOnACable, IsNegotiatedToTheMtuOfTheCable) {
    for (unsigned const bytes : {1500U, 4000U}) {
        cable_to_camsim const cable(bytes);
        PvString const id = find_only_camera();
        auto const device = connect(id);
        auto const stream = open_stream(id);
        ASSERT_TRUE(device && stream);
        EXPECT_TRUE(ok(gev(device).NegotiatePacketSize()));
        EXPECT_EQ(packet_size(*device), bytes);
        expect_a_frame(*device, *stream);
    }
}
