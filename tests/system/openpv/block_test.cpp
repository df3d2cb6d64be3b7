// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "block_sender.hpp"
#include "test_camera.hpp"

namespace {

constexpr uint16_t image = 0x0001;
constexpr uint16_t chunk_data = 0x0004;
constexpr uint16_t image_with_chunks = 0x4001;

/// A stream that receives packets from the test instead of its camera.
class Block : public testing::Test {
protected:
    void SetUp() override {
        camera = start_aravis_camera();
        ASSERT_TRUE(camera);
        PvString const id = find_only_camera();
        device = connect(id);
        stream = open_stream(id);
        ASSERT_TRUE(device && stream);
        int64_t packet_bytes = 0;
        ASSERT_TRUE(ok(device->GetParameters()->GetIntegerValue("GevSCPSPacketSize", packet_bytes)));
        uint16_t const port = dynamic_cast<PvStreamGEV&>(*stream).GetLocalPort();
        sender = std::make_unique<block_sender>(port, static_cast<uint32_t>(packet_bytes));
        set.queue(*stream);
    }

    /// \return the next buffer, whose block must be complete
    PvBuffer* retrieve() {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        EXPECT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, 10'000)));
        EXPECT_TRUE(ok(operation));
        return buffer;
    }

    std::unique_ptr<test_process> camera;
    device_handle device;
    stream_handle stream;
    std::unique_ptr<block_sender> sender;
    // Aravis's camera has a payload of 512 x 512 bytes; a chunked block is larger.
    buffer_set set{4, 512 * 512 + 1000};
};

std::vector<uint8_t> pixels(std::size_t bytes) {
    return std::vector<uint8_t>(bytes, 0x42);
}

}  // namespace

TEST_F(Block, OfAnImageHasNoChunks) {
    sender->send({image, 123'456'789, 0x01080001, 100, 50}, pixels(5000));
    PvBuffer* const buffer = retrieve();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetImage()->GetWidth(), 100U);
    EXPECT_EQ(buffer->GetImage()->GetHeight(), 50U);
    EXPECT_EQ(buffer->GetTimestamp(), 123'456'789U);
    EXPECT_EQ(buffer->GetChunkCount(), 0U);
    EXPECT_EQ(buffer->GetImage()->GetDataPointer()[4999], 0x42);
    EXPECT_EQ(buffer->GetImage()->GetDataPointer()[5000], 0xA5) << "beyond the image";
}

TEST_F(Block, OfAnImageWithChunksReturnsThemByIndexAndById) {
    auto payload = pixels(5000);
    append_chunk(payload, 0x2005, {0, 0, 0, 0, 0, 0, 0, 64});
    append_chunk(payload, 0x200F, {7, 0, 0, 0});
    sender->send({image_with_chunks, 1, 0x01080001, 100, 50}, payload);
    PvBuffer* const buffer = retrieve();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetPayloadType(), PvPayloadTypeImage);
    EXPECT_EQ(buffer->GetImage()->GetWidth(), 100U);
    ASSERT_EQ(buffer->GetChunkCount(), 2U);
    uint32_t first = 0;
    uint32_t second = 0;
    EXPECT_TRUE(ok(buffer->GetChunkIDByIndex(0, first)));
    EXPECT_TRUE(ok(buffer->GetChunkIDByIndex(1, second)));
    EXPECT_EQ(first, 0x2005U);
    EXPECT_EQ(second, 0x200FU);
    EXPECT_EQ(buffer->GetChunkSizeByIndex(0), 8U);
    EXPECT_EQ(buffer->GetChunkSizeByIndex(1), 4U);
    EXPECT_EQ(buffer->GetChunkSizeByIndex(2), 0U);
    uint8_t const* const counter = buffer->GetChunkRawDataByID(0x200F);
    ASSERT_NE(counter, nullptr);
    uint32_t value = 0;
    std::memcpy(&value, counter, sizeof value);
    EXPECT_EQ(value, 7U);
    EXPECT_EQ(counter, buffer->GetImage()->GetDataPointer() + 5000 + 8 + 8) << "in the attached memory";
    EXPECT_EQ(buffer->GetChunkRawDataByID(0x2014), nullptr);
    EXPECT_TRUE(has_code(buffer->GetChunkIDByIndex(2, first), PvResult::Code::NOT_FOUND));
}

TEST_F(Block, OfChunkDataHasItsImageAsTheFirstChunk) {
    std::vector<uint8_t> payload;
    append_chunk(payload, 1, pixels(5000));
    append_chunk(payload, 0x200F, {9, 0, 0, 0});
    sender->send({chunk_data, 1, 0x01080001, 100, 50}, payload);
    PvBuffer* const buffer = retrieve();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetChunkCount(), 2U);
    EXPECT_EQ(buffer->GetChunkRawDataByID(1), buffer->GetImage()->GetDataPointer());
    ASSERT_NE(buffer->GetChunkRawDataByID(0x200F), nullptr);
    EXPECT_EQ(*buffer->GetChunkRawDataByID(0x200F), 9);
}

TEST_F(Block, WithAnInvalidChunkLengthHasNoChunks) {
    auto payload = pixels(5000);
    append_chunk(payload, 0x200F, {7, 0, 0, 0});
    payload[payload.size() - 4] = 0xFF;
    sender->send({image_with_chunks, 1, 0x01080001, 100, 50}, payload);
    PvBuffer* const buffer = retrieve();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetChunkCount(), 0U);
}

TEST_F(Block, DoesNotKeepTheChunksOfThePreviousOne) {
    auto payload = pixels(5000);
    append_chunk(payload, 0x200F, {7, 0, 0, 0});
    sender->send({image_with_chunks, 1, 0x01080001, 100, 50}, payload);
    PvBuffer* const first = retrieve();
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(first->GetChunkCount(), 1U);
    ASSERT_TRUE(ok(stream->QueueBuffer(first)));
    for (int i = 0; i < 4; ++i) {
        sender->send({image, 2, 0x01080001, 100, 50}, pixels(5000));
        PvBuffer* const next = retrieve();
        ASSERT_NE(next, nullptr);
        EXPECT_EQ(next->GetChunkCount(), 0U);
    }
}

TEST_F(Block, MayAnnounceAnyImageSize) {
    for (uint32_t const size : {0U, 0xFFFFU, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        sender->send({image, 1, 0x01FF0001, size, size}, pixels(5000));
        PvBuffer* buffer = nullptr;
        PvResult operation;
        ASSERT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, 10'000)));
        EXPECT_EQ(buffer->GetChunkCount(), 0U);
        ASSERT_TRUE(ok(stream->QueueBuffer(buffer)));
    }
}

TEST_F(Block, ThatIsMalformedDoesNotAffectTheNextAcquisition) {
    for (std::size_t length = 0; length < 60; ++length) {
        sender->send_raw(std::vector<uint8_t>(length, 0xFF));
        sender->send_raw(std::vector<uint8_t>(length, 0x00));
    }
    ASSERT_TRUE(ok(start_acquisition(*device)));
    bool const complete_frame_seen = wait_until([this] {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        if (!stream->RetrieveBuffer(&buffer, &operation, 1000).IsOK()) {
            return false;
        }
        EXPECT_TRUE(ok(stream->QueueBuffer(buffer)));
        return operation.IsOK() && buffer->GetImage()->GetWidth() == 512;
    });
    EXPECT_TRUE(complete_frame_seen);
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}
