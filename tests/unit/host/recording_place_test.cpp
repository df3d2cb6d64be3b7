#include "recording_place.hpp"

#include <gtest/gtest.h>

using namespace mediagrabber;

namespace {

constexpr std::chrono::system_clock::time_point moment{std::chrono::seconds(1'795'282'398)};

}  // namespace

TEST(RecordingPlace, IsTheConfiguredOne) {
    EXPECT_EQ(recording_place("/data/recording", moment), "/data/recording");
    EXPECT_EQ(recording_place("relative/{tim}", moment), "relative/{tim}");
}

TEST(RecordingPlace, HasTheTimeAtWhichItBeganWhereThatIsAskedFor) {
    EXPECT_EQ(recording_place("/data/{time}", moment), "/data/20261121T173318Z");
    EXPECT_EQ(recording_place("{time}/a-{time}", moment), "20261121T173318Z/a-20261121T173318Z");
}
