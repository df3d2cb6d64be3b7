#include "loss_report.hpp"

#include <gtest/gtest.h>

using namespace openpv;

TEST(LossReport, SaysNothingWhenNothingWasLost) {
    assembler_counters counted;
    counted.blocks_whole = 1000;
    counted.packets_duplicate = 1;
    EXPECT_EQ(describe_losses(counted, 7), "");
}

TEST(LossReport, SaysThatPacketsCameWhenTheyWereAskedForAgain) {
    assembler_counters counted;
    counted.blocks_whole = 1000;
    counted.packets_asked_again = 3;
    EXPECT_EQ(describe_losses(counted, 7), "3 packets asked for again, all came");
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

namespace {

class LossDiary : public testing::Test {
protected:
    loss_diary::time_point const start_{};
    loss_diary diary_{{0x7F000001}, start_};
    assembler_counters counted_;

    std::string told_after(std::chrono::seconds when, uint64_t drops = 0) {
        testing::internal::CaptureStderr();
        diary_.attend(counted_, drops, start_ + when);
        return testing::internal::GetCapturedStderr();
    }
    std::string told_at_the_end(uint64_t drops = 0) {
        testing::internal::CaptureStderr();
        diary_.close(counted_, drops);
        return testing::internal::GetCapturedStderr();
    }
};

}  // namespace

TEST_F(LossDiary, TellsOfLostFramesAtMostEveryTenSeconds) {
    counted_.blocks_incomplete = 2;
    EXPECT_EQ(told_after(std::chrono::seconds(9)), "");
    EXPECT_NE(told_after(std::chrono::seconds(10)).find("2 frames incomplete"), std::string::npos);
    counted_.blocks_incomplete = 5;
    EXPECT_EQ(told_after(std::chrono::seconds(19)), "");
    EXPECT_NE(told_after(std::chrono::seconds(20)).find("3 frames incomplete"), std::string::npos);
    EXPECT_EQ(told_after(std::chrono::seconds(300)), "");
}

TEST_F(LossDiary, TellsOfPacketsThatCameInTheEndOnceAMinute) {
    counted_.packets_asked_again = 4;
    EXPECT_EQ(told_after(std::chrono::seconds(59)), "");
    EXPECT_NE(told_after(std::chrono::seconds(60)).find("4 packets asked for again, all came"), std::string::npos);
}

TEST_F(LossDiary, TellsAtTheEndWhatItHasNotToldYet) {
    counted_.blocks_incomplete = 2;
    counted_.packets_missing = 7;
    told_after(std::chrono::seconds(10), 3);
    counted_.blocks_incomplete = 3;
    counted_.packets_missing = 8;
    EXPECT_NE(
        told_at_the_end(5).find("1 frames incomplete, 1 packets missing for good; this machine dropped 2 packets"),
        std::string::npos);
    EXPECT_EQ(told_at_the_end(5), "");
}
