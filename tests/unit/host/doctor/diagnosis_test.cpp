// SPDX-License-Identifier: MIT
#include "doctor/diagnosis.hpp"

#include <gmock/gmock.h>

#include <algorithm>

using namespace mediagrabber;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// A machine without findings.
machine sound_machine() {
    machine made;
    made.interfaces = {{.name = "eth0",
                        .mtu = 9000,
                        .rp_filter = 2,
                        .has_hardware = true,
                        .gro = true,
                        .udp_gro = true,
                        .defers = true,
                        .rx_usecs = 50,
                        .rx_ring = 4096,
                        .max_rx_ring = 4096}};
    made.max_receive_buffer = 64'000'000;
    made.governors = {"performance"};
    made.clock_is_synchronised = true;
    made.firewall = firewall_state::open;
    return made;
}

constexpr demand modest{.frame_bytes = 1e6, .bytes_per_s = 100e6, .packet_bytes = {}};

/// The one finding that is not good.
finding only_complaint(machine const& about, demand const& needed = modest) {
    auto const all = diagnose(about, needed);
    auto const complaints = std::ranges::count_if(all, [](finding const& one) { return one.level != severity::good; });
    EXPECT_EQ(complaints, 1);
    auto const at = std::ranges::find_if(all, [](finding const& one) { return one.level != severity::good; });
    return at == all.end() ? finding{} : *at;
}

}  // namespace

TEST(Diagnosis, FindsNothingOnAWellConfiguredMachine) {
    for (finding const& one : diagnose(sound_machine(), modest)) {
        EXPECT_EQ(one.level, severity::good) << one.what << ": " << one.found;
        EXPECT_THAT(one.command, IsEmpty());
    }
}

TEST(Diagnosis, FindsPacketsThatDoNotFitTheInterface) {
    auto about = sound_machine();
    about.interfaces[0].mtu = 1500;
    auto const found = only_complaint(about, {.frame_bytes = 1e6, .bytes_per_s = 1e8, .packet_bytes = 8192});
    EXPECT_EQ(found.level, severity::bad);
    EXPECT_EQ(found.command, "ip link set dev eth0 mtu 8192");
}

TEST(Diagnosis, AdvisesLargePacketsIfTheirSizeIsNegotiated) {
    auto about = sound_machine();
    about.interfaces[0].mtu = 1500;
    EXPECT_EQ(only_complaint(about).level, severity::advice);
    EXPECT_EQ(only_complaint(about).command, "ip link set dev eth0 mtu 9000");
}

TEST(Diagnosis, AdvisesNoLargerPacketsThanAreConfigured) {
    auto about = sound_machine();
    about.interfaces[0].mtu = 1500;
    for (finding const& one : diagnose(about, {.frame_bytes = 1e6, .bytes_per_s = 1e8, .packet_bytes = 1400})) {
        EXPECT_EQ(one.level, severity::good) << one.what;
    }
}

TEST(Diagnosis, FindsAReceiveBufferBelowTwoFrames) {
    auto about = sound_machine();
    about.max_receive_buffer = 1'999'999;
    auto const found = only_complaint(about);
    EXPECT_EQ(found.level, severity::bad);
    EXPECT_EQ(found.command, "sysctl -w net.core.rmem_max=2000000");
    EXPECT_TRUE(found.until_reboot);
    about.may_exceed_max_receive_buffer = true;
    for (finding const& one : diagnose(about, modest)) {
        EXPECT_EQ(one.level, severity::good) << one.what;
    }
}

TEST(Diagnosis, FindsAStrictReversePathFilter) {
    auto about = sound_machine();
    about.interfaces[0].rp_filter = 1;
    EXPECT_THAT(only_complaint(about).command, HasSubstr("net.ipv4.conf.eth0.rp_filter=2"));
}

TEST(Diagnosis, FindsReceiveOffloadSwitchedOff) {
    auto about = sound_machine();
    about.interfaces[0].udp_gro = false;
    EXPECT_EQ(only_complaint(about).command, "ethtool -K eth0 gro on rx-udp-gro-forwarding on");
    about.interfaces[0].gro = std::nullopt;
    EXPECT_EQ(only_complaint(about).level, severity::unknown);
}

TEST(Diagnosis, FindsInterruptModerationSwitchedOff) {
    auto about = sound_machine();
    about.interfaces[0].rx_usecs = 0;
    EXPECT_EQ(only_complaint(about).command, "ethtool -C eth0 rx-usecs 50");
}

TEST(Diagnosis, FindsASmallRxRing) {
    auto about = sound_machine();
    about.interfaces[0].rx_ring = 256;
    EXPECT_EQ(only_complaint(about).command, "ethtool -G eth0 rx 4096");
}

