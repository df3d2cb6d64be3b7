// SPDX-License-Identifier: MIT
#include "gvsp/block_queue.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gvsp/PvBuffer_impl.hpp"

using namespace std::chrono_literals;
using openpv::block_queue;
using openpv::block_receiver;
using openpv::block_sink;
using openpv::received_block;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::chrono::milliseconds at_once{0};
/// A caller that was woken returns within this time, however busy the machine is.
constexpr std::chrono::seconds long_enough{10};

/// State of the receiver that the queue owns.
struct receiver_state {
    std::vector<PvBuffer::impl*> held;  ///< added, and neither finished nor released
    bool running = false;
    int stops = 0;
    bool destroyed = false;
};

/// Finishes blocks on request.
class scripted_receiver : public block_receiver {
public:
    scripted_receiver(block_sink& sink, receiver_state& state) : sink_(sink), state_(state) {}
    ~scripted_receiver() override { state_.destroyed = true; }

    void add_buffer(PvBuffer::impl& buffer) override { state_.held.push_back(&buffer); }
    void start() override { state_.running = true; }
    void stop() override {
        ++state_.stops;
        for (auto const& [buffer, block] : std::exchange(ending_, {})) {
            finish(*buffer, block);
        }
        state_.held.clear();
        state_.running = false;
    }

    void finish_next(received_block const& block = {}) { finish(*state_.held.front(), block); }
    /// A block that ends while the receiver stops.
    void finish_while_stopping(PvBuffer::impl& buffer, received_block const& block) {
        ending_.push_back({&buffer, block});
    }

private:
    void finish(PvBuffer::impl& buffer, received_block const& block) {
        std::erase(state_.held, &buffer);
        sink_.block_finished(buffer, block);
    }

    block_sink& sink_;
    receiver_state& state_;
    std::vector<std::pair<PvBuffer::impl*, received_block>> ending_;
};

/// A buffer with memory, and its internal state.
struct attached_buffer {
    attached_buffer() : state(owner) {
        state.memory = memory.data();
        state.size = static_cast<uint32_t>(memory.size());
    }
    std::array<uint8_t, 64> memory{};
    PvBuffer owner{PvPayloadTypeImage};
    PvBuffer::impl state;
};

class BlockQueue : public testing::Test {
protected:
    BlockQueue() { install_receiver(); }
    ~BlockQueue() override { queue->set_receiver(nullptr); }

    void install_receiver() {
        state = {};
        auto made = std::make_unique<scripted_receiver>(queue->sink(), state);
        receiver = made.get();
        queue->set_receiver(std::move(made));
    }

    /// \return result of the oldest finished block; null if there is none
    std::optional<uint32_t> retrieve(PvBuffer const& expected) {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        PvResult const result = queue->retrieve(buffer, operation, at_once, [this] { return alive.load(); });
        if (!result.IsOK()) {
            return std::nullopt;
        }
        EXPECT_EQ(buffer, &expected);
        return operation.GetCode();
    }

    PvResult retrieve_nothing(std::optional<std::chrono::milliseconds> timeout) {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        PvResult const result = queue->retrieve(buffer, operation, timeout, [this] { return alive.load(); });
        EXPECT_EQ(buffer, nullptr);
        return result;
    }

    std::shared_ptr<block_queue> queue = std::make_shared<block_queue>();
    receiver_state state;
    scripted_receiver* receiver = nullptr;
    std::atomic<bool> alive = true;
    attached_buffer a;
    attached_buffer b;
    attached_buffer c;
};

/// Waits in `retrieve` on a thread of its own.
class waiting_caller {
public:
    /// Returns when the caller waits: the queue calls `camera_alive` with its lock held, so that what follows here and
    /// takes the lock finds the caller waiting.
    /// \param checked called on the caller's thread after its first check, with the lock held
    waiting_caller(
        block_queue& queue, std::atomic<bool>& alive, std::function<void()> checked = [] {},
        std::optional<std::chrono::milliseconds> timeout = std::nullopt)
        : queue_(queue), alive_(alive) {
        thread_ = std::jthread([this, checked = std::move(checked), timeout, first = true]() mutable {
            result = queue_.retrieve(buffer, operation, timeout, [&] {
                bool const now_alive = alive_;
                if (std::exchange(first, false)) {
                    checking_.set_value();
                    checked();
                }
                return now_alive;
            });
            returned_.set_value();
        });
        checking_.get_future().wait();
    }
    /// Ends a wait that the test has not ended. Both lines wake the caller.
    ~waiting_caller() {
        alive_ = false;
        queue_.wake();
        queue_.abort();
    }
    waiting_caller(waiting_caller const&) = delete;
    waiting_caller& operator=(waiting_caller const&) = delete;

