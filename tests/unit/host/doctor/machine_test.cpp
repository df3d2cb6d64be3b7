// SPDX-License-Identifier: MIT
#include "doctor/machine.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "doctor/disk_speed.hpp"
#include "doctor/ethtool.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::ElementsAre;

namespace {

/// The files of /proc and /sys that the check reads.
class Machine : public testing::Test {
protected:
    void write(std::string const& file, std::string const& text) const {
        auto const path = root.path() / file;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }
    machine examine() const { return examine_machine(root.path(), "lo"); }

    temporary_directory root;
};

}  // namespace

TEST_F(Machine, HasDefaultsWithoutFiles) {
    auto const found = examine();
    EXPECT_EQ(found.max_receive_buffer, 0U);
    EXPECT_EQ(found.datagrams_dropped, 0U);
    EXPECT_TRUE(found.governors.empty());
    EXPECT_FALSE(found.may_exceed_max_receive_buffer);
    ASSERT_EQ(found.interfaces.size(), 1U);
    EXPECT_FALSE(found.interfaces[0].defers.has_value());
}

TEST_F(Machine, ReadsTheMaximumReceiveBuffer) {
    write("proc/sys/net/core/rmem_max", "212992\n");
    EXPECT_EQ(examine().max_receive_buffer, 212'992U);
}

TEST_F(Machine, MayExceedTheReceiveBufferWithTheCapability) {
    write("proc/self/status", "Name:\tx\nCapEff:\t0000000000001000\n");
    EXPECT_TRUE(examine().may_exceed_max_receive_buffer);
    write("proc/self/status", "Name:\tx\nCapEff:\t0000000000000000\n");
    EXPECT_FALSE(examine().may_exceed_max_receive_buffer);
}

TEST_F(Machine, ReadsDroppedDatagrams) {
    write("proc/net/snmp",
          "Ip: Forwarding\nIp: 1\nUdp: InDatagrams NoPorts InErrors OutDatagrams RcvbufErrors SndbufErrors\n"
          "Udp: 100 2 42 300 41 0\nUdpLite: RcvbufErrors\nUdpLite: 7\n");
    EXPECT_EQ(examine().datagrams_dropped, 41U);
}

TEST_F(Machine, ListsEachGovernorOnce) {
    for (std::string const cpu : {"cpu0", "cpu1", "cpu2"}) {
        write("sys/devices/system/cpu/" + cpu + "/cpufreq/scaling_governor",
              cpu == "cpu1" ? "powersave" : "performance");
    }
    EXPECT_THAT(examine().governors, ElementsAre("performance", "powersave"));
}

TEST_F(Machine, HasTheStricterReversePathFilterOfTwo) {
    write("proc/sys/net/ipv4/conf/all/rp_filter", "0");
    write("proc/sys/net/ipv4/conf/lo/rp_filter", "2");
    auto const found = examine().interfaces.at(0);
    EXPECT_EQ(found.rp_filter, 2U);
    EXPECT_GT(found.mtu, 0U);
    EXPECT_FALSE(found.has_hardware);
}

TEST_F(Machine, DetectsDeferredProcessing) {
    write("sys/class/net/lo/threaded", "0");
    write("sys/class/net/lo/gro_flush_timeout", "50000");
    write("sys/class/net/lo/napi_defer_hard_irqs", "0");
    EXPECT_EQ(examine().interfaces.at(0).defers, false);
    write("sys/class/net/lo/napi_defer_hard_irqs", "2");
    EXPECT_EQ(examine().interfaces.at(0).defers, true);
    write("sys/class/net/lo/threaded", "1");
    write("sys/class/net/lo/gro_flush_timeout", "0");
    EXPECT_EQ(examine().interfaces.at(0).defers, true);
}

TEST_F(Machine, ReportsAnUnknownInterface) {
    EXPECT_THROW(examine_machine(root.path(), "no-such-interface"), std::runtime_error);
}

TEST(Ethtool, ReadsFeaturesOfTheLoopbackInterface) {
    ethtool const card("lo");
    EXPECT_EQ(card.feature("loopback"), true);
    EXPECT_EQ(card.feature("no such feature"), std::nullopt);
}

TEST(Ethtool, ReturnsNothingForAnUnknownInterface) {
    EXPECT_EQ(ethtool("no-such-card").feature("loopback"), std::nullopt);
}

TEST(DiskSpeed, IsMeasuredWithoutLeavingAFile) {
    temporary_directory const here;
    EXPECT_GT(measure_disk(here.path(), 5'000'001), 0.0);
    EXPECT_TRUE(std::filesystem::is_empty(here.path()));
}

TEST(DiskSpeed, ThrowsForAMissingDirectory) {
    EXPECT_THROW(measure_disk("/no/such/directory", 1), std::system_error);
}
