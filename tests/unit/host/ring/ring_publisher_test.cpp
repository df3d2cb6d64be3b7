// SPDX-License-Identifier: MIT
#include "ring/ring_publisher.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "base/unix_socket.hpp"
#include "ring/mg_frame_ring.h"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

constexpr int patience_ms = 30'000;
constexpr int at_once = 0;

/// A reader program, which uses the public header.
class ring_reader {
public:
    explicit ring_reader(std::filesystem::path const& path) {
        if (mg_ring_open(&reader_, path.c_str()) != 0) {
            throw std::system_error(errno, std::generic_category(), "mg_ring_open");
        }
    }
    ~ring_reader() { mg_ring_close(&reader_); }
    ring_reader(ring_reader const&) = delete;
    ring_reader& operator=(ring_reader const&) = delete;

    int next(int timeout_ms = patience_ms) { return mg_ring_next(&reader_, &frame_, timeout_ms); }
    mg_ring_frame const& frame() const { return frame_; }
    std::uint8_t const* pixels() const { return mg_ring_pixels(&reader_, &frame_); }
    bool is_there() { return mg_ring_is_there(&reader_, &frame_) != 0; }
    std::uint64_t overtaken() const { return reader_.overtaken; }
    int socket() const { return reader_.socket; }

private:
    mg_ring_reader reader_{};
    mg_ring_frame frame_{};
};

class RingPublisher : public testing::Test {
protected:
    static constexpr std::size_t spares = 3;

    /// The plug-in's side: a frame whose pixels all have the value `number` arrives in slot 0.
    void bring(std::uint64_t number) {
        auto frame = make_frame(frame_formats[0], 8, 4, 0, [number](auto, auto) { return number; });
        frame.record.number = number;
        frame.record.timestamp_us = 1'000 * number;
        frame.record.gain_db = 3.5F;
        std::copy(frame.bytes.begin(), frame.bytes.end(), memory_->slot(0));
        std::size_t const spare = memory_->acquire().value();
        memory_->exchange(0, spare);
        publisher_.on_frame(frame_lease(memory_, spare, 0, frame.record));
    }

    void wait_for_readers(std::uint64_t count) const {
        while (publisher_.readers() != count) {
            std::this_thread::yield();
        }
    }

    temporary_directory directory_;
    std::filesystem::path const path_ = directory_.path() / "ring.sock";
    std::shared_ptr<buffer_pool> memory_ = std::make_shared<buffer_pool>(64, 2, spares);
    ring_publisher publisher_{path_};
};

}  // namespace

