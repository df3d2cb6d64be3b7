// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "test_camera.hpp"

namespace {

constexpr uint32_t long_time = 10'000;  ///< milliseconds

/// A connected camera and an open stream, on each of the two cameras.
class Stream : public testing::TestWithParam<char const*> {
protected:
    void SetUp() override {
        camera = std::string(GetParam()) == "camsim" ? start_camsim() : start_aravis_camera();
        ASSERT_TRUE(camera);
        id = find_only_camera();
        device = connect(id);
        ASSERT_TRUE(device);
        stream = open_stream(id);
        ASSERT_TRUE(stream);
    }

    /// The oldest finished buffer; the call must succeed.
    PvBuffer* retrieve(PvResult& operation) {
        PvBuffer* buffer = nullptr;
        EXPECT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, long_time)));
        return buffer;
    }

    /// Retrieves until nothing is queued. \return the result of each buffer
    std::vector<std::string> drain() {
        std::vector<std::string> codes;
        while (stream->GetQueuedBufferCount() != 0) {
            PvResult operation;
            if (retrieve(operation) == nullptr) {
                break;
            }
            codes.emplace_back(operation.GetCodeString().GetAscii());
        }
        return codes;
    }

    std::unique_ptr<test_process> camera;
    PvString id;
    device_handle device;
    stream_handle stream;
};

INSTANTIATE_TEST_SUITE_P(Cameras, Stream, testing::Values("aravis", "camsim"),
                         [](auto const& info) { return std::string(info.param); });

}  // namespace

TEST_P(Stream, HasItsOwnSocketAsSoonAsItIsOpen) {
    auto* const gev = dynamic_cast<PvStreamGEV*>(stream.get());
    ASSERT_NE(gev, nullptr);
    EXPECT_NE(gev->GetLocalPort(), 0);
    EXPECT_STREQ(gev->GetLocalIPAddress().GetAscii(), "127.0.0.1");
    EXPECT_EQ(stream->GetQueuedBufferCount(), 0U);
    EXPECT_EQ(stream->GetQueuedBufferMaximum(), 512U);
}

TEST_P(Stream, DeliversTwoHundredCompleteFramesInOrderAndInQueueOrder) {
    uint32_t const payload = device->GetPayloadSize();
    ASSERT_GT(payload, 0U);
    buffer_set set(8, payload);
    set.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    int64_t width = 0;
    ASSERT_TRUE(ok(device->GetParameters()->GetIntegerValue("Width", width)));
    uint64_t last_timestamp = 0;
    std::vector<uint64_t> steps;
    for (std::size_t i = 0; i < 200; ++i) {
        PvResult operation(PvResult::Code::GENERIC_ERROR);
        PvBuffer* const buffer = retrieve(operation);
        ASSERT_EQ(buffer, set.buffers[i % set.buffers.size()].get()) << i;
        ASSERT_TRUE(ok(operation)) << i;
        EXPECT_EQ(buffer->GetPayloadType(), PvPayloadTypeImage);
        EXPECT_EQ(buffer->GetImage()->GetWidth(), static_cast<uint32_t>(width));
        EXPECT_GT(buffer->GetImage()->GetHeight(), 0U);
        EXPECT_EQ(buffer->GetImage()->GetDataPointer(), set.memory[i % set.memory.size()].data());
        EXPECT_GT(buffer->GetTimestamp(), last_timestamp);
        EXPECT_EQ(buffer->GetChunkCount(), 0U);
        if (i > 0) {
            steps.push_back(buffer->GetTimestamp() - last_timestamp);
        }
        last_timestamp = buffer->GetTimestamp();
        ASSERT_TRUE(ok(stream->QueueBuffer(buffer)));
    }
    EXPECT_TRUE(ok(stop_acquisition(*device)));
    std::ranges::sort(steps);
    EXPECT_LT(steps.back(), steps[steps.size() / 2] * 3 / 2) << "a frame is missing";
}

