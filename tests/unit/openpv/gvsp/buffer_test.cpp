// SPDX-License-Identifier: MIT
#include <PvBuffer.h>

#include <array>
#include <cstdint>
#include <memory>

#include <gtest/gtest.h>

#include "gvsp/block_queue.hpp"
#include "gvsp/PvBuffer_impl.hpp"

namespace {

/// Reaches the state that only `PvStream` may use: an explicit instantiation may name private members.
template <auto member>
struct state_access {
    friend PvBuffer::impl& state_of(PvBuffer& buffer) { return *(buffer.*member); }
};
PvBuffer::impl& state_of(PvBuffer& buffer);
template struct state_access<&PvBuffer::impl_>;

class Buffer : public testing::Test {
protected:
    Buffer() { EXPECT_TRUE(buffer.Attach(memory.data(), memory_bytes).IsOK()); }

    /// Finishes the buffer with a block of 4 bytes and two chunks.
    void receive(std::uint32_t result = PvResult::Code::OK) {
        memory = {'i', 'm', 'a', 'g', 7, 8, 0, 0, 0x20, 0x0F, 0, 0, 0, 2, 9, 0, 0, 0x20, 0x14, 0, 0, 0, 1};
        openpv::received_block block;
        block.result = result;
        block.width = 4;
        block.height = 1;
        block.timestamp = 77;
        block.bytes = 23;
        block.image_bytes = 4;
        state_of(buffer).finish(block);
    }

    static constexpr std::uint32_t memory_bytes = 40;
    std::array<std::uint8_t, memory_bytes> memory{};
    PvBuffer buffer{PvPayloadTypeImage};
};

}  // namespace

TEST_F(Buffer, FindsNoChunksBeyondItsMemory) {
    memory = {'i', 'm', 'a', 'g', 7, 8, 0, 0, 0x20, 0x0F, 0, 0, 0, 2};
    ASSERT_TRUE(buffer.Attach(memory.data(), 4).IsOK());
    openpv::received_block block;
    block.result = PvResult::Code::OK;
    block.bytes = 14;
    block.image_bytes = 4;
    state_of(buffer).finish(block);
    EXPECT_EQ(buffer.GetChunkCount(), 0U);
}

TEST_F(Buffer, RefusesMemoryThatIsNullOrEmpty) {
    EXPECT_EQ(buffer.Attach(nullptr, 8).GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_EQ(buffer.Attach(memory.data(), 0).GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_EQ(buffer.GetImage()->GetDataPointer(), memory.data()) << "it keeps the memory that it has";
}

TEST_F(Buffer, HoldsTheBlockReceivedLast) {
    receive();
    EXPECT_EQ(buffer.GetPayloadType(), PvPayloadTypeImage);
    EXPECT_EQ(buffer.GetImage()->GetDataPointer(), memory.data());
    EXPECT_EQ(buffer.GetImage()->GetWidth(), 4U);
    EXPECT_EQ(buffer.GetImage()->GetHeight(), 1U);
    EXPECT_EQ(buffer.GetTimestamp(), 77U);
    EXPECT_EQ(state_of(buffer).result, PvResult::Code::OK);
}

TEST_F(Buffer, GivesItsChunksByIndexAndId) {
    receive();
    ASSERT_EQ(buffer.GetChunkCount(), 2U);
    std::uint32_t id = 0;
    ASSERT_TRUE(buffer.GetChunkIDByIndex(0, id).IsOK());
    EXPECT_EQ(id, 0x200FU);
    ASSERT_TRUE(buffer.GetChunkIDByIndex(1, id).IsOK());
    EXPECT_EQ(id, 0x2014U);
    EXPECT_EQ(buffer.GetChunkSizeByIndex(0), 2U);
    EXPECT_EQ(buffer.GetChunkSizeByIndex(1), 1U);
    EXPECT_EQ(buffer.GetChunkRawDataByID(0x200F), memory.data() + 4);
    EXPECT_EQ(buffer.GetChunkRawDataByID(0x2014), memory.data() + 14);
}

TEST_F(Buffer, HasNoChunkBeyondTheLast) {
    receive();
    std::uint32_t id = 4711;
    EXPECT_EQ(buffer.GetChunkIDByIndex(2, id).GetCode(), PvResult::Code::NOT_FOUND);
    EXPECT_EQ(id, 4711U);
    EXPECT_EQ(buffer.GetChunkSizeByIndex(2), 0U);
    EXPECT_EQ(buffer.GetChunkRawDataByID(0x2015), nullptr);
}

TEST_F(Buffer, HasNoChunksOfAnIncompleteBlock) {
    receive();
    receive(PvResult::Code::MISSING_PACKETS);
    EXPECT_EQ(buffer.GetChunkCount(), 0U);
    EXPECT_EQ(state_of(buffer).result, PvResult::Code::MISSING_PACKETS);
}

TEST_F(Buffer, LosesItsBlockWhenMemoryIsAttached) {
    receive();
    std::array<std::uint8_t, 30> other{};
    ASSERT_TRUE(buffer.Attach(other.data(), other.size()).IsOK());
    EXPECT_EQ(buffer.GetChunkCount(), 0U);
    EXPECT_EQ(buffer.GetTimestamp(), 0U);
    EXPECT_EQ(buffer.GetImage()->GetWidth(), 0U);
    EXPECT_EQ(buffer.GetImage()->GetDataPointer(), other.data());
    EXPECT_EQ(state_of(buffer).size, other.size());
}

TEST_F(Buffer, KeepsItsMemoryWhileItIsQueued) {
    auto const queue = std::make_shared<openpv::block_queue>();
    ASSERT_TRUE(queue->add(state_of(buffer)).IsOK());
    EXPECT_EQ(buffer.Attach(memory.data(), memory_bytes).GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_EQ(queue->count(), 1U);
}

TEST_F(Buffer, LeavesItsQueueOnDestruction) {
    auto const queue = std::make_shared<openpv::block_queue>();
    {
        PvBuffer short_lived(PvPayloadTypeImage);
        ASSERT_TRUE(short_lived.Attach(memory.data(), memory_bytes).IsOK());
        ASSERT_TRUE(queue->add(state_of(short_lived)).IsOK());
        ASSERT_EQ(queue->count(), 1U);
    }
    EXPECT_EQ(queue->count(), 0U);
}
