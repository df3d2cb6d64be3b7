#include "block_queue.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PvBuffer_impl.hpp"

using namespace std::chrono_literals;
using openpv::block_queue;
using openpv::block_receiver;
using openpv::block_sink;
using openpv::received_block;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::chrono::milliseconds at_once{0};
constexpr std::chrono::milliseconds long_enough{10'000};

/// What the tests see of a receiver that lives in a queue.
struct receiver_journal {
    std::vector<PvBuffer::impl*> held;  ///< given and neither finished nor taken back
    bool running = false;
    bool destroyed = false;
};

/// Finishes blocks when the test says so.
class scripted_receiver : public block_receiver {
public:
    scripted_receiver(block_sink& sink, receiver_journal& journal) : sink_(sink), journal_(journal) {}
    ~scripted_receiver() override { journal_.destroyed = true; }

    void give(PvBuffer::impl& buffer) override { journal_.held.push_back(&buffer); }
    void start() override { journal_.running = true; }
    void take_back() override {
        for (auto const& [buffer, block] : std::exchange(ending_, {})) {
            finish(*buffer, block);
        }
        journal_.held.clear();
        journal_.running = false;
    }

    void finish_next(received_block const& block = {}) { finish(*journal_.held.front(), block); }
    /// A block that ends just when buffers are taken back.
    void finish_while_taken_back(PvBuffer::impl& buffer, received_block const& block) {
        ending_.push_back({&buffer, block});
    }

private:
    void finish(PvBuffer::impl& buffer, received_block const& block) {
        std::erase(journal_.held, &buffer);
        sink_.block_finished(buffer, block);
    }

    block_sink& sink_;
    receiver_journal& journal_;
    std::vector<std::pair<PvBuffer::impl*, received_block>> ending_;
};

/// A buffer as its stream sees it, with memory.
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
        journal = {};
        auto made = std::make_unique<scripted_receiver>(queue->sink(), journal);
        receiver = made.get();
        queue->set_receiver(std::move(made));
    }

    /// \return how the oldest finished block ended, null when there is none
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
    receiver_journal journal;
    scripted_receiver* receiver = nullptr;
    std::atomic<bool> alive = true;
    attached_buffer a;
    attached_buffer b;
    attached_buffer c;
};

received_block block_with(uint32_t result) {
    received_block block;
    block.result = result;
    return block;
}

/// A picture of 6 x 4 pixels with chunk 0x200F behind it.
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

TEST_F(BlockQueue, GivesBuffersToTheReceiverInQueueOrder) {
    EXPECT_TRUE(journal.running);
    ASSERT_TRUE(queue->add(a.state).IsOK());
    ASSERT_TRUE(queue->add(b.state).IsOK());
    EXPECT_THAT(journal.held, ElementsAre(&a.state, &b.state));
    EXPECT_EQ(queue->count(), 2U);
}

