// SPDX-License-Identifier: MIT
#include "frames/combined_sink.hpp"

#include <gmock/gmock.h>

#include "collecting_sink.hpp"
#include "sample_frames.hpp"

using namespace mediagrabber;
using testing::HasSubstr;
using testing::Not;

namespace {

class CombinedSink : public testing::Test {
protected:
    std::string refusal() {
        try {
            both.write(frame.view());
            return {};
        } catch (std::runtime_error const& error) {
            return error.what();
        }
    }

    collecting_sink first;
    collecting_sink second;
    combined_sink both{{{"first", &first}, {"second", &second}}};
    sample_frame const frame = make_frame(frame_formats[0], 16, 8);
};

}  // namespace

TEST_F(CombinedSink, WritesEveryFrameToAllSinks) {
    EXPECT_EQ(both.write(frame.view()), 2 * frame.bytes.size());
    EXPECT_EQ(first.frames().size(), 1U);
    EXPECT_EQ(second.frames().size(), 1U);
}

TEST_F(CombinedSink, WritesToTheOthersIfOneFailsAndNamesIt) {
    first.refuse();
    EXPECT_THAT(refusal(), HasSubstr("first: the sink is full"));
    EXPECT_THAT(refusal(), Not(HasSubstr("second")));
    EXPECT_EQ(second.frames().size(), 2U);
    second.refuse();
    EXPECT_EQ(refusal(), "first: the sink is full; second: the sink is full");
}

TEST_F(CombinedSink, NeedsPixelsWhenOneOfThemDoes) {
    EXPECT_TRUE(both.needs_pixels());
    first.need_no_pixels();
    EXPECT_TRUE(both.needs_pixels());
    second.need_no_pixels();
    EXPECT_FALSE(both.needs_pixels());
}