TEST(Diagnosis, SkipsCardChecksWithoutHardware) {
    auto about = sound_machine();
    about.interfaces[0] = network_interface();
    about.interfaces[0].name = "lo";
    about.interfaces[0].mtu = 65536;
    for (finding const& one : diagnose(about, modest)) {
        EXPECT_EQ(one.level, severity::good) << one.what;
    }
}

TEST(Diagnosis, FindsDroppedDatagrams) {
    auto about = sound_machine();
    about.datagrams_dropped = 17;
    EXPECT_THAT(only_complaint(about).found, HasSubstr("17"));
}

TEST(Diagnosis, FindsAnUnsynchronisedClock) {
    auto about = sound_machine();
    about.clock_is_synchronised = false;
    EXPECT_EQ(only_complaint(about).level, severity::bad);
    EXPECT_FALSE(only_complaint(about).until_reboot);
    about.clock_is_synchronised = std::nullopt;
    EXPECT_EQ(only_complaint(about).level, severity::unknown);
}

TEST(Diagnosis, FindsAPowerSavingGovernor) {
    auto about = sound_machine();
    about.governors = {"performance", "powersave"};
    EXPECT_EQ(only_complaint(about).found, "performance, powersave");
}

TEST(Diagnosis, FindsAFirewall) {
    auto about = sound_machine();
    about.firewall = firewall_state::filters;
    EXPECT_EQ(only_complaint(about).level, severity::bad);
    about.firewall = firewall_state::unknown;
    EXPECT_EQ(only_complaint(about).level, severity::unknown);
}

TEST(Diagnosis, EvaluatesTheDiskSpeed) {
    EXPECT_EQ(evaluate_disk(151e6, modest, "/here").level, severity::good);
    EXPECT_EQ(evaluate_disk(149e6, modest, "/here").level, severity::advice);
    EXPECT_EQ(evaluate_disk(99e6, modest, "/here").level, severity::bad);
}

TEST(Diagnosis, DerivesTheDemandFromTheConfiguration) {
    configuration configured;
    EXPECT_GT(demand_of(configured).bytes_per_s, 100e6);
    configured.image.width = 641;
    configured.image.height = 480;
    configured.image.format = format_code::Mono12Packed;  // two pixels in three bytes
    configured.timing.frame_rate_hz = 100.0F;
    configured.transport.packet_size_bytes = 1400;
    auto const needed = demand_of(configured);
    EXPECT_EQ(needed.frame_bytes, 962 * 480);
    EXPECT_EQ(needed.bytes_per_s, 962 * 480 * 100);
    EXPECT_EQ(needed.packet_bytes, 1400U);
}

TEST(CameraEvaluation, ShowsHowACameraInAnotherSubnetIsReached) {
    listed_camera const away{.name = "GO-5100M S1",
                             .address = "10.9.9.9",
                             .interface = "eth0",
                             .reachable = false,
                             .controlled_by = {},
                             .command_to_reach = "gevctl force-ip 00:11:1c:00:00:01 192.168.1.2/24"};
    auto const found = evaluate_cameras(std::vector{away});
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].level, severity::bad);
    EXPECT_EQ(found[0].what, "eth0: camera GO-5100M S1");
    EXPECT_THAT(found[0].found, HasSubstr("10.9.9.9"));
    EXPECT_EQ(found[0].command, away.command_to_reach);
}

TEST(CameraEvaluation, OnlyAdvisesWhileAnotherCameraIsReachable) {
    listed_camera here{.name = "A 1",
                       .address = "10.0.0.5",
                       .interface = "eth0",
                       .reachable = true,
                       .controlled_by = "10.0.0.1",
                       .command_to_reach = {}};
    listed_camera away{.name = "B 2",
                       .address = "10.9.9.9",
                       .interface = "eth0",
                       .reachable = false,
                       .controlled_by = {},
                       .command_to_reach = {}};
    auto const found = evaluate_cameras(std::vector{here, away});
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].level, severity::good);
    EXPECT_EQ(found[0].found, "reachable at 10.0.0.5, controlled by 10.0.0.1");
    EXPECT_EQ(found[1].level, severity::advice);
    EXPECT_EQ(found[1].wanted, "a response; does another device have this address?");
    EXPECT_EQ(found[1].command, "gevctl list");
}

TEST(CameraEvaluation, ReportsAMissingCameraAndAMissingSearch) {
    EXPECT_EQ(evaluate_cameras(std::vector<listed_camera>()).at(0).level, severity::advice);
    EXPECT_EQ(evaluate_cameras(std::nullopt).at(0).level, severity::unknown);
}

TEST(CameraList, RefusesWhatIsNotAList) {
    for (char const* text : {"", "gevctl: error", "{}x", "[1]", R"([{"model": 5}])", R"({"model": "A"})"}) {
        EXPECT_FALSE(parse_camera_list(text)) << text;
    }
    EXPECT_TRUE(parse_camera_list("[]"));
}