TEST_F(RingPublisher, PublishesAFrameInPlace) {
    ring_reader reader(path_);
    bring(7);
    ASSERT_EQ(reader.next(), 1);
    EXPECT_EQ(reader.frame().number, 7U);
    EXPECT_EQ(reader.frame().timestamp_us, 7'000U);
    EXPECT_EQ(reader.frame().width, 8U);
    EXPECT_EQ(reader.frame().bytes, 32U);
    EXPECT_STREQ(reader.frame().format, "Mono8");
    EXPECT_EQ(reader.frame().known, std::uint32_t{MG_RING_GAIN});
    EXPECT_EQ(reader.frame().gain_db, 3.5F);
    EXPECT_EQ(reader.pixels()[31], 7);
    EXPECT_TRUE(reader.is_there());
}

TEST_F(RingPublisher, PublishesAllFramesInOrderToReadersThatKeepPace) {
    ring_reader one(path_);
    ring_reader other(path_);
    wait_for_readers(2);
    for (std::uint64_t number = 1; number <= 100; ++number) {
        bring(number);
        for (auto* const reader : {&one, &other}) {
            ASSERT_EQ(reader->next(), 1);
            ASSERT_EQ(reader->frame().number, number);
            ASSERT_EQ(reader->pixels()[0], number & 0xFFU);
            ASSERT_TRUE(reader->is_there());
        }
    }
    EXPECT_EQ(one.overtaken() + other.overtaken(), 0U);
}

TEST_F(RingPublisher, LetsASlowReaderDetectOverwrittenFrames) {
    ring_reader reader(path_);
    wait_for_readers(1);
    bring(1);
    ASSERT_EQ(reader.next(), 1);
    EXPECT_TRUE(reader.is_there());
    for (std::uint64_t number = 2; number <= 10; ++number) {
        bring(number);
    }
    EXPECT_FALSE(reader.is_there());
    EXPECT_EQ(reader.overtaken(), 1U);
    ASSERT_EQ(reader.next(), 1);
    EXPECT_EQ(reader.frame().number, 10U - spares + 1) << "the oldest that is still there";
    EXPECT_EQ(reader.overtaken(), 1U + 10U - spares - 1U);
    EXPECT_EQ(reader.pixels()[0], reader.frame().number);
    while (publisher_.overtaken() != reader.overtaken()) {
        std::this_thread::yield();
    }
}

TEST_F(RingPublisher, RetainsAFrameWhileTheProcessUsesIt) {
    ring_reader reader(path_);
    wait_for_readers(1);
    auto frame = make_frame(frame_formats[0], 8, 4);
    frame_lease const used(memory_, memory_->acquire().value(), 0, frame.record);
    publisher_.on_frame(used);
    ASSERT_EQ(reader.next(), 1);
    auto const first = reader.frame();
    for (std::uint64_t number = 2; number <= 10; ++number) {
        bring(number);
    }
    EXPECT_TRUE(reader.is_there());
    EXPECT_EQ(first.sequence, 1U);
}

TEST_F(RingPublisher, MovesReadersToAnotherBufferPool) {
    ring_reader reader(path_);
    wait_for_readers(1);
    bring(1);
    bring(2);
    memory_ = std::make_shared<buffer_pool>(4'096, 2, spares);
    bring(3);
    for (std::uint64_t number = 1; number <= 3; ++number) {
        ASSERT_EQ(reader.next(), 1);
        EXPECT_EQ(reader.frame().number, number);
        EXPECT_EQ(reader.pixels()[0], number);
        EXPECT_TRUE(reader.is_there());
    }
    EXPECT_EQ(reader.next(at_once), 0);
    EXPECT_EQ(reader.overtaken(), 0U);
}

TEST_F(RingPublisher, StartsALateReaderWithTheNewestFrame) {
    bring(1);
    bring(2);
    ring_reader reader(path_);
    ASSERT_EQ(reader.next(), 1);
    EXPECT_EQ(reader.frame().number, 2U);
    EXPECT_EQ(reader.overtaken(), 0U);
}

TEST_F(RingPublisher, DoesNotWaitForABlockedReader) {
    ring_reader blocked(path_);
    wait_for_readers(1);
    constexpr std::uint64_t more_than_a_socket_holds = 5'000;
    for (std::uint64_t number = 1; number <= more_than_a_socket_holds; ++number) {
        bring(number);
    }
    ASSERT_EQ(blocked.next(), 1);
    EXPECT_EQ(blocked.frame().number, more_than_a_socket_holds - spares + 1);
    EXPECT_EQ(blocked.overtaken(), more_than_a_socket_holds - spares);
}

TEST_F(RingPublisher, SharesMemoryReadOnly) {
    shared_ring const ring(memory_);
    for (int const descriptor : {ring.ring_descriptor(), ring.memory_descriptor()}) {
        EXPECT_EQ(mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0), MAP_FAILED);
        EXPECT_EQ(errno, EACCES);
    }
}

TEST_F(RingPublisher, SharesMemoryThatReadersCannotChange) {
    shared_ring const ring(memory_);
    for (int const descriptor : {ring.ring_descriptor(), ring.memory_descriptor()}) {
        struct stat found {};
        ASSERT_EQ(fstat(descriptor, &found), 0);
        EXPECT_EQ(found.st_mode & 07777, 0400);
        EXPECT_EQ(fcntl(descriptor, F_GET_SEALS), F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL);
        EXPECT_NE(ftruncate(descriptor, 0), 0);
        // A reader opens the file again for writing: only a privileged one can.
        std::string const name = "/proc/self/fd/" + std::to_string(descriptor);
        mediagrabber::file_handle const writable(open(name.c_str(), O_RDWR | O_CLOEXEC));
        if (writable) {
            EXPECT_NE(ftruncate(writable.get(), 0), 0);
            EXPECT_NE(ftruncate(writable.get(), found.st_size + 1), 0);
            EXPECT_LT(pwrite(writable.get(), "x", 1, 0), 0);
            EXPECT_EQ(mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, writable.get(), 0), MAP_FAILED);
        } else {
            EXPECT_EQ(errno, EACCES);
        }
    }
    ring_reader reader(path_);
    bring(1);
    EXPECT_EQ(reader.next(), 1) << "the recording still writes";
    EXPECT_EQ(reader.pixels()[0], 1);
}

TEST_F(RingPublisher, DisconnectsAReaderThatSendsInvalidMessages) {
    for (std::string const& nonsense :
         {std::string(), std::string("x"), std::string(4'000, 'x'), std::string(16, '\xff')}) {
        ring_reader odd(path_);
        wait_for_readers(1);
        ASSERT_GE(send(odd.socket(), nonsense.data(), nonsense.size(), MSG_NOSIGNAL), 0);
        wait_for_readers(0);
    }
    EXPECT_EQ(publisher_.overtaken(), 0U);
    ring_reader reader(path_);
    bring(1);
    EXPECT_EQ(reader.next(), 1);
}

TEST_F(RingPublisher, DisconnectsReadersAtTheEnd) {
    auto ending = std::make_unique<ring_publisher>(directory_.path() / "other.sock");
    ring_reader reader(directory_.path() / "other.sock");
    while (ending->readers() == 0) {
        std::this_thread::yield();
    }
    ending.reset();
    EXPECT_EQ(reader.next(), -1);
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_FALSE(std::filesystem::exists(directory_.path() / "other.sock"));
}

TEST_F(RingPublisher, NeedsPixelsOnlyForReaders) {
    EXPECT_FALSE(publisher_.needs_pixels());
    auto frame = make_frame(frame_formats[0], 8, 4);
    publisher_.on_frame(frame_lease(memory_, std::nullopt, 0, frame.record));
    ring_reader reader(path_);
    wait_for_readers(1);
    EXPECT_TRUE(publisher_.needs_pixels());
    EXPECT_EQ(reader.next(at_once), 0);
}

TEST_F(RingPublisher, ReportsAnUnusablePath) {
    EXPECT_THROW(ring_publisher("/nowhere/at/all"), std::runtime_error);
    EXPECT_THROW(ring_publisher{path_}, std::runtime_error) << "another one listens there";
}