TEST_P(Stream, WritesTheImageToTheAttachedMemoryAndNothingBehindIt) {
    uint32_t const payload = device->GetPayloadSize();
    buffer_set set(1, payload + 100);
    set.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    PvResult operation;
    ASSERT_NE(retrieve(operation), nullptr);
    EXPECT_TRUE(ok(operation));
    auto const& memory = set.memory.front();
    EXPECT_TRUE(std::all_of(memory.end() - 100, memory.end(), [](uint8_t byte) { return byte == 0xA5; }));
    // The image of each camera has different brightnesses; unwritten memory has not.
    auto const [darkest, brightest] = std::minmax_element(memory.begin(), memory.end() - 100);
    EXPECT_LT(*darkest, *brightest);
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST_P(Stream, ReportsATimeOutWhenTheCameraDoesNotSend) {
    buffer_set set(2, device->GetPayloadSize());
    set.queue(*stream);
    PvBuffer* buffer = nullptr;
    PvResult operation;
    auto const start = std::chrono::steady_clock::now();
    EXPECT_TRUE(has_code(stream->RetrieveBuffer(&buffer, &operation, 50), PvResult::Code::TIMEOUT));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(stream->GetQueuedBufferCount(), 2U);
}

TEST_P(Stream, WaitsWithoutATimeoutForALateFrame) {
    buffer_set set(1, device->GetPayloadSize());
    set.queue(*stream);
    PvBuffer* buffer = nullptr;
    PvResult operation;
    std::jthread waiting([&] { EXPECT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, 0xFFFFFFFF))); });
    ASSERT_TRUE(ok(start_acquisition(*device)));
    waiting.join();
    EXPECT_EQ(buffer, set.buffers.front().get());
    EXPECT_TRUE(ok(operation));
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST_P(Stream, ReportsABufferThatIsTooSmall) {
    buffer_set large(1, device->GetPayloadSize());
    for (uint32_t const missing : {1U, 100U, device->GetPayloadSize() / 2}) {
        buffer_set set(1, device->GetPayloadSize() - missing);
        set.queue(*stream);
        ASSERT_TRUE(ok(start_acquisition(*device)));
        PvResult operation;
        EXPECT_EQ(retrieve(operation), set.buffers.front().get());
        EXPECT_TRUE(has_code(operation, PvResult::Code::BUFFER_TOO_SMALL)) << missing;
        EXPECT_TRUE(ok(stop_acquisition(*device)));
    }
    large.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    PvResult operation;
    EXPECT_EQ(retrieve(operation), large.buffers.front().get());
    EXPECT_TRUE(ok(operation)) << "the next block is complete again";
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST_P(Stream, AbortsWhatIsQueuedWhileTheCameraSends) {
    buffer_set set(16, device->GetPayloadSize());
    set.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    PvResult operation;
    ASSERT_NE(retrieve(operation), nullptr);
    ASSERT_TRUE(ok(stream->AbortQueuedBuffers()));
    EXPECT_EQ(stream->GetQueuedBufferCount(), 15U);
    auto const codes = drain();
    EXPECT_EQ(codes.size(), 15U);
    EXPECT_EQ(codes.back(), "ABORTED");
    EXPECT_TRUE(std::ranges::is_sorted(codes, std::greater<>())) << "finished frames come before aborted ones";
    set.queue(*stream);
    ASSERT_NE(retrieve(operation), nullptr) << "the stream continues";
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST_P(Stream, ContinuesAfterEveryRestartOfTheCamera) {
    buffer_set set(4, device->GetPayloadSize());
    for (int i = 0; i < 5; ++i) {
        set.queue(*stream);
        ASSERT_TRUE(ok(start_acquisition(*device)));
        for (int k = 0; k < 3; ++k) {
            PvResult operation;
            PvBuffer* const buffer = retrieve(operation);
            ASSERT_NE(buffer, nullptr);
            EXPECT_TRUE(ok(operation)) << "restart " << i << ", frame " << k;
            ASSERT_TRUE(ok(stream->QueueBuffer(buffer)));
        }
        ASSERT_TRUE(ok(stop_acquisition(*device)));
        ASSERT_TRUE(ok(stream->AbortQueuedBuffers()));
        EXPECT_EQ(drain().size(), 4U);
    }
}

TEST_P(Stream, WithdrawsABufferThatIsDestroyedWhileQueued) {
    buffer_set set(4, device->GetPayloadSize());
    set.queue(*stream);
    set.buffers[1].reset();
    EXPECT_EQ(stream->GetQueuedBufferCount(), 3U);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    for (std::size_t const i : {0U, 2U, 3U}) {
        PvResult operation;
        EXPECT_EQ(retrieve(operation), set.buffers[i].get());
        EXPECT_TRUE(ok(operation));
    }
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST_P(Stream, AllowsBuffersToBeDestroyedInAnyStateWhileTheCameraSends) {
    uint32_t const payload = device->GetPayloadSize();
    buffer_set keep(4, payload);
    keep.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    for (int i = 0; i < 20; ++i) {
        buffer_set passing(3, payload);
        passing.queue(*stream);
        PvResult operation;
        PvBuffer* const buffer = retrieve(operation);
        bool const kept =
            std::ranges::any_of(keep.buffers, [buffer](auto const& each) { return each.get() == buffer; });
        if (kept) {
            ASSERT_TRUE(ok(stream->QueueBuffer(buffer)));
        }
    }
    EXPECT_LE(stream->GetQueuedBufferCount(), 4U);
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST_P(Stream, RefusesABufferThatIsQueuedAlreadyOrHasNoMemory) {
    buffer_set set(1, device->GetPayloadSize());
    set.queue(*stream);
    EXPECT_TRUE(has_code(stream->QueueBuffer(set.buffers.front().get()), PvResult::Code::INVALID_PARAMETER));
    PvBuffer bare(PvPayloadTypeImage);
    EXPECT_TRUE(has_code(stream->QueueBuffer(&bare), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(has_code(stream->QueueBuffer(nullptr), PvResult::Code::INVALID_PARAMETER));
    EXPECT_EQ(stream->GetQueuedBufferCount(), 1U);
}

TEST_P(Stream, RefusesOtherMemoryForAQueuedBuffer) {
    buffer_set set(1, 1000);
    std::vector<uint8_t> other(1000);
    set.queue(*stream);
    EXPECT_TRUE(has_code(set.buffers.front()->Attach(other.data(), 1000), PvResult::Code::INVALID_PARAMETER));
    ASSERT_TRUE(ok(stream->AbortQueuedBuffers()));
    drain();
    EXPECT_TRUE(ok(set.buffers.front()->Attach(other.data(), 1000)));
    EXPECT_EQ(set.buffers.front()->GetImage()->GetDataPointer(), other.data());
}

TEST_P(Stream, RequiresPointersForTheBufferAndTheResult) {
    PvBuffer* buffer = nullptr;
    PvResult operation;
    EXPECT_TRUE(has_code(stream->RetrieveBuffer(nullptr, &operation, 0), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(has_code(stream->RetrieveBuffer(&buffer, nullptr, 0), PvResult::Code::INVALID_PARAMETER));
}

TEST_P(Stream, MayBeFreedWhileTheCameraSendsIntoItsBuffers) {
    buffer_set set(4, device->GetPayloadSize());
    set.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    PvResult operation;
    ASSERT_NE(retrieve(operation), nullptr);
    stream.reset();
    EXPECT_TRUE(device->IsConnected());
    stream = open_stream(id);
    ASSERT_TRUE(stream);
    set.queue(*stream);
    EXPECT_EQ(stream->GetQueuedBufferCount(), 4U) << "the buffers are free for another stream";
}

TEST_P(Stream, ReturnsItsBuffersAfterADisconnectionAndThenReportsIt) {
    buffer_set set(3, device->GetPayloadSize());
    set.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    ASSERT_TRUE(wait_until([this] { return stream->GetQueuedBufferCount() == 3U; }));
    ASSERT_TRUE(ok(device->Disconnect()));
    ASSERT_TRUE(ok(stream->AbortQueuedBuffers()));
    EXPECT_EQ(drain().size(), 3U);
    PvBuffer* buffer = nullptr;
    PvResult operation;
    EXPECT_TRUE(has_code(stream->RetrieveBuffer(&buffer, &operation, 0xFFFFFFFF), PvResult::Code::NOT_CONNECTED));
}

TEST_P(Stream, ContinuesAfterTheDeviceWasConnectedAgain) {
    buffer_set set(4, device->GetPayloadSize());
    ASSERT_TRUE(ok(device->Disconnect()));
    ASSERT_TRUE(ok(device->Connect(id)));
    set.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    PvResult operation;
    EXPECT_EQ(retrieve(operation), set.buffers.front().get());
    EXPECT_TRUE(ok(operation));
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST(Buffer, RefusesNullOrEmptyMemory) {
    PvBuffer buffer(PvPayloadTypeImage);
    uint8_t byte = 0;
    EXPECT_TRUE(has_code(buffer.Attach(nullptr, 10), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(has_code(buffer.Attach(&byte, 0), PvResult::Code::INVALID_PARAMETER));
    EXPECT_TRUE(ok(buffer.Attach(&byte, 1)));
}

TEST(Buffer, HasNoChunksBeforeABlock) {
    PvBuffer buffer(PvPayloadTypeImage);
    uint32_t chunk = 7;
    EXPECT_EQ(buffer.GetChunkCount(), 0U);
    EXPECT_TRUE(has_code(buffer.GetChunkIDByIndex(0, chunk), PvResult::Code::NOT_FOUND));
    EXPECT_EQ(chunk, 7U);
    EXPECT_EQ(buffer.GetChunkSizeByIndex(0), 0U);
    EXPECT_EQ(buffer.GetChunkRawDataByID(0x200F), nullptr);
    EXPECT_EQ(buffer.GetTimestamp(), 0U);
    EXPECT_EQ(buffer.GetImage()->GetWidth(), 0U);
}

TEST(StreamOfAravissCamera, ReportsFramesWithMissingPackets) {
    // One packet in a hundred is lost, of 190 per frame, and this camera cannot resend.
    auto const camera = start_aravis_camera({"-r", "10"});
    PvString const id = find_only_camera();
    auto const device = connect(id);
    auto const stream = open_stream(id);
    ASSERT_TRUE(device && stream);
    buffer_set set(4, device->GetPayloadSize());
    set.queue(*stream);
    ASSERT_TRUE(ok(start_acquisition(*device)));
    bool const seen = wait_until([&] {
        PvBuffer* buffer = nullptr;
        PvResult operation;
        if (!stream->RetrieveBuffer(&buffer, &operation, long_time).IsOK()) {
            return false;
        }
        stream->QueueBuffer(buffer);
        return operation.GetCode() == PvResult::Code::MISSING_PACKETS || operation.GetCode() == PvResult::Code::TIMEOUT;
    });
    EXPECT_TRUE(seen);
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

TEST(StreamOfAravissCamera, ReportsEachLossOnceAlthoughBuffersAreAborted) {
    auto const camera = start_aravis_camera({"-r", "10"});
    PvString const id = find_only_camera();
    auto const device = connect(id);
    auto const stream = open_stream(id);
    ASSERT_TRUE(device && stream);
    buffer_set set(4, device->GetPayloadSize());
    testing::internal::CaptureStderr();
    unsigned incomplete = 0;
    EXPECT_TRUE(ok(start_acquisition(*device)));
    for (int round = 1; round <= 2; ++round) {
        set.queue(*stream);
        unsigned const wanted = incomplete + 2;
        EXPECT_TRUE(wait_until([&] {
            PvBuffer* buffer = nullptr;
            PvResult operation;
            if (!stream->RetrieveBuffer(&buffer, &operation, long_time).IsOK()) {
                return false;
            }
            stream->QueueBuffer(buffer);
            incomplete += operation.IsOK() ? 0U : 1U;
            return incomplete >= wanted;
        }));
        EXPECT_TRUE(ok(stream->AbortQueuedBuffers()));
        while (stream->GetQueuedBufferCount() != 0) {
            PvBuffer* buffer = nullptr;
            PvResult operation;
            ASSERT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, long_time)));
            bool const aborted = operation.GetCode() == PvResult::Code::ABORTED;
            incomplete += operation.IsOK() || aborted ? 0U : 1U;
        }
    }
    EXPECT_TRUE(ok(stop_acquisition(*device)));
    std::string const log = testing::internal::GetCapturedStderr();
    std::regex const count("openpv-stream-statistics:.* frames_incomplete=([0-9]+)");
    std::uint64_t reported = 0;
    for (std::sregex_iterator found(log.begin(), log.end(), count), end; found != end; ++found) {
        reported += std::stoull((*found)[1]);
    }
    EXPECT_GE(reported, incomplete) << log;
    EXPECT_LE(reported, incomplete + 2) << "one frame of each round may be interrupted by its end\n" << log;
}

TEST(StreamOfCamsim, NamesItsThreads) {
    auto const camera = start_camsim();
    PvString const id = find_only_camera();
    auto const device = connect(id);
    auto const stream = open_stream(id);
    ASSERT_TRUE(device && stream);
    buffer_set set(1, device->GetPayloadSize());
    set.queue(*stream);
    auto const names = [] {
        std::set<std::string> found;
        for (auto const& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            std::ifstream file(thread.path() / "comm");
            std::string name;
            std::getline(file, name);
            found.insert(name);
        }
        return found;
    };
    EXPECT_TRUE(wait_until([&] { return names().contains("openpv-receive") && names().contains("openpv-heart"); }));
}

TEST(StreamOfCamsim, ReportsTimestampsInTicksOfTheCamera) {
    // 41.666667 MHz: a tick is not an integer number of nanoseconds.
    auto const camera = start_camsim(
        "127.0.0.1", {"--tick-frequency", "41666667", "--first-tick", "1000000000000", "--timestamp", "running"});
    PvString const id = find_only_camera();
    auto const device = connect(id);
    auto const stream = open_stream(id);
    ASSERT_TRUE(device && stream);
    buffer_set set(4, device->GetPayloadSize());
    set.queue(*stream);
    int64_t before = 0;
    int64_t after = 0;
    ASSERT_TRUE(ok(device->GetParameters()->GetIntegerValue("GevTimestampValue", before)));
    ASSERT_TRUE(ok(start_acquisition(*device)));
    PvBuffer* buffer = nullptr;
    PvResult operation;
    ASSERT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, long_time)));
    ASSERT_TRUE(ok(device->GetParameters()->GetIntegerValue("GevTimestampValue", after)));
    EXPECT_GT(buffer->GetTimestamp(), static_cast<uint64_t>(before));
    EXPECT_LT(buffer->GetTimestamp(), static_cast<uint64_t>(after));
    EXPECT_TRUE(ok(stop_acquisition(*device)));
}

namespace {

/// How a camera of camsim describes a block with chunks.
class ChunkPayload : public testing::TestWithParam<char const*> {};

INSTANTIATE_TEST_SUITE_P(StreamOfCamsim, ChunkPayload, testing::Values("standard", "deprecated", "extended"),
                         [](auto const& info) { return std::string(info.param); });

}  // namespace

TEST_P(ChunkPayload, HasTheImageSizeOfEachAcquisitionAndItsChunks) {
    auto const camera = start_camsim("127.0.0.1", {"--chunk-payload", GetParam()});
    PvString const id = find_only_camera();
    auto const device = connect(id);
    auto const stream = open_stream(id);
    ASSERT_TRUE(device && stream);
    PvGenParameterArray& features = *device->GetParameters();
    ASSERT_TRUE(ok(features.SetEnumValue("PixelFormat", "Mono12Packed")));
    ASSERT_TRUE(ok(features.SetBooleanValue("ChunkModeActive", true)));
    ASSERT_TRUE(ok(features.SetEnumValue("ChunkSelector", "ExposureStartCounter")));
    ASSERT_TRUE(ok(features.SetBooleanValue("ChunkEnable", true)));
    for (int64_t const width : {640, 320}) {
        ASSERT_TRUE(ok(features.SetIntegerValue("Width", width)));
        buffer_set set(4, device->GetPayloadSize());
        set.queue(*stream);
        ASSERT_TRUE(ok(start_acquisition(*device)));
        PvBuffer* buffer = nullptr;
        PvResult operation;
        ASSERT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, long_time)));
        EXPECT_TRUE(ok(operation));
        EXPECT_EQ(buffer->GetPayloadType(), PvPayloadTypeImage);
        EXPECT_EQ(buffer->GetImage()->GetWidth(), width);
        EXPECT_EQ(buffer->GetImage()->GetHeight(), 480U);
        // Each chunk, the image included, is followed by its ID and length.
        auto const image_bytes = static_cast<std::ptrdiff_t>(width * 480 * 3 / 2);
        EXPECT_EQ(buffer->GetChunkRawDataByID(0x200F), buffer->GetImage()->GetDataPointer() + image_bytes + 8);
        EXPECT_TRUE(ok(stop_acquisition(*device)));
        stream->AbortQueuedBuffers();
        while (stream->GetQueuedBufferCount() != 0) {
            ASSERT_TRUE(ok(stream->RetrieveBuffer(&buffer, &operation, long_time)));
        }
    }
}
