// SPDX-License-Identifier: MIT
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "private_network.hpp"
#include "test_camera.hpp"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace {

std::vector<std::string> find_interface_names() {
    PvSystem system;
    EXPECT_TRUE(ok(system.Find()));
    std::vector<std::string> names;
    for (uint32_t i = 0; i < system.GetInterfaceCount(); ++i) {
        names.emplace_back(system.GetInterface(i)->GetDisplayID().GetAscii());
    }
    return names;
}

}  // namespace

TEST(Discovery, FindsNothingBeforeASearch) {
    PvSystem const system;
    EXPECT_EQ(system.GetInterfaceCount(), 0U);
    EXPECT_EQ(system.GetInterface(0), nullptr);
}

TEST(Discovery, ListsLoopbackWithoutACamera) {
    PvSystem system;
    EXPECT_TRUE(find_devices(system).empty());
    ASSERT_EQ(system.GetInterfaceCount(), 1U);
    EXPECT_STREQ(system.GetInterface(0)->GetDisplayID().GetAscii(), "lo [127.0.0.1]");
    EXPECT_EQ(system.GetInterface(0)->GetDeviceInfo(0), nullptr);
    EXPECT_EQ(system.GetInterface(1), nullptr);
}

TEST(Discovery, IdentifiesAravissCamera) {
    auto const camera = start_aravis_camera({"-s", "AB123"});
    PvSystem system;
    auto const devices = find_devices(system);
    ASSERT_EQ(devices.size(), 1U);
    PvDeviceInfo const& info = *devices.front();
    EXPECT_EQ(info.GetType(), PvDeviceInfoTypeGEV);
    EXPECT_STREQ(info.GetVendorName().GetAscii(), "Aravis");
    EXPECT_STREQ(info.GetModelName().GetAscii(), "Fake");
    EXPECT_THAT(info.GetVersion().GetAscii(), HasSubstr("0.8"));
    EXPECT_STREQ(info.GetSerialNumber().GetAscii(), "AB123");
    EXPECT_STREQ(info.GetDisplayID().GetAscii(), "Fake [127.0.0.1] serial AB123");
}

TEST(Discovery, IdentifiesCamsim) {
    auto const camera = start_camsim("127.0.0.1", {"--model", "GO-2400M-PGE", "--serial", "U7", "--user-name", "left",
                                                   "--mac", "00:11:1c:00:00:07"});
    PvSystem system;
    auto const devices = find_devices(system);
    ASSERT_EQ(devices.size(), 1U);
    PvDeviceInfo const& info = *devices.front();
    EXPECT_STREQ(info.GetVendorName().GetAscii(), "JAI Corporation");
    EXPECT_STREQ(info.GetModelName().GetAscii(), "GO-2400M-PGE");
    EXPECT_THAT(info.GetVersion().GetAscii(), HasSubstr("camsim"));
    EXPECT_STREQ(info.GetSerialNumber().GetAscii(), "U7");
    EXPECT_STREQ(info.GetDisplayID().GetAscii(), "GO-2400M-PGE [127.0.0.1] serial U7 \"left\"");
    EXPECT_STREQ(info.GetConnectionID().GetAscii(), "00:11:1c:00:00:07@127.0.0.1%127.0.0.1");
}

TEST(Discovery, FollowsCamerasThatAppearAndDisappear) {
    PvSystem system;
    EXPECT_EQ(find_devices(system).size(), 0U);
    auto const camera = start_camsim();
    EXPECT_EQ(find_devices(system).size(), 1U);
    camera->kill();
    EXPECT_EQ(find_devices(system).size(), 0U);
}

TEST(Discovery, DistinguishesTwoCamerasOfOneModel) {
    auto const one = start_camsim("127.0.0.2", {"--serial", "ONE"});
    auto const two = start_camsim("127.0.0.3", {"--serial", "TWO"});
    PvSystem system;
    auto const devices = find_devices(system);
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_NE(devices[0]->GetConnectionID(), devices[1]->GetConnectionID());
    for (PvDeviceInfo const* const info : devices) {
        auto const device = connect(info->GetConnectionID());
        ASSERT_TRUE(device);
        PvString serial;
        ASSERT_TRUE(ok(device->GetParameters()->GetStringValue("DeviceSerialNumber", serial)));
        EXPECT_STREQ(serial.GetAscii(), info->GetSerialNumber().GetAscii());
    }
}

TEST(Discovery, ListsEveryInterfaceThatIsUpAndHasAnAddressOnceAndInTheSameOrder) {
    ASSERT_TRUE(
        run_command("ip link add cam1 type veth peer name cam2 && ip link add down1 type veth peer name bare1"));
    ASSERT_TRUE(run_command("ip addr add 10.1.0.1/24 dev cam1 && ip addr add 10.2.0.1/24 label cam1:9 dev cam1"));
    ASSERT_TRUE(run_command("ip addr add 10.3.0.1/24 dev down1 && ip addr add 10.4.0.1/24 dev cam2"));
    ASSERT_TRUE(run_command("ip link set cam1 up && ip link set cam2 up && ip link set bare1 up"));
    auto const first = find_interface_names();
    EXPECT_THAT(first, UnorderedElementsAre("lo [127.0.0.1]", "cam1 [10.1.0.1, 10.2.0.1]", "cam2 [10.4.0.1]"));
    EXPECT_EQ(find_interface_names(), first);
    EXPECT_TRUE(run_command("ip link del cam1 && ip link del down1"));
}

TEST(Discovery, AssignsACameraToTheInterfaceOnWhichItResponds) {
    auto const near = start_camsim("127.0.0.1", {"--serial", "NEAR"});
    cable_to_camsim const far(1500);
    PvSystem system;
    ASSERT_TRUE(ok(system.Find()));
    std::map<std::string, std::vector<std::string>> serials;
    for (uint32_t i = 0; i < system.GetInterfaceCount(); ++i) {
        PvInterface const& interface = *system.GetInterface(i);
        for (uint32_t k = 0; k < interface.GetDeviceCount(); ++k) {
            serials[interface.GetDisplayID().GetAscii()].emplace_back(
                interface.GetDeviceInfo(k)->GetSerialNumber().GetAscii());
        }
    }
    EXPECT_THAT(serials, UnorderedElementsAre(Pair("lo [127.0.0.1]", ElementsAre("NEAR")),
                                              Pair("cable [10.1.0.1]", ElementsAre("CS000001"))));
}
