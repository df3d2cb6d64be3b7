// SPDX-License-Identifier: MIT
#include "gvsp/packet_loss_report.hpp"

#include <string>

#include <gtest/gtest.h>

using namespace openpv;

TEST(PacketLossReport, IsEmptyWithoutLosses) {
    assembler_counters counted;
    counted.blocks_complete = 1000;
    counted.packets_duplicate = 1;
    EXPECT_EQ(describe_losses(counted, 7), "");
    EXPECT_EQ(format_record(counted, 0), "");
}

TEST(PacketLossReport, DescribesResendsThatPreventedALoss) {
    assembler_counters counted;
    counted.blocks_complete = 1000;
    counted.packets_resend_requested = 4;
    counted.packets_resent = 3;
    EXPECT_EQ(describe_losses(counted, 7), "4 packet resends requested, 3 packets resent; no frames lost");
}

TEST(PacketLossReport, DistinguishesLossInTheNetworkFromLocalDrops) {
    assembler_counters counted;
    counted.blocks_incomplete = 2;
    counted.packets_lost = 5;
    counted.packets_resend_requested = 9;
    counted.packets_resent = 1;
    EXPECT_EQ(describe_losses(counted, 0),
              "2 frames incomplete, 5 packets lost, 9 packet resends requested, 1 packets resent; no local drops: "
              "packets were lost in the network");
    EXPECT_EQ(describe_losses(counted, 5),
              "2 frames incomplete, 5 packets lost, 9 packet resends requested, 1 packets resent; 5 packets dropped: "
              "socket receive buffer full (net.core.rmem_max)");
}

TEST(PacketLossReport, DescribesWhyFramesAreMissing) {
    assembler_counters counted;
    counted.blocks_missing = 1;
    counted.blocks_without_buffer = 2;
    counted.blocks_too_large = 3;
    EXPECT_EQ(describe_losses(counted, 0),
              "1 frames lost entirely, 2 frames without a queued buffer, 3 frames larger than their buffer");
}

TEST(PacketLossReport, FormatsARecordWithAllCounts) {
    assembler_counters counted;
    counted.packets_resend_requested = 1;
    counted.packets_resent = 2;
    counted.packets_lost = 3;
    counted.blocks_incomplete = 5;
    counted.blocks_missing = 6;
    counted.blocks_without_buffer = 7;
    counted.blocks_too_large = 8;
    EXPECT_EQ(format_record(counted, 4),
              "openpv-stream-statistics: packets_resend_requested=1 packets_resent=2 packets_lost=3 "
              "packets_dropped_by_socket=4 frames_incomplete=5 frames_missing=6 frames_without_buffer=7 "
              "frames_too_large=8");
}

TEST(PacketLossReport, LeavesCountsOfZeroOutOfTheRecord) {
    assembler_counters counted;
    counted.packets_lost = 12;
    counted.blocks_incomplete = 1;
    counted.blocks_complete = 100;
    EXPECT_EQ(format_record(counted, 0), "openpv-stream-statistics: packets_lost=12 frames_incomplete=1");
}

TEST(PacketLossReport, WarnsOnceOfASmallReceiveBufferAndNamesTheSetting) {
    testing::internal::CaptureStderr();
    warn_small_receive_buffer({0x7F000001}, 212'992, 2'621'440);
    warn_small_receive_buffer({0x7F000001}, 212'992, 2'621'440);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "openpv: stream from 127.0.0.1: warning: the socket receive buffer holds 212992 bytes, less than two "
              "frames; packets are lost when this machine is busy. Raise the limit: "
              "sysctl -w net.core.rmem_max=2621440\n");
    testing::internal::CaptureStderr();
    warn_small_receive_buffer({0x7F000001}, 212'992, 2'621'439);
    warn_small_receive_buffer({0x7F000001}, 212'992, 2'621'440);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    warn_small_receive_buffer({0x7F000001}, 212'992, 2'621'441);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("rmem_max=2621441\n"), std::string::npos) << "a larger need";
}

namespace {

class PacketLossLog : public testing::Test {
protected:
    packet_loss_log::time_point const start_{};
    packet_loss_log log_{{0x7F000001}, start_};
    assembler_counters counted_;

    std::string logged_after(std::chrono::seconds when, uint64_t drops = 0) {
        testing::internal::CaptureStderr();
        log_.poll(counted_, drops, start_ + when);
        return testing::internal::GetCapturedStderr();
    }
    std::string logged_at_the_end(uint64_t drops = 0) {
        testing::internal::CaptureStderr();
        log_.flush(counted_, drops);
        return testing::internal::GetCapturedStderr();
    }
};

}  // namespace

TEST_F(PacketLossLog, ReportsLostFramesAtMostEveryTenSeconds) {
    counted_.blocks_incomplete = 2;
    EXPECT_EQ(logged_after(std::chrono::seconds(9)), "");
    EXPECT_EQ(logged_after(std::chrono::seconds(10)),
              "openpv: stream from 127.0.0.1: 2 frames incomplete\n"
              "openpv: stream from 127.0.0.1: openpv-stream-statistics: frames_incomplete=2\n");
    counted_.blocks_incomplete = 5;
    EXPECT_EQ(logged_after(std::chrono::seconds(19)), "");
    EXPECT_NE(logged_after(std::chrono::seconds(20)).find("3 frames incomplete"), std::string::npos);
    EXPECT_EQ(logged_after(std::chrono::seconds(300)), "");
}

TEST_F(PacketLossLog, ReportsResendsWithoutALossOnceAMinute) {
    counted_.packets_resend_requested = 4;
    counted_.packets_resent = 4;
    EXPECT_EQ(logged_after(std::chrono::seconds(59)), "");
    EXPECT_EQ(logged_after(std::chrono::seconds(60)),
              "openpv: stream from 127.0.0.1: 4 packet resends requested, 4 packets resent; no frames lost\n"
              "openpv: stream from 127.0.0.1: openpv-stream-statistics: packets_resend_requested=4 packets_resent=4\n");
}

TEST_F(PacketLossLog, ReportsResendsAMinuteAfterAReportedLoss) {
    counted_.blocks_incomplete = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(10)), "");
    EXPECT_EQ(logged_after(std::chrono::seconds(20)), "");
    counted_.packets_resent = 1;
    EXPECT_EQ(logged_after(std::chrono::seconds(30)), "");
    EXPECT_NE(logged_after(std::chrono::seconds(70)), "");
}

