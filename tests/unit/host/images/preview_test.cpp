// SPDX-License-Identifier: MIT
#include "images/preview.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <set>
#include <thread>

#include "sample_frames.hpp"

using namespace mediagrabber;
using clock_type = preview::clock;

namespace {

class Preview : public testing::Test {
protected:
    static constexpr std::size_t spares = 3;

    /// Publishes a frame as the exporter does. \return false if all buffers are in use
    bool show(std::uint64_t number) {
        auto frame = make_frame(frame_formats[2], 64, 32, 0, [number](auto x, auto) { return 1'000 + number + x; });
        frame.record.number = number;
        auto const spare = memory->acquire();
        if (!spare) {
            return false;
        }
        std::copy(frame.bytes.begin(), frame.bytes.end(), memory->spare(*spare).begin());
        frames.on_frame(frame_lease(memory, spare, 0, frame.record));
        return true;
    }

    void wait_until_wanted() const {
        while (!frames.needs_pixels()) {
            std::this_thread::yield();
        }
    }

    static clock_type::time_point later() { return clock_type::now() + std::chrono::seconds(20); }

    std::shared_ptr<buffer_pool> memory = std::make_shared<buffer_pool>(64 * 32 * 2, 2, spares);
    latest_frame frames;
    preview full{frames, preview::window::full_scale, preview::screen_side};
    preview stretched{frames, preview::window::stretched, preview::screen_side};
};

}  // namespace

TEST_F(Preview, IsEncodedOnceForAllViewers) {
    std::vector<std::future<std::shared_ptr<preview::image const>>> viewers;
    for (int i = 0; i < 8; ++i) {
        viewers.push_back(std::async(std::launch::async, [this] { return full.next(0, later()); }));
    }
    wait_until_wanted();
    show(7);
    std::set<preview::image const*> images;
    for (auto& viewer : viewers) {
        auto const image = viewer.get();
        ASSERT_TRUE(image);
        EXPECT_EQ(image->record.number, 7U);
        images.insert(image.get());
    }
    EXPECT_EQ(images.size(), 1U);
}

TEST_F(Preview, IsEncodedAtMost25TimesASecond) {
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

TEST_F(Preview, CoversTheOccurringValuesWhenStretched) {
    auto wanted = std::async(std::launch::async, [this] { return stretched.next(0, later()); });
    wait_until_wanted();
    show(1);
    auto const image = wanted.get();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->shown.black, 1'001U / 16U);
    EXPECT_EQ(image->shown.white, (1'001U + 63U) / 16U + 1U);
    EXPECT_EQ(image->histogram.pixels, 64U * 32U);
}

TEST_F(Preview, HasNoLongerSideThanWanted) {
    preview small{frames, preview::window::full_scale, 20};
    auto wanted = std::async(std::launch::async, [&] { return small.next(0, later()); });
    wait_until_wanted();
    show(1);
    auto const image = wanted.get();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 16U);  // a quarter of 64
    EXPECT_EQ(image->height, 8U);
}

TEST_F(Preview, LeavesBuffersForTheRecording) {
    auto first = std::async(std::launch::async, [this] { return full.next(0, later()); });
    wait_until_wanted();
    for (std::uint64_t number = 1; number <= 200; ++number) {
        ASSERT_TRUE(show(number)) << number;
    }
    EXPECT_TRUE(first.get());
}

TEST_F(Preview, IsNullWithoutAFrame) {
    EXPECT_FALSE(full.next(0, clock_type::now() + std::chrono::milliseconds(20)));
    EXPECT_FALSE(full.last());
}

TEST_F(Preview, IgnoresFramesBeforeTheFirstViewer) {
    show(1);
    EXPECT_FALSE(full.next(0, clock_type::now() + std::chrono::milliseconds(20)));
}

TEST_F(Preview, EndsWaitsWhenCancelled) {
    auto first = std::async(std::launch::async, [this] { return full.next(0, later()); });
    auto second = std::async(std::launch::async, [this] { return full.next(0, later()); });
    wait_until_wanted();
    frames.cancel();
    full.cancel();
    EXPECT_FALSE(first.get());
    EXPECT_FALSE(second.get());
    EXPECT_FALSE(full.next(0, later()));
}