    bool returns() { return has_returned_.wait_for(long_enough) == std::future_status::ready; }

    PvBuffer* buffer = nullptr;
    PvResult operation;
    PvResult result;

private:
    block_queue& queue_;
    std::atomic<bool>& alive_;
    std::promise<void> checking_;
    std::promise<void> returned_;
    std::future<void> has_returned_ = returned_.get_future();
    std::jthread thread_;  // last, so that it ends before the members that it uses are destroyed
};

received_block block_with(uint32_t result) {
    received_block block;
    block.result = result;
    return block;
}

/// An image of 6 x 4 pixels with chunk 0x200F behind it.
received_block put_block_with_a_chunk(attached_buffer& buffer, uint32_t result) {
    constexpr std::array<uint8_t, 12> chunk{7, 0, 0, 0, 0, 0, 0x20, 0x0F, 0, 0, 0, 4};
    std::ranges::copy(chunk, buffer.memory.begin() + 24);
    received_block block;
    block.result = result;
    block.width = 6;
    block.height = 4;
    block.timestamp = 123'456;
    block.bytes = 24 + chunk.size();
    block.image_bytes = 24;
    return block;
}

}  // namespace

TEST_F(BlockQueue, AddsBuffersToTheReceiverInQueueOrder) {
    EXPECT_TRUE(state.running);
    ASSERT_TRUE(queue->add(a.state).IsOK());
    ASSERT_TRUE(queue->add(b.state).IsOK());
    EXPECT_THAT(state.held, ElementsAre(&a.state, &b.state));
    EXPECT_EQ(queue->count(), 2U);
}

TEST_F(BlockQueue, ReturnsFinishedBuffersOldestFirstWithTheirResults) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_next(block_with(PvResult::Code::OK));
    receiver->finish_next(block_with(PvResult::Code::MISSING_PACKETS));
    EXPECT_EQ(queue->count(), 2U) << "finished and not retrieved still counts";
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::OK);
    EXPECT_EQ(retrieve(b.owner), PvResult::Code::MISSING_PACKETS);
    EXPECT_EQ(queue->count(), 0U);
}

