#include "web/live_picture.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>
#include <thread>

#include "sample_frames.hpp"

using namespace mediagrabber;
using clock_type = live_picture::clock;

namespace {

class LivePicture : public testing::Test {
protected:
    static constexpr std::size_t spares = 3;

    /// As the exporter shows a frame. \return false when all memory for it is in use
    bool show(std::uint64_t number) {
        auto frame = make_frame(pixel_formats[2], 64, 32, 0, [number](auto x, auto) { return 1'000 + number + x; });
        frame.record.number = number;
        auto const spare = memory->take_spare();
        if (!spare) {
            return false;
        }
        std::copy(frame.bytes.begin(), frame.bytes.end(), memory->spare(*spare).begin());
        frames.see(frame_lease(memory, spare, 0, frame.record));
        return true;
    }

    void wait_until_wanted() const {
        while (!frames.needs_pixels()) {
            std::this_thread::yield();
        }
    }

    static clock_type::time_point later() { return clock_type::now() + std::chrono::seconds(20); }

    std::shared_ptr<frame_memory> memory = std::make_shared<frame_memory>(64 * 32 * 2, 2, spares);
    newest_frame frames;
    live_picture full{frames, live_picture::window::full_scale};
    live_picture stretched{frames, live_picture::window::stretched};
};

}  // namespace

TEST_F(LivePicture, IsTheSameForAllWhoLook) {
    std::vector<std::future<std::shared_ptr<live_picture::picture const>>> visitors;
    for (int i = 0; i < 8; ++i) {
        visitors.push_back(std::async(std::launch::async, [this] { return full.next(0, later()); }));
    }
    wait_until_wanted();
    show(7);
    std::set<live_picture::picture const*> pictures;
    for (auto& visitor : visitors) {
        auto const picture = visitor.get();
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->record.number, 7U);
        pictures.insert(picture.get());
    }
    EXPECT_EQ(pictures.size(), 1U);
}

TEST_F(LivePicture, IsMadeTwentyFiveTimesASecondAtMost) {
    std::atomic<bool> over{false};
    auto const camera = std::async(std::launch::async, [&] {
        for (std::uint64_t number = 1; !over; ++number) {
            show(number);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    auto const begin = clock_type::now();
    std::uint64_t last = 0;
    for (int i = 0; i < 6; ++i) {
        last = full.next(last, later())->record.number;
    }
    over = true;
    EXPECT_GE(clock_type::now() - begin, std::chrono::milliseconds(5 * 40));
}

TEST_F(LivePicture, HasTheValuesThatOccurFromBlackToWhiteWhenStretched) {
    auto wanted = std::async(std::launch::async, [this] { return stretched.next(0, later()); });
    wait_until_wanted();
    show(1);
    auto const picture = wanted.get();
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->shown.black, 1'001U / 16U);
    EXPECT_EQ(picture->shown.white, (1'001U + 63U) / 16U + 1U);
    EXPECT_EQ(picture->histogram.pixels, 64U * 32U);
}

TEST_F(LivePicture, LeavesMemoryForTheFramesThatAreRecorded) {
    auto first = std::async(std::launch::async, [this] { return full.next(0, later()); });
    wait_until_wanted();
    for (std::uint64_t number = 1; number <= 200; ++number) {
        ASSERT_TRUE(show(number)) << number;
    }
    EXPECT_TRUE(first.get());
}

TEST_F(LivePicture, IsNoneWithoutAFrame) {
    EXPECT_FALSE(full.next(0, clock_type::now() + std::chrono::milliseconds(20)));
    EXPECT_FALSE(full.last());
}

TEST_F(LivePicture, IsNoneOfAFrameThatWasSeenWhenNobodyLooked) {
    show(1);
    EXPECT_FALSE(full.next(0, clock_type::now() + std::chrono::milliseconds(20)));
}

TEST_F(LivePicture, EndsItsWaitsWhenItIsCancelled) {
    auto first = std::async(std::launch::async, [this] { return full.next(0, later()); });
    auto second = std::async(std::launch::async, [this] { return full.next(0, later()); });
    wait_until_wanted();
    frames.cancel();
    full.cancel();
    EXPECT_FALSE(first.get());
    EXPECT_FALSE(second.get());
    EXPECT_FALSE(full.next(0, later()));
}
