// SPDX-License-Identifier: MIT
#include <chrono>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "device/camera_session.hpp"
#include "gvcp/connection_id.hpp"
#include "gvcp/gvcp_channel.hpp"
#include "gvcp/gvcp_message.hpp"
#include "test_camera.hpp"

namespace {

using clock = std::chrono::steady_clock;

constexpr uint32_t loopback = 0x7F000001;

/// Whether another application can take control now.
bool another_application_gets_control(PvString const& id) {
    return test_process({own_program(), "--take-control", id.GetAscii()}).wait() == EXIT_SUCCESS;
}

bool camera_is_controlled() {
    auto channel = openpv::gvcp_channel::open({loopback}, {loopback});
    uint32_t privilege = 0;
    return channel && channel->read_register(openpv::gvcp::reg::control_channel_privilege, privilege).ok() &&
           privilege != 0;
}

PvResult try_to_connect(char const* id) {
    PvResult result;
    device_handle const device(PvDevice::CreateAndConnect(id, &result));
    EXPECT_EQ(device == nullptr, !result.IsOK());
    return result;
}

/// With each of the two cameras.
class Connection : public testing::TestWithParam<char const*> {
protected:
    void SetUp() override {
        camera = std::string(GetParam()) == "camsim" ? start_camsim() : start_aravis_camera();
        ASSERT_TRUE(camera);
        id = find_only_camera();
    }
    std::unique_ptr<test_process> camera;
    PvString id;
};

INSTANTIATE_TEST_SUITE_P(Cameras, Connection, testing::Values("aravis", "camsim"),
                         [](auto const& info) { return std::string(info.param); });

}  // namespace

TEST_P(Connection, IsThereUntilDisconnected) {
    auto const device = connect(id);
    ASSERT_TRUE(device);
    EXPECT_TRUE(device->IsConnected());
    EXPECT_TRUE(ok(device->Disconnect()));
    EXPECT_FALSE(device->IsConnected());
    EXPECT_TRUE(has_code(device->Disconnect(), PvResult::Code::NOT_CONNECTED));
}

TEST_P(Connection, CanBeMadeAgainOnTheSameDeviceWhichKeepsItsParameters) {
    auto const device = connect(id);
    ASSERT_TRUE(device);
    PvGenInteger* const width = device->GetParameters()->GetInteger("Width");
    ASSERT_NE(width, nullptr);
    ASSERT_TRUE(ok(device->Disconnect()));
    int64_t value = 0;
    EXPECT_TRUE(has_code(width->GetValue(value), PvResult::Code::NOT_CONNECTED));
    ASSERT_TRUE(ok(device->Connect(id)));
    EXPECT_TRUE(device->IsConnected());
    EXPECT_TRUE(ok(width->GetValue(value)));
    EXPECT_EQ(device->GetParameters()->GetInteger("Width"), width);
}

TEST_P(Connection, ExcludesOtherApplications) {
    auto const device = connect(id);
    ASSERT_TRUE(device);
    EXPECT_FALSE(another_application_gets_control(id));
    EXPECT_TRUE(device->IsConnected());
    EXPECT_TRUE(ok(device->Disconnect()));
    EXPECT_TRUE(another_application_gets_control(id)) << "at once after the disconnection";
}

TEST_P(Connection, ReleasesControlWhenTheDeviceIsFreed) {
    auto device = connect(id);
    ASSERT_TRUE(device);
    device.reset();
    EXPECT_TRUE(another_application_gets_control(id));
}

TEST_P(Connection, ReleasesControlThoughAStreamIsStillOpen) {
    auto const device = connect(id);
    auto const stream = open_stream(id);
    ASSERT_TRUE(device && stream);
    ASSERT_TRUE(ok(device->Disconnect()));
    EXPECT_TRUE(another_application_gets_control(id));
}

TEST_P(Connection, IsRefusedWhileAnotherApplicationHasControl) {
    test_process holder({own_program(), "--hold-control", id.GetAscii()});
    ASSERT_TRUE(wait_until(camera_is_controlled));
    PvResult const refused = try_to_connect(id.GetAscii());
    EXPECT_TRUE(has_code(refused, PvResult::Code::GENERIC_ERROR));
    EXPECT_NE(std::string(refused.GetDescription().GetAscii()).find("another application controls the camera"),
              std::string::npos)
        << refused.GetDescription().GetAscii();
}

TEST_P(Connection, IsRefusedToASecondDeviceOfTheSameProcess) {
    auto const device = connect(id);
    ASSERT_TRUE(device);
    EXPECT_TRUE(has_code(try_to_connect(id.GetAscii()), PvResult::Code::GENERIC_ERROR));
    EXPECT_TRUE(device->IsConnected()) << "the first one is not affected";
}

TEST_P(Connection, OfAStreamAloneTakesAndReleasesControl) {
    auto stream = open_stream(id);
    ASSERT_TRUE(stream);
    EXPECT_FALSE(another_application_gets_control(id));
    stream.reset();
    EXPECT_TRUE(another_application_gets_control(id));
}

TEST_P(Connection, OfAStreamIsRefusedWhileTheCameraHasOne) {
    auto stream = open_stream(id);
    ASSERT_TRUE(stream);
    PvResult result;
    EXPECT_EQ(PvStream::CreateAndOpen(id, &result), nullptr);
    EXPECT_TRUE(has_code(result, PvResult::Code::GENERIC_ERROR));
    stream.reset();
    EXPECT_NE(open_stream(id), nullptr);
}

TEST_P(Connection, OfAStreamDoesNotConnectADisconnectedDevice) {
    auto const device = connect(id);
    ASSERT_TRUE(device);
    ASSERT_TRUE(ok(device->Disconnect()));
    auto const stream = open_stream(id);
    ASSERT_TRUE(stream);
    EXPECT_FALSE(device->IsConnected());
}