TEST_F(BlockQueue, RefusesABufferThatIsWaiting) {
    queue->add(a.state);
    EXPECT_EQ(queue->add(a.state).GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_EQ(queue->count(), 1U);
    EXPECT_THAT(state.held, ElementsAre(&a.state));
}

TEST_F(BlockQueue, RefusesABufferThatIsFinishedAndNotRetrieved) {
    queue->add(a.state);
    receiver->finish_next();
    EXPECT_EQ(queue->add(a.state).GetCode(), PvResult::Code::INVALID_PARAMETER);
}

TEST_F(BlockQueue, RefusesABufferThatIsInAnotherQueue) {
    auto const other = std::make_shared<block_queue>();
    queue->add(a.state);
    EXPECT_EQ(other->add(a.state).GetCode(), PvResult::Code::INVALID_PARAMETER);
}

TEST_F(BlockQueue, AcceptsABufferAgainAfterItWasRetrieved) {
    queue->add(a.state);
    receiver->finish_next();
    retrieve(a.owner);
    EXPECT_TRUE(queue->add(a.state).IsOK());
}

TEST_F(BlockQueue, RefusesABufferWithoutMemory) {
    a.state.memory = nullptr;
    EXPECT_EQ(queue->add(a.state).GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_EQ(queue->count(), 0U);
}

TEST_F(BlockQueue, AcceptsBuffersUpToItsMaximum) {
    std::vector<std::unique_ptr<attached_buffer>> many;
    for (std::size_t i = 0; i < block_queue::max_buffers; ++i) {
        many.push_back(std::make_unique<attached_buffer>());
        ASSERT_TRUE(queue->add(many.back()->state).IsOK());
    }
    EXPECT_FALSE(queue->add(a.state).IsOK());
    receiver->finish_next();
    EXPECT_FALSE(queue->add(a.state).IsOK()) << "a finished buffer counts until it is retrieved";
    retrieve(many.front()->owner);
    EXPECT_TRUE(queue->add(a.state).IsOK());
    queue->set_receiver(nullptr);
}

TEST_F(BlockQueue, ReportsATimeOutWhenNothingIsFinished) {
    queue->add(a.state);
    EXPECT_EQ(retrieve_nothing(at_once).GetCode(), PvResult::Code::TIMEOUT);
    EXPECT_EQ(retrieve_nothing(5ms).GetCode(), PvResult::Code::TIMEOUT);
}

TEST_F(BlockQueue, WakesAWaitingCallerWhenABlockEnds) {
    queue->add(a.state);
    waiting_caller caller(*queue, alive);
    receiver->finish_next();
    ASSERT_TRUE(caller.returns());
    EXPECT_TRUE(caller.result.IsOK());
    EXPECT_EQ(caller.buffer, &a.owner);
}

TEST_F(BlockQueue, WakesAWaitingCallerOnAbort) {
    queue->add(a.state);
    waiting_caller caller(*queue, alive);
    queue->abort();
    ASSERT_TRUE(caller.returns());
    EXPECT_EQ(caller.operation.GetCode(), PvResult::Code::ABORTED);
}

TEST_F(BlockQueue, ReportsALostCameraAtOnceWhenNothingIsFinished) {
    queue->add(a.state);
    alive = false;
    EXPECT_EQ(retrieve_nothing(std::nullopt).GetCode(), PvResult::Code::NOT_CONNECTED);
}

TEST_F(BlockQueue, WakesAWaitingCallerWhenTheCameraIsLost) {
    waiting_caller caller(*queue, alive);
    alive = false;
    queue->wake();
    ASSERT_TRUE(caller.returns());
    EXPECT_EQ(caller.result.GetCode(), PvResult::Code::NOT_CONNECTED);
}

TEST_F(BlockQueue, WakesACallerThatIsJustAboutToWait) {
    std::promise<void> woken;
    auto const woken_early = woken.get_future();
    // The camera is lost after the caller's check and before its wait. `wake` must not return in between.
    waiting_caller caller(*queue, alive, [&] { EXPECT_EQ(woken_early.wait_for(50ms), std::future_status::timeout); });
    alive = false;
    queue->wake();
    woken.set_value();
    ASSERT_TRUE(caller.returns());
    EXPECT_EQ(caller.result.GetCode(), PvResult::Code::NOT_CONNECTED);
}

TEST_F(BlockQueue, ReturnsABlockThatEndsBeforeTheTimeout) {
    queue->add(a.state);
    waiting_caller caller(
        *queue, alive, [] {}, std::chrono::hours(1));
    receiver->finish_next();
    ASSERT_TRUE(caller.returns());
    EXPECT_EQ(caller.buffer, &a.owner);
}

TEST_F(BlockQueue, WaitsForTheTimeout) {
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(retrieve_nothing(20ms).GetCode(), PvResult::Code::TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
}

TEST_F(BlockQueue, ReturnsFinishedAndAbortedBuffersBeforeItReportsALostCamera) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_next();
    alive = false;
    queue->abort();
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::OK);
    EXPECT_EQ(retrieve(b.owner), PvResult::Code::ABORTED);
    EXPECT_EQ(retrieve_nothing(at_once).GetCode(), PvResult::Code::NOT_CONNECTED);
}

TEST_F(BlockQueue, AbortFinishesWaitingBuffersInOrderAfterTheFinishedOnes) {
    queue->add(a.state);
    queue->add(b.state);
    queue->add(c.state);
    receiver->finish_next();
    queue->abort();
    EXPECT_THAT(state.held, IsEmpty());
    EXPECT_TRUE(state.running) << "buffers queued from now on are filled";
    EXPECT_EQ(queue->count(), 3U);
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::OK);
    EXPECT_EQ(retrieve(b.owner), PvResult::Code::ABORTED);
    EXPECT_EQ(retrieve(c.owner), PvResult::Code::ABORTED);
}

TEST_F(BlockQueue, AbortKeepsABlockThatEndsWhileStopping) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_while_stopping(a.state, block_with(PvResult::Code::MISSING_PACKETS));
    queue->abort();
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::MISSING_PACKETS);
    EXPECT_EQ(retrieve(b.owner), PvResult::Code::ABORTED);
}

TEST_F(BlockQueue, AbortOfNothingLeavesNothingToRetrieve) {
    queue->abort();
    EXPECT_EQ(queue->count(), 0U);
    EXPECT_EQ(retrieve_nothing(at_once).GetCode(), PvResult::Code::TIMEOUT);
}

TEST_F(BlockQueue, WithdrawsAWaitingBufferAndLeavesTheOthersInOrder) {
    queue->add(a.state);
    queue->add(b.state);
    queue->add(c.state);
    queue->withdraw(b.state);
    EXPECT_THAT(state.held, ElementsAre(&a.state, &c.state));
    EXPECT_TRUE(state.running);
    EXPECT_EQ(queue->count(), 2U);
    EXPECT_TRUE(queue->add(b.state).IsOK()) << "it is free again";
}

