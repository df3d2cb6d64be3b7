#include "doctor/diagnosis.hpp"

#include <gmock/gmock.h>

#include <algorithm>

using namespace mediagrabber;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// Nothing is wrong with it.
machine sound_machine() {
    machine made;
    made.interfaces = {{.name = "eth0",
                        .mtu = 9000,
                        .rp_filter = 2,
                        .has_hardware = true,
                        .gro = true,
                        .udp_gro = true,
                        .gathers = true,
                        .rx_usecs = 50,
                        .ring = 4096,
                        .ring_most = 4096}};
    made.socket_room_most = 64'000'000;
    made.governors = {"performance"};
    made.clock_is_synchronised = true;
    made.firewall = firewall_state::open;
    return made;
}

constexpr demand modest{.frame_bytes = 1e6, .bytes_per_s = 100e6, .packet_bytes = {}};

/// The one finding that is not good.
finding only_complaint(machine const& about, demand const& asked = modest) {
    auto const all = diagnose(about, asked);
    auto const complaints = std::ranges::count_if(all, [](finding const& one) { return one.judged != verdict::good; });
    EXPECT_EQ(complaints, 1);
    auto const at = std::ranges::find_if(all, [](finding const& one) { return one.judged != verdict::good; });
    return at == all.end() ? finding{} : *at;
}

}  // namespace

TEST(Diagnosis, HasNothingToSayOfASoundMachine) {
    for (finding const& one : diagnose(sound_machine(), modest)) {
        EXPECT_EQ(one.judged, verdict::good) << one.what << ": " << one.found;
        EXPECT_THAT(one.command, IsEmpty());
    }
}

TEST(Diagnosis, FindsPacketsThatDoNotFitTheInterface) {
    auto about = sound_machine();
    about.interfaces[0].mtu = 1500;
    auto const found = only_complaint(about, {.frame_bytes = 1e6, .bytes_per_s = 1e8, .packet_bytes = 8192});
    EXPECT_EQ(found.judged, verdict::bad);
    EXPECT_EQ(found.command, "ip link set dev eth0 mtu 8192");
}

TEST(Diagnosis, AdvisesLargePacketsWhereTheirSizeIsNegotiated) {
    auto about = sound_machine();
    about.interfaces[0].mtu = 1500;
    EXPECT_EQ(only_complaint(about).judged, verdict::advice);
    EXPECT_EQ(only_complaint(about).command, "ip link set dev eth0 mtu 9000");
}

TEST(Diagnosis, AdvisesNoLargerPacketsThanAreConfigured) {
    auto about = sound_machine();
    about.interfaces[0].mtu = 1500;
    for (finding const& one : diagnose(about, {.frame_bytes = 1e6, .bytes_per_s = 1e8, .packet_bytes = 1400})) {
        EXPECT_EQ(one.judged, verdict::good) << one.what;
    }
}

TEST(Diagnosis, FindsSocketsWithoutRoomForTwoFrames) {
    auto about = sound_machine();
    about.socket_room_most = 1'999'999;
    auto const found = only_complaint(about);
    EXPECT_EQ(found.judged, verdict::bad);
    EXPECT_EQ(found.command, "sysctl -w net.core.rmem_max=2000000");
    about.may_exceed_socket_room = true;
    for (finding const& one : diagnose(about, modest)) {
        EXPECT_EQ(one.judged, verdict::good) << one.what;
    }
}

TEST(Diagnosis, FindsAStrictReversePathFilter) {
    auto about = sound_machine();
    about.interfaces[0].rp_filter = 1;
    EXPECT_THAT(only_complaint(about).command, HasSubstr("net.ipv4.conf.eth0.rp_filter=2"));
}

TEST(Diagnosis, FindsACardThatMergesNothing) {
    auto about = sound_machine();
    about.interfaces[0].udp_gro = false;
    EXPECT_EQ(only_complaint(about).command, "ethtool -K eth0 gro on rx-udp-gro-forwarding on");
    about.interfaces[0].gro = std::nullopt;
    EXPECT_EQ(only_complaint(about).judged, verdict::unknown);
}

TEST(Diagnosis, FindsACardThatInterruptsForEachPacket) {
    auto about = sound_machine();
    about.interfaces[0].rx_usecs = 0;
    EXPECT_EQ(only_complaint(about).command, "ethtool -C eth0 rx-usecs 50");
}

TEST(Diagnosis, FindsACardWithLessRoomThanItCouldHave) {
    auto about = sound_machine();
    about.interfaces[0].ring = 256;
    EXPECT_EQ(only_complaint(about).command, "ethtool -G eth0 rx 4096");
}

TEST(Diagnosis, AsksNoCardWhereThereIsNone) {
    auto about = sound_machine();
    about.interfaces[0] = network_interface();
    about.interfaces[0].name = "lo";
    about.interfaces[0].mtu = 65536;
    for (finding const& one : diagnose(about, modest)) {
        EXPECT_EQ(one.judged, verdict::good) << one.what;
    }
}

TEST(Diagnosis, FindsWhatWasDropped) {
    auto about = sound_machine();
    about.datagrams_dropped = 17;
    EXPECT_THAT(only_complaint(about).found, HasSubstr("17"));
}

TEST(Diagnosis, FindsAClockThatNobodySets) {
    auto about = sound_machine();
    about.clock_is_synchronised = false;
    EXPECT_EQ(only_complaint(about).judged, verdict::bad);
    about.clock_is_synchronised = std::nullopt;
    EXPECT_EQ(only_complaint(about).judged, verdict::unknown);
}

TEST(Diagnosis, FindsAProcessorThatSavesPower) {
    auto about = sound_machine();
    about.governors = {"performance", "powersave"};
    EXPECT_EQ(only_complaint(about).found, "performance, powersave");
}

TEST(Diagnosis, FindsAFirewall) {
    auto about = sound_machine();
    about.firewall = firewall_state::filters;
    EXPECT_EQ(only_complaint(about).judged, verdict::bad);
    about.firewall = firewall_state::unknown;
    EXPECT_EQ(only_complaint(about).judged, verdict::unknown);
}

TEST(Diagnosis, WantsADiskFasterThanTheFrames) {
    EXPECT_EQ(judge_disk(151e6, modest, "/here").judged, verdict::good);
    EXPECT_EQ(judge_disk(149e6, modest, "/here").judged, verdict::advice);
    EXPECT_EQ(judge_disk(99e6, modest, "/here").judged, verdict::bad);
}

TEST(Diagnosis, KnowsWhatAConfigurationAsksFor) {
    configuration configured;
    EXPECT_GT(demand_of(configured).bytes_per_s, 100e6);
    configured.width = 641;
    configured.height = 480;
    configured.format = 2;  // two pixels in three bytes
    configured.frame_rate = 100.0F;
    configured.packet_size = 1400;
    auto const asked = demand_of(configured);
    EXPECT_EQ(asked.frame_bytes, 962 * 480);
    EXPECT_EQ(asked.bytes_per_s, 962 * 480 * 100);
    EXPECT_EQ(asked.packet_bytes, 1400U);
}
