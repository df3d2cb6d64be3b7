#include "loss_report.hpp"

#include <gtest/gtest.h>

using namespace openpv;

TEST(LossReport, SaysNothingWhenNothingWasLost) {
    assembler_counters counted;
    counted.blocks_whole = 1000;
    counted.packets_asked_again = 3;
    counted.packets_duplicate = 1;
    EXPECT_EQ(describe_losses(counted, 7), "");
}

TEST(LossReport, TellsLossOnTheWayFromLossInThisMachine) {
    assembler_counters counted;
    counted.blocks_incomplete = 2;
    counted.packets_missing = 5;
    counted.packets_asked_again = 9;
    EXPECT_EQ(
        describe_losses(counted, 0),
        "2 frames incomplete, 5 packets missing for good, 9 asked for again; this machine dropped none: they were "
        "lost on the way");
    EXPECT_EQ(
        describe_losses(counted, 5),
        "2 frames incomplete, 5 packets missing for good, 9 asked for again; this machine dropped 5 packets for want "
        "of room in the socket (net.core.rmem_max)");
}

TEST(LossReport, TellsWhyFramesWentMissing) {
    assembler_counters counted;
    counted.blocks_skipped = 1;
    counted.blocks_without_buffer = 2;
    counted.blocks_too_large = 3;
    EXPECT_EQ(describe_losses(counted, 0),
              "1 frames of which nothing came, 2 frames without a buffer for them, 3 frames larger than their buffers");
}

TEST(LossReport, WarnsOfSmallRoomOnceAndNamesTheSetting) {
    testing::internal::CaptureStderr();
    warn_of_small_room({0x7F000001}, 212'992, 2'621'440);
    warn_of_small_room({0x7F000001}, 212'992, 2'621'440);
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "openpv: stream from 127.0.0.1: warning: the socket has room for 212992 bytes, less than two frames; frames "
        "lose packets when this machine is busy. Raise it: sysctl -w net.core.rmem_max=2621440\n");
}