TEST_F(PacketLossLog, ReportsALossAtOnceAfterAnUndisturbedTime) {
    EXPECT_EQ(logged_after(std::chrono::seconds(60)), "");
    counted_.blocks_incomplete = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(61)), "");
}

TEST_F(PacketLossLog, ReportsEachKindOfLostFrameAfterTenSeconds) {
    counted_.blocks_missing = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(10)).find("1 frames lost entirely"), std::string::npos);
    counted_.blocks_without_buffer = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(20)).find("1 frames without a queued buffer"), std::string::npos);
    counted_.blocks_too_large = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(30)).find("1 frames larger than their buffer"), std::string::npos);
    counted_.packets_late = 1;
    EXPECT_EQ(logged_after(std::chrono::seconds(100)), "");
}

TEST_F(PacketLossLog, ReportsDropsOfTheSocketSinceThePreviousReport) {
    counted_.blocks_incomplete = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(10), 3).find("packets_dropped_by_socket=3 "), std::string::npos);
    counted_.blocks_incomplete = 2;
    EXPECT_NE(logged_after(std::chrono::seconds(20), 10).find("packets_dropped_by_socket=7 "), std::string::npos);
    counted_.blocks_incomplete = 3;
    EXPECT_EQ(logged_after(std::chrono::seconds(30), 10).find("packets_dropped_by_socket"), std::string::npos);
}

TEST_F(PacketLossLog, ReportsAtTheEndWhatWasNotReportedYet) {
    counted_.blocks_incomplete = 2;
    counted_.packets_lost = 7;
    logged_after(std::chrono::seconds(10), 3);
    counted_.blocks_incomplete = 3;
    counted_.packets_lost = 8;
    EXPECT_EQ(logged_at_the_end(5),
              "openpv: stream from 127.0.0.1: 1 frames incomplete, 1 packets lost; 2 packets dropped: socket receive "
              "buffer full (net.core.rmem_max)\n"
              "openpv: stream from 127.0.0.1: openpv-stream-statistics: packets_lost=1 packets_dropped_by_socket=2 "
              "frames_incomplete=1\n");
    EXPECT_EQ(logged_at_the_end(5), "");
}

TEST_F(PacketLossLog, RecordsAPacketThatArrivesAfterItsRequestWasReported) {
    counted_.packets_resend_requested = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(60)).find("packets_resend_requested=1\n"), std::string::npos);
    counted_.packets_resent = 1;
    EXPECT_NE(logged_after(std::chrono::seconds(120)).find("openpv-stream-statistics: packets_resent=1\n"),
              std::string::npos);
    counted_.packets_resent = 2;
    EXPECT_NE(logged_at_the_end().find("openpv-stream-statistics: packets_resent=1\n"), std::string::npos);
}

TEST_F(PacketLossLog, ReportsTheLossesOfANewAssemblerFromZero) {
    counted_.blocks_incomplete = 5;
    logged_at_the_end(3);
    log_.restart_counts();
    counted_.blocks_incomplete = 2;
    EXPECT_EQ(logged_at_the_end(4),
              "openpv: stream from 127.0.0.1: 2 frames incomplete; 1 packets dropped: socket receive buffer "
              "full (net.core.rmem_max)\n"
              "openpv: stream from 127.0.0.1: openpv-stream-statistics: packets_dropped_by_socket=1 "
              "frames_incomplete=2\n");
}
