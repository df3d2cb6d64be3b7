// SPDX-License-Identifier: MIT
#include "frames/frame_lease.hpp"

#include <gtest/gtest.h>

#include <utility>

#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

class FrameLease : public testing::Test {
protected:
    static constexpr std::size_t spares = 2;

    frame_lease take() { return {memory_, memory_->acquire().value(), 0, frame_.record}; }

    std::size_t free_spares() {
        std::size_t count = 0;
        while (memory_->acquire()) {
            ++count;
        }
        return count;
    }

    sample_frame const frame_ = make_frame(frame_formats[0], 8, 4);
    std::shared_ptr<buffer_pool> const memory_ = std::make_shared<buffer_pool>(64, 2, spares);
};

}  // namespace

TEST_F(FrameLease, ReleasesItsSpareWithTheLastCopy) {
    auto lease = take();
    auto copy = lease;
    auto moved = std::move(lease);
    moved = frame_lease();
    EXPECT_TRUE(copy.has_pixels());
    EXPECT_EQ(free_spares(), spares - 1);
    copy = frame_lease();
    EXPECT_EQ(free_spares(), 1U);
}

TEST_F(FrameLease, ShowsThePixelsBehindItsOffset) {
    std::size_t const spare = memory_->acquire().value();
    std::copy(frame_.bytes.begin(), frame_.bytes.end(), memory_->spare(spare).data() + 16);
    frame_lease const lease(memory_, spare, 16, frame_.record);
    EXPECT_TRUE(
        std::equal(frame_.bytes.begin(), frame_.bytes.end(), lease.view().pixels.begin(), lease.view().pixels.end()));
}

TEST_F(FrameLease, CanBeWithoutPixels) {
    frame_lease const lease(memory_, std::nullopt, 0, frame_.record);
    auto const copy = lease;
    EXPECT_FALSE(copy.has_pixels());
    EXPECT_TRUE(copy.view().pixels.empty());
    EXPECT_EQ(copy.record().width, 8U);
    EXPECT_EQ(free_spares(), spares);
}
