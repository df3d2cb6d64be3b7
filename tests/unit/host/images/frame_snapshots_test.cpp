// SPDX-License-Identifier: MIT
#include "images/frame_snapshots.hpp"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "sample_frames.hpp"

using namespace mediagrabber;
using clock_type = frame_snapshots::clock;

namespace {

class FrameSnapshots : public testing::Test {
protected:
    /// Publishes a frame as the exporter does. \return false if all buffers are in use
    bool show(std::uint64_t number) {
        auto frame = make_frame(frame_formats[1], 7, 5, 2);
        frame.record.number = number;
        auto const spare = memory->acquire();
        if (!spare) {
            return false;
        }
        std::copy(frame.bytes.begin(), frame.bytes.end(), memory->spare(*spare).begin());
        frames.on_frame(frame_lease(memory, spare, 0, frame.record));
        return true;
    }

    /// Requests a snapshot and publishes the frame for it.
    std::shared_ptr<frame_snapshots::snapshot const> taken(std::uint64_t number) {
        auto wanted = std::async(std::launch::async, [&] { return snapshots.next(number - 1, later()); });
        while (wanted.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
            EXPECT_TRUE(show(number));
        }
        return wanted.get();
    }

    /// A younger copy is given to any client that has not seen it.
    static void wait_until_shared_only_if_latest(frame_snapshots::snapshot const& copy) {
        std::this_thread::sleep_until(copy.taken + std::chrono::milliseconds(41));
    }
    static clock_type::time_point later() { return clock_type::now() + std::chrono::seconds(20); }

    std::shared_ptr<buffer_pool> memory = std::make_shared<buffer_pool>(100, 2, 2);
    latest_frame frames;
    frame_snapshots snapshots{frames};
};

}  // namespace

TEST_F(FrameSnapshots, AreCopiesThatOccupyNoBuffer) {
    auto const first = taken(1);
    ASSERT_TRUE(first);
    auto const expected = make_frame(frame_formats[1], 7, 5, 2);
    EXPECT_EQ(first->record.number, 1U);
    EXPECT_EQ(first->pixels, expected.bytes);
    for (std::uint64_t number = 2; number <= 100; ++number) {
        ASSERT_TRUE(show(number)) << number;  // of two spares, one is that of the latest frame
    }
}

TEST_F(FrameSnapshots, AreHeldUntilSomeMoreAreTaken) {
    auto const first = taken(1);
    for (std::uint64_t number = 2; number <= frame_snapshots::max_held; ++number) {
        taken(number);
        EXPECT_EQ(snapshots.held(1), first);
    }
    taken(frame_snapshots::max_held + 1);
    EXPECT_FALSE(snapshots.held(1));
    EXPECT_TRUE(snapshots.held(2));
    EXPECT_FALSE(snapshots.held(99));
}

TEST_F(FrameSnapshots, AreSharedByClients) {
    auto const first = taken(1);
    auto const again = snapshots.next(0, later());
    EXPECT_EQ(again, first);
}

TEST_F(FrameSnapshots, OfTheLatestFrameAreAvailableWhileAnotherClientWaitsForTheNext) {
    auto const first = taken(1);
    auto other = std::async(std::launch::async, [this] { return snapshots.next(1, later()); });
    wait_until_shared_only_if_latest(*first);
    EXPECT_EQ(snapshots.next(0, clock_type::now() + std::chrono::milliseconds(20)), first);
    show(2);
    auto const second = other.get();
    ASSERT_TRUE(second);
    show(3);  // nobody has copied it
    wait_until_shared_only_if_latest(*second);
    auto const third = snapshots.next(0, later());
    ASSERT_TRUE(third);
    EXPECT_EQ(third->record.number, 3U);
}

TEST_F(FrameSnapshots, AreNotTakenForLiveWhenTheyAreOld) {
    auto const first = taken(1);
    std::this_thread::sleep_until(first->taken + std::chrono::milliseconds(2'001));
    EXPECT_FALSE(snapshots.next(0, clock_type::now() + std::chrono::milliseconds(20)));
}

TEST_F(FrameSnapshots, AreNotRequestedWithoutClients) {
    EXPECT_FALSE(frames.needs_pixels());
    show(1);
    EXPECT_FALSE(snapshots.held(1));
}

TEST(LatestFrame, IsWantedWhileAnyClientWaits) {
    latest_frame frames;
    auto const later = clock_type::now() + std::chrono::seconds(20);
    auto slow = std::async(std::launch::async, [&] { return frames.wait(0, clock_type::now(), later); });
    while (!frames.needs_pixels()) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(frames.wait(0, clock_type::now(), clock_type::now()));  // a client that does not wait
    std::this_thread::sleep_for(std::chrono::milliseconds(600));         // clients have half a second to wait again
    EXPECT_TRUE(frames.needs_pixels());
    frames.cancel();
    EXPECT_FALSE(slow.get());
    while (frames.needs_pixels()) {
        std::this_thread::yield();
    }
}

TEST_F(FrameSnapshots, EndWaitsWhenCancelled) {
    auto first = std::async(std::launch::async, [this] { return snapshots.next(0, later()); });
    auto second = std::async(std::launch::async, [this] { return snapshots.next(0, later()); });
    while (!frames.needs_pixels()) {
        std::this_thread::yield();
    }
    frames.cancel();
    snapshots.cancel();
    EXPECT_FALSE(first.get());
    EXPECT_FALSE(second.get());
    EXPECT_FALSE(snapshots.next(0, later()));
}
