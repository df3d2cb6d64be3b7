// SPDX-License-Identifier: MIT
#include "camera/camera_finder.hpp"

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model_camera.hpp"

using gevctl::choose_camera;
using gevctl::exit_status;
using gevctl::found_camera;
using testing::HasSubstr;

namespace {

found_camera camera(std::uint64_t mac, std::string const& serial, std::string const& name, std::uint32_t address,
                    bool reachable = true) {
    found_camera one;
    one.identity.mac = mac;
    one.identity.model = "GO";
    one.identity.serial = serial;
    one.identity.user_name = name;
    one.address = {address};
    one.reachable = reachable;
    return one;
}

std::vector<found_camera> const two{camera(0x00111c000001, "S1", "left", 0x0A000005),
                                    camera(0x00111c000002, "S2", "right", 0x0A000006)};

}  // namespace

TEST(CameraChoice, AcceptsSerialNumberNameMacAddressAndAddress) {
    for (char const* const name : {"S2", "right", "00:11:1C:00:00:02", "10.0.0.6"}) {
        EXPECT_EQ(choose_camera(two, name).identity.serial, "S2") << name;
    }
}

TEST(CameraChoice, NeedsNoNameIfThereIsOneCamera) {
    EXPECT_EQ(choose_camera({two[0]}, "").identity.serial, "S1");
}

TEST(CameraChoice, ListsTheCamerasIfSeveralArePossible) {
    auto const choose = [] { choose_camera(two, ""); };
    EXPECT_EQ(status_of(choose), exit_status::no_camera);
    EXPECT_THAT(message_of(choose), HasSubstr("GO S1 (10.0.0.5), MAC address 00:11:1c:00:00:01, name \"left\""));
    EXPECT_THAT(message_of(choose), HasSubstr("GO S2 (10.0.0.6)"));
}

TEST(CameraChoice, ListsTheCamerasIfNoneHasTheName) {
    auto const choose = [] { choose_camera({two[0]}, "S9"); };
    EXPECT_EQ(status_of(choose), exit_status::no_camera);
    EXPECT_THAT(message_of(choose), HasSubstr("\"S9\". Found:\n  GO S1"));
}

TEST(CameraChoice, RefusesANameThatTwoCamerasHave) {
    std::vector<found_camera> const same{camera(1, "S1", "x", 1), camera(2, "S2", "x", 2)};
    EXPECT_THAT(message_of([&] { choose_camera(same, "x"); }), HasSubstr("Use the MAC address"));
}

TEST(CameraChoice, CountsACameraOnTwoInterfacesOnceAndPrefersTheReachableOne) {
    std::vector<found_camera> const same{camera(1, "S1", "", 5, false), camera(1, "S1", "", 6, true)};
    EXPECT_EQ(choose_camera(same, "").address.value, 6U);
}

TEST(CameraChoice, FailsWithoutACamera) {
    EXPECT_EQ(status_of([] { choose_camera({}, ""); }), exit_status::no_camera);
}

TEST(AddressSuggestion, IsTheLowestUnknownAddressInTheSubnetOfTheInterface) {
    openpv::network_interface const host{1, "eth0", {{0x0A000001}}, {{0xFFFFFF00}}};
    std::set<std::uint32_t> known{0x0A000002};
    EXPECT_EQ(gevctl::suggest_address(host, known), "10.0.0.3/24");
}

TEST(AddressSuggestion, IsAnotherOneForEachCamera) {
    openpv::network_interface const host{1, "eth0", {{0x0A000001}}, {{0xFFFFFF00}}};
    std::set<std::uint32_t> known;
    EXPECT_EQ(gevctl::suggest_address(host, known), "10.0.0.2/24");
    EXPECT_EQ(gevctl::suggest_address(host, known), "10.0.0.3/24");
}

TEST(AddressSuggestion, LeavesOutGatewaysAndNeighbours) {
    std::istringstream routes(
        "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
        "eth0\t00000000\t0200000A\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"
        "eth0\t0000000A\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n");
    EXPECT_THAT(gevctl::gateways_in(routes), testing::ElementsAre(0x0A000002U));
    std::istringstream arp_table(
        "IP address       HW type     Flags       HW address            Mask     Device\n"
        "10.0.0.3         0x1         0x2         02:00:00:00:00:01     *        eth0\n"
        "10.0.0.4         0x1         0x0         00:00:00:00:00:00     *        eth0\n");
    EXPECT_THAT(gevctl::neighbours_in(arp_table), testing::ElementsAre(0x0A000003U));
    EXPECT_THAT(gevctl::known_addresses({camera(1, "", "", 0x0A000005)}), testing::Contains(0x0A000005U));
}

TEST(AddressSuggestion, IsNoneInASubnetWithoutAFreeAddress) {
    openpv::network_interface const host{1, "eth0", {{0x0A000001}}, {{0xFFFFFFFF}}};
    std::set<std::uint32_t> known;
    EXPECT_EQ(gevctl::suggest_address(host, known), std::nullopt);
}

TEST(CameraDescription, NamesTheFirstWayToGetAnAddress) {
    auto one = two[0];
    EXPECT_EQ(ip_mode_of(one), "link-local");
    one.identity.ip_methods = 6;
    EXPECT_EQ(ip_mode_of(one), "dhcp");
    one.identity.ip_methods = 7;
    EXPECT_EQ(ip_mode_of(one), "persistent");
}

TEST(CameraDescription, NamesTheApplicationWithControl) {
    EXPECT_EQ(to_text(gevctl::controller{false, openpv::ipv4_address{0x0A000001}, 4711}), "10.0.0.1:4711");
    EXPECT_EQ(to_text(gevctl::controller{true, std::nullopt, 0}), "another program (exclusive)");
}