TEST_F(BlockQueue, WithdrawsAFinishedBufferWithoutStoppingTheReceiver) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_next();
    queue->withdraw(a.state);
    EXPECT_EQ(state.stops, 0);
    EXPECT_THAT(state.held, ElementsAre(&b.state));
    EXPECT_EQ(queue->count(), 1U);
    EXPECT_EQ(retrieve_nothing(at_once).GetCode(), PvResult::Code::TIMEOUT);
}

TEST_F(BlockQueue, WithdrawsABufferWhoseBlockEndsWhileStopping) {
    queue->add(a.state);
    receiver->finish_while_stopping(a.state, {});
    queue->withdraw(a.state);
    EXPECT_EQ(queue->count(), 0U);
    EXPECT_TRUE(queue->add(a.state).IsOK());
}

TEST_F(BlockQueue, MovesWaitingBuffersToANewReceiver) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_next();
    queue->set_receiver(nullptr);
    EXPECT_TRUE(state.destroyed);
    ASSERT_TRUE(queue->add(c.state).IsOK()) << "buffers may wait for a receiver";
    install_receiver();
    EXPECT_THAT(state.held, ElementsAre(&b.state, &c.state));
    EXPECT_TRUE(state.running);
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::OK);
}

TEST_F(BlockQueue, KeepsABlockThatEndsWhileTheReceiverIsReplaced) {
    queue->add(a.state);
    receiver->finish_while_stopping(a.state, block_with(PvResult::Code::MISSING_PACKETS));
    install_receiver();
    EXPECT_THAT(state.held, IsEmpty());
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::MISSING_PACKETS);
}

TEST_F(BlockQueue, KeepsARefusedBufferFromTheReceiver) {
    a.state.memory = nullptr;
    queue->add(a.state);
    EXPECT_THAT(state.held, IsEmpty());
}

TEST_F(BlockQueue, ReleasesItsBuffersOnDestruction) {
    queue->add(a.state);
    queue->set_receiver(nullptr);
    queue = std::make_shared<block_queue>();
    EXPECT_TRUE(queue->add(a.state).IsOK());
}

TEST_F(BlockQueue, IgnoresABlockOfABufferThatDoesNotWait) {
    queue->add(a.state);
    queue->sink().block_finished(b.state, block_with(PvResult::Code::OK));
    EXPECT_EQ(queue->count(), 1U);
    EXPECT_EQ(retrieve_nothing(at_once).GetCode(), PvResult::Code::TIMEOUT);
}

TEST_F(BlockQueue, AcceptsAnAbortedBufferAgain) {
    queue->add(a.state);
    queue->abort();
    EXPECT_FALSE(queue->add(a.state).IsOK()) << "it is finished and not retrieved";
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::ABORTED);
    EXPECT_TRUE(queue->add(a.state).IsOK());
    EXPECT_EQ(queue->count(), 1U);
}

TEST_F(BlockQueue, StoresTheResultOfTheBlock) {
    queue->add(a.state);
    receiver->finish_next(put_block_with_a_chunk(a, PvResult::Code::OK));
    EXPECT_EQ(a.state.image.GetWidth(), 6U);
    EXPECT_EQ(a.state.image.GetHeight(), 4U);
    EXPECT_EQ(a.state.timestamp, 123'456U);
    ASSERT_EQ(a.state.chunks.size(), 1U);
    EXPECT_EQ(a.state.chunks[0].id, 0x200FU);
    EXPECT_EQ(a.state.chunks[0].offset, 24U);
}

TEST_F(BlockQueue, HasNoChunksForAnIncompleteBlock) {
    queue->add(a.state);
    receiver->finish_next(put_block_with_a_chunk(a, PvResult::Code::OK));
    ASSERT_EQ(retrieve(a.owner), PvResult::Code::OK);
    queue->add(a.state);
    receiver->finish_next(put_block_with_a_chunk(a, PvResult::Code::MISSING_PACKETS));
    EXPECT_THAT(a.state.chunks, IsEmpty());
}

TEST_F(BlockQueue, ReadsNoChunkBeyondTheAttachedMemory) {
    received_block block;
    block.bytes = 1'000'000;
    queue->add(a.state);
    receiver->finish_next(block);
    EXPECT_THAT(a.state.chunks, IsEmpty());
}