TEST_F(BlockQueue, HandsOutFinishedBuffersOldestFirstWithTheResultOfEach) {
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
    EXPECT_THAT(journal.held, ElementsAre(&a.state));
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

TEST_F(BlockQueue, TakesABufferAgainOnceItWasRetrieved) {
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

TEST_F(BlockQueue, TakesAsManyBuffersAsItsMaximumAndNoMore) {
    std::vector<std::unique_ptr<attached_buffer>> many;
    for (std::size_t i = 0; i < block_queue::maximum; ++i) {
        many.push_back(std::make_unique<attached_buffer>());
        ASSERT_TRUE(queue->add(many.back()->state).IsOK());
    }
    EXPECT_FALSE(queue->add(a.state).IsOK());
    receiver->finish_next();
    EXPECT_FALSE(queue->add(a.state).IsOK()) << "a finished buffer keeps its place until it is retrieved";
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
    PvBuffer* buffer = nullptr;
    PvResult operation;
    std::jthread caller(
        [&] { EXPECT_TRUE(queue->retrieve(buffer, operation, long_enough, [] { return true; }).IsOK()); });
    receiver->finish_next();
    caller.join();
    EXPECT_EQ(buffer, &a.owner);
}

TEST_F(BlockQueue, ReportsALostCameraAtOnceWhenNothingIsFinished) {
    queue->add(a.state);
    alive = false;
    EXPECT_EQ(retrieve_nothing(std::nullopt).GetCode(), PvResult::Code::NOT_CONNECTED);
}

TEST_F(BlockQueue, WakesACallerThatWaitsForEverWhenTheCameraIsLost) {
    std::jthread caller([&] { EXPECT_EQ(retrieve_nothing(std::nullopt).GetCode(), PvResult::Code::NOT_CONNECTED); });
    alive = false;
    queue->wake();
    caller.join();
}

TEST_F(BlockQueue, HandsOutFinishedAndAbortedBuffersBeforeItReportsALostCamera) {
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
    EXPECT_THAT(journal.held, IsEmpty());
    EXPECT_TRUE(journal.running) << "buffers queued from now on are filled";
    EXPECT_EQ(queue->count(), 3U);
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::OK);
    EXPECT_EQ(retrieve(b.owner), PvResult::Code::ABORTED);
    EXPECT_EQ(retrieve(c.owner), PvResult::Code::ABORTED);
}

TEST_F(BlockQueue, AbortKeepsABlockThatEndsMeanwhile) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_while_taken_back(a.state, block_with(PvResult::Code::MISSING_PACKETS));
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
    EXPECT_THAT(journal.held, ElementsAre(&a.state, &c.state));
    EXPECT_TRUE(journal.running);
    EXPECT_EQ(queue->count(), 2U);
    EXPECT_TRUE(queue->add(b.state).IsOK()) << "it is free again";
}

TEST_F(BlockQueue, WithdrawsAFinishedBufferWithoutTroublingTheReceiver) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_next();
    queue->withdraw(a.state);
    EXPECT_THAT(journal.held, ElementsAre(&b.state));
    EXPECT_EQ(queue->count(), 1U);
    EXPECT_EQ(retrieve_nothing(at_once).GetCode(), PvResult::Code::TIMEOUT);
}

TEST_F(BlockQueue, WithdrawsABufferWhoseBlockEndsMeanwhile) {
    queue->add(a.state);
    receiver->finish_while_taken_back(a.state, {});
    queue->withdraw(a.state);
    EXPECT_EQ(queue->count(), 0U);
    EXPECT_TRUE(queue->add(a.state).IsOK());
}

TEST_F(BlockQueue, HandsWaitingBuffersToANewReceiver) {
    queue->add(a.state);
    queue->add(b.state);
    receiver->finish_next();
    queue->set_receiver(nullptr);
    EXPECT_TRUE(journal.destroyed);
    ASSERT_TRUE(queue->add(c.state).IsOK()) << "buffers may wait for a receiver";
    install_receiver();
    EXPECT_THAT(journal.held, ElementsAre(&b.state, &c.state));
    EXPECT_TRUE(journal.running);
    EXPECT_EQ(retrieve(a.owner), PvResult::Code::OK);
}

TEST_F(BlockQueue, FreesItsBuffersWhenItGoes) {
    queue->add(a.state);
    queue->set_receiver(nullptr);
    queue = std::make_shared<block_queue>();
    EXPECT_TRUE(queue->add(a.state).IsOK());
}

TEST_F(BlockQueue, FillsInWhatTheBlockBrought) {
    queue->add(a.state);
    receiver->finish_next(put_block_with_a_chunk(a, PvResult::Code::OK));
    EXPECT_EQ(a.state.image.GetWidth(), 6U);
    EXPECT_EQ(a.state.image.GetHeight(), 4U);
    EXPECT_EQ(a.state.timestamp, 123'456U);
    ASSERT_EQ(a.state.chunks.size(), 1U);
    EXPECT_EQ(a.state.chunks[0].id, 0x200FU);
    EXPECT_EQ(a.state.chunks[0].offset, 24U);
}

TEST_F(BlockQueue, ShowsNoChunksOfABlockThatIsNotWhole) {
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
