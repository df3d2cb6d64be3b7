// SPDX-License-Identifier: MIT
#include "gvcp/gvcp_discovery.hpp"

#include <vector>

#include <gtest/gtest.h>

using openpv::add_acknowledge;
using openpv::discovered_interface;

namespace {

constexpr std::uint16_t request = 7;

/// An acknowledge of the request, with a MAC address that ends with `number`.
std::vector<std::byte> acknowledge(std::uint8_t number) {
    std::vector<std::byte> message(openpv::gvcp::header_bytes + openpv::gvcp::discovery_data_bytes);
    message[3] = std::byte{3};  // DISCOVERY_ACK
    message[5] = std::byte{openpv::gvcp::discovery_data_bytes};
    message[7] = std::byte{request};
    message[openpv::gvcp::header_bytes + 15] = std::byte{number};
    return message;
}

}  // namespace

TEST(GvcpDiscovery, LimitsTheCamerasOfASender) {
    discovered_interface found;
    for (std::uint8_t number = 1; number < 100; ++number) {
        add_acknowledge(found, acknowledge(number), {0x0A000063}, {}, request);
    }
    add_acknowledge(found, acknowledge(200), {0x0A000005}, {}, request);
    EXPECT_EQ(found.cameras.size(), std::size_t{openpv::max_cameras_of_sender} + 1);
    EXPECT_EQ(found.cameras.back().camera.value, 0x0A000005U);
}

TEST(GvcpDiscovery, ListsTwoCamerasWithTheSameAddress) {
    discovered_interface found;
    for (int i = 0; i < 2; ++i) {
        add_acknowledge(found, acknowledge(1), {0x0A000005}, {}, request);
        add_acknowledge(found, acknowledge(2), {0x0A000005}, {}, request);
    }
    EXPECT_EQ(found.cameras.size(), 2U);
}

TEST(GvcpDiscovery, ListsACameraOncePerAddress) {
    discovered_interface found;
    for (std::uint32_t const sender : {0x0A000005U, 0x0A000006U, 0x0A000005U}) {
        add_acknowledge(found, acknowledge(1), {sender}, {0x0A000001}, request);
    }
    ASSERT_EQ(found.cameras.size(), 2U);
    EXPECT_EQ(found.cameras[0].camera.value, 0x0A000005U);
    EXPECT_EQ(found.cameras[0].host.value, 0x0A000001U);
    EXPECT_EQ(found.cameras[1].camera.value, 0x0A000006U);
}

TEST(GvcpDiscovery, LimitsTheCamerasOfAnInterface) {
    discovered_interface found;
    for (std::uint32_t sender = 1; sender <= openpv::max_cameras + 10; ++sender) {
        add_acknowledge(found, acknowledge(1), {sender}, {}, request);
    }
    EXPECT_EQ(found.cameras.size(), openpv::max_cameras);
}

TEST(GvcpDiscovery, IgnoresAcknowledgesOfOtherRequests) {
    discovered_interface found;
    add_acknowledge(found, acknowledge(1), {1}, {}, request + 1);
    EXPECT_TRUE(found.cameras.empty());
}