TEST_P(Connection, OfAStreamIsTakenOverByTheDevice) {
    auto stream = open_stream(id);
    auto const device = connect(id);
    ASSERT_TRUE(stream && device);
    stream.reset();
    EXPECT_TRUE(device->IsConnected());
}

TEST(ConnectionWithoutACamera, IsRefusedQuicklyWithoutACamera) {
    auto const start = clock::now();
    EXPECT_TRUE(has_code(try_to_connect("00:11:1c:00:00:07@127.0.0.9%127.0.0.1"), PvResult::Code::NOT_FOUND));
    EXPECT_LT(clock::now() - start, std::chrono::seconds(2));
}

TEST(ConnectionWithoutACamera, IsRefusedFromAnAddressThatTheHostDoesNotHave) {
    EXPECT_TRUE(has_code(try_to_connect("00:11:1c:00:00:07@127.0.0.1%10.9.9.9"), PvResult::Code::NOT_FOUND));
}

TEST(ConnectionWithoutACamera, IsRefusedForAnInvalidConnectionId) {
    for (char const* const text : {"", "127.0.0.1", "eth0"}) {
        EXPECT_TRUE(has_code(try_to_connect(text), PvResult::Code::INVALID_PARAMETER));
        PvResult result;
        EXPECT_EQ(PvStream::CreateAndOpen(text, &result), nullptr);
        EXPECT_TRUE(has_code(result, PvResult::Code::INVALID_PARAMETER));
    }
}

TEST(ConnectionWithoutACamera, DoesNotRequireAResultPointer) {
    EXPECT_EQ(PvDevice::CreateAndConnect("invalid", nullptr), nullptr);
    EXPECT_EQ(PvStream::CreateAndOpen("invalid", nullptr), nullptr);
}

TEST(ConnectionWithoutACamera, OfAStreamFailsWithTheReason) {
    PvResult result;
    EXPECT_EQ(PvStream::CreateAndOpen("00:11:1c:00:00:07@127.0.0.9%127.0.0.1", &result), nullptr);
    EXPECT_TRUE(has_code(result, PvResult::Code::NOT_FOUND));
}

TEST(Free, OfNothingIsHarmless) {
    PvDevice::Free(nullptr);
    PvStream::Free(nullptr);
}

TEST(ConnectionToAnotherCamera, IsRefusedUnderTheIdOfTheFirst) {
    auto first = start_camsim("127.0.0.1", {"--serial", "FIRST"});
    PvString const id = find_only_camera();
    first->kill();
    auto const second = start_camsim("127.0.0.1", {"--serial", "SECOND"});
    EXPECT_TRUE(has_code(try_to_connect(id.GetAscii()), PvResult::Code::NOT_FOUND));
    EXPECT_TRUE(try_to_connect(find_only_camera().GetAscii()).IsOK());
}

TEST(ConnectionToAnotherCamera, MovesADeviceToThatCamera) {
    auto const one = start_camsim("127.0.0.2", {"--serial", "ONE"});
    auto const two = start_camsim("127.0.0.3", {"--serial", "TWO"});
    PvSystem system;
    auto const devices = find_devices(system);
    ASSERT_EQ(devices.size(), 2U);
    auto const device = connect(devices[0]->GetConnectionID());
    ASSERT_TRUE(device);
    ASSERT_TRUE(ok(device->Connect(devices[1]->GetConnectionID())));
    PvString serial;
    ASSERT_TRUE(ok(device->GetParameters()->GetStringValue("DeviceSerialNumber", serial)));
    EXPECT_STREQ(serial.GetAscii(), devices[1]->GetSerialNumber().GetAscii());
    EXPECT_TRUE(another_application_gets_control(devices[0]->GetConnectionID())) << "the first camera was released";
}

namespace {

openpv::connection_id parse(PvString const& id) {
    return openpv::parse_connection_id(id.GetAscii()).value();
}

std::unique_ptr<openpv::camera_session> open_read_only(PvString const& id, PvResult& result) {
    return openpv::camera_session::open(
        parse(id), [] {}, result, openpv::session_mode::read_only);
}

}  // namespace

TEST_P(Connection, ToReadOnlyIsMadeBesideAnApplicationThatHasControl) {
    auto const device = connect(id);
    ASSERT_TRUE(device);
    test_process reader({own_program(), "--read-width", id.GetAscii()});
    EXPECT_EQ(reader.wait(), EXIT_SUCCESS);
    EXPECT_TRUE(device->IsConnected());
    int64_t value = 0;
    EXPECT_TRUE(ok(device->GetParameters()->GetIntegerValue("Width", value)));
}

TEST_P(Connection, ToReadOnlyDoesNotTakeControl) {
    PvResult result;
    auto const session = open_read_only(id, result);
    ASSERT_TRUE(session) << result.GetDescription().GetAscii();
    EXPECT_FALSE(camera_is_controlled());
    uint32_t value = 0;
    EXPECT_TRUE(session->registers().read_register(0, value).ok());
    EXPECT_TRUE(another_application_gets_control(id));
}

TEST(ConnectionToReadOnly, IsRefusedWhileAnotherApplicationHasExclusiveAccess) {
    auto const camera = start_camsim();
    ASSERT_TRUE(camera);
    PvString const id = find_only_camera();
    auto owner = openpv::gvcp_channel::open({loopback}, {loopback});
    ASSERT_TRUE(
        owner->write_register(openpv::gvcp::reg::control_channel_privilege, openpv::gvcp::privilege_exclusive).ok());
    PvResult result;
    EXPECT_FALSE(open_read_only(id, result));
    EXPECT_TRUE(has_code(result, PvResult::Code::GENERIC_ERROR));
}
