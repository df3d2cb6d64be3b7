#include "receive_pace.hpp"

#include <gtest/gtest.h>

using namespace openpv;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t megabyte = 1'000'000;
constexpr std::size_t plenty = 100 * megabyte;
auto const began = std::chrono::steady_clock::time_point(1h);

}  // namespace

TEST(receive_pace, ABlockUnderWayLetsPacketsGather) {
    // A tenth has come in a millisecond; nine are left.
    EXPECT_EQ(gathering_time({100'000, megabyte, began}, plenty, began + 1ms), 2ms);
}

TEST(receive_pace, TheEndOfABlockIsNotSleptThrough) {
    // 1 ms is left, and then a quarter of it.
    EXPECT_EQ(gathering_time({900'000, megabyte, began}, plenty, began + 9ms), 750us);
    EXPECT_EQ(gathering_time({975'000, megabyte, began}, plenty, began + 9750us), 188us);
    EXPECT_EQ(gathering_time({990'000, megabyte, began}, plenty, began + 9900us), 0us);
}

TEST(receive_pace, NoMoreGathersThanAQuarterOfTheRoom) {
    // 100 bytes a microsecond into 200 kB.
    EXPECT_EQ(gathering_time({100'000, megabyte, began}, 200'000, began + 1ms), 500us);
    EXPECT_EQ(gathering_time({100'000, megabyte, began}, 0, began + 1ms), 0us);
}

TEST(receive_pace, ABlockThatHasHardlyBegunShowsNoPace) {
    EXPECT_EQ(gathering_time({32'000, megabyte, began}, plenty, began + 1ms), 0us);
    EXPECT_EQ(gathering_time({100'000, megabyte, began}, plenty, began + 100us), 0us);
}

TEST(receive_pace, WithoutABlockOrItsSizePacketsAreTakenAsTheyCome) {
    EXPECT_EQ(gathering_time({}, plenty, began + 1ms), 0us);
    EXPECT_EQ(gathering_time({100'000, 0, began}, plenty, began + 1ms), 0us);
    EXPECT_EQ(gathering_time({megabyte, megabyte, began}, plenty, began + 9ms), 0us);
}

TEST(receive_pace, ASizeThatMakesNoSenseIsNotSleptFor) {
    EXPECT_EQ(gathering_time({100'000, SIZE_MAX, began}, plenty, began + 1ms), 2ms);
}

TEST(receive_pace, AFastBlockIsNotSleptThrough) {
    // 2 GB/s: a megabyte is there before a sleeper wakes.
    EXPECT_EQ(gathering_time({500'000, megabyte, began}, plenty, began + 250us), 188us);
    EXPECT_EQ(gathering_time({700'000, megabyte, began}, plenty, began + 350us), 0us);
}
