// SPDX-License-Identifier: MIT
#include <PvBuffer.h>
#include <PvStream.h>

#include <cstring>

#include "errors.hpp"
#include "jai_kernel/kernel_test.hpp"

namespace {

using plugin_test::level;
using testing::ElementsAre;
using testing::IsEmpty;

template <typename type>
std::vector<uint8_t> bytes_of(type value) {
    std::vector<uint8_t> bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

struct frame_chunks : plugin_test::kernel_fixture {
    frame_chunks() {
        kernel.tickFrequency = 125'000'000;
        kernel.chunkMask = 0xF;
        cam()["Gain"].real = 2.0;
        cam()["ExposureTime"].real = 1234.75;
    }

    /// Handles a frame with these chunks.
    /// \return its time in microseconds
    uint64_t process(std::vector<scripted::chunk> chunks, uint64_t ticks = 0) {
        auto& stream = *device().stream;
        stream.QueueBuffer(&buffer_);
        cam().blocks = {{.timestamp = ticks, .chunks = std::move(chunks)}};
        PvBuffer* fetched = nullptr;
        PvResult operation;
        EXPECT_TRUE(stream.RetrieveBuffer(&fetched, &operation, 0).IsOK());
        host().values.clear();
        return kernel.ProcFrameChunks(&device(), fetched);
    }

private:
    PvBuffer buffer_{PvPayloadTypeImage};
};

TEST_F(frame_chunks, ATickFrequencyOf125MHzAnd250000000TicksGive2000000Microseconds) {
    EXPECT_EQ(process({}, 250'000'000), 2'000'000u);
    EXPECT_EQ(host().last_value(9), 250'000'000.0) << "the raw ticks go to the host";
}

TEST_F(frame_chunks, TicksAtAndAbove2To63AreTakenAsUnsigned) {
    kernel.tickFrequency = 1'000'000;
    EXPECT_EQ(process({}, uint64_t{1} << 63), uint64_t{1} << 63);
    EXPECT_EQ(process({}, UINT64_MAX), UINT64_MAX) << "the conversion saturates";
}

TEST_F(frame_chunks, WithoutATickFrequencyTheTimeIs0) {
    kernel.tickFrequency = 0;
    EXPECT_EQ(process({}, 250'000'000), 0u);
    EXPECT_EQ(host().last_value(9), 250'000'000.0);
}

TEST_F(frame_chunks, AFrameCarryingChunk0x2005WithPayload2StillExportsTheGrabControlBlocksGain) {
    cam()["Gain"].real = 4.0;
    process({{0x2005, bytes_of(2.0F)}});
    EXPECT_NEAR(*host().last_value(6), 12.0412, 1e-3);
    EXPECT_NEAR(kernel.gainDb, 12.0412, 1e-3);
}

TEST_F(frame_chunks, AnExposureChunkNeverReachesTheHost) {
    process({{0x2004, bytes_of(99.0F)}});
    EXPECT_EQ(host().last_value(7), 1234.75);
    EXPECT_EQ(kernel.exposure, 1234.75);
    EXPECT_EQ(kernel.exposureInt, 1234) << "toward zero";
}

TEST_F(frame_chunks, WithChunk0x200FCarrying7Parameter10Is7AndTheCounterIs8Afterwards) {
    process({{0x200F, bytes_of(uint32_t{7})}});
    EXPECT_EQ(host().last_value(10), 7.0);
    process({});
    EXPECT_EQ(host().last_value(10), 8.0);
}

TEST_F(frame_chunks, WithBit8ClearParameter10IsNotSentEvenThoughTheCounterIsOverwritten) {
    kernel.chunkMask = 0x7;
    process({{0x200F, bytes_of(uint32_t{70})}});
    EXPECT_EQ(host().last_value(10), std::nullopt);
    kernel.chunkMask = 0x8;
    process({});
    EXPECT_EQ(host().last_value(10), 71.0);
}

TEST_F(frame_chunks, WithAnEmptyMaskChunksAreNotRead) {
    process({{0x200F, bytes_of(uint32_t{50})}});
    kernel.chunkMask = 0;
    support::journal().clear();
    process({{0x200F, bytes_of(uint32_t{7000})}});
    EXPECT_THAT(calls({"GetChunkCount"}), IsEmpty());
    kernel.chunkMask = 8;
    process({});
    EXPECT_EQ(host().last_value(10), 52.0);
}

TEST_F(frame_chunks, AChunkOf12BytesWithId0x200FIsIgnored) {
    process({{0x200F, bytes_of(uint32_t{30})}});
    process({{0x200F, std::vector<uint8_t>(12, 0x55)}});
    EXPECT_EQ(host().last_value(10), 31.0);
}

TEST_F(frame_chunks, AChunkOf8BytesCounts) {
    process({{0x200F, bytes_of(uint64_t{44})}});
    EXPECT_EQ(host().last_value(10), 44.0);
}

TEST_F(frame_chunks, AChunkShorterThanItsValueOrWithoutDataIsIgnored) {
    process({{0x200F, bytes_of(uint32_t{30})}});
    process({{0x200F, bytes_of(uint16_t{9})}});
    EXPECT_EQ(host().last_value(10), 31.0);
    process({{0x200F, {}}});
    EXPECT_EQ(host().last_value(10), 32.0);
    process({{.id = 0x200F, .data = bytes_of(uint32_t{9}), .hidden = true}});
    EXPECT_EQ(host().last_value(10), 33.0);
}

TEST_F(frame_chunks, AChunkWhoseIdCantBeReadCountsAsOneOfThePreviousKind) {
    process({{0x200F, bytes_of(uint32_t{30})}});
    process({{0x9999, bytes_of(uint32_t{1})}, {.id = 0x200F, .data = bytes_of(uint32_t{60}), .nameless = true}});
    EXPECT_EQ(host().last_value(10), 31.0);
    // Data are looked up by ID, so they are those of the first chunk with this ID.
    process({{0x200F, std::vector<uint8_t>(12, 0x01)}, {.id = 0, .data = bytes_of(uint32_t{60}), .nameless = true}});
    EXPECT_EQ(host().last_value(10), double{0x01010101});
}

TEST_F(frame_chunks, OtherChunksAreIgnored) {
    process({{0x200F, bytes_of(uint32_t{30})}, {0x2014, bytes_of(uint64_t{5})}, {0x9999, bytes_of(uint32_t{5})}}, 17);
    EXPECT_EQ(host().last_value(10), 30.0);
    EXPECT_EQ(host().last_value(9), 17.0) << "the timestamp comes from the buffer";
}

TEST_F(frame_chunks, ValuesAreExportedInOrder) {
    process({});
    EXPECT_THAT(host().values, testing::SizeIs(4));
    std::vector<uint32_t> numbers;
    for (auto const& value : host().values) {
        numbers.push_back(value.number);
    }
    EXPECT_THAT(numbers, ElementsAre(6, 7, 9, 10));
}

TEST_F(frame_chunks, AGainThatCantBeReadIsNotExportedAndTheFrameIsStillHandled) {
    process({});
    float const before = kernel.gainDb;
    cam()["Gain"].real = 8.0;
    cam()["Gain"].refuse_read();
    process({}, 125);
    EXPECT_EQ(host().last_value(6), std::nullopt);
    EXPECT_EQ(kernel.gainDb, before);
    EXPECT_EQ(host().last_value(7), 1234.75);
    EXPECT_EQ(host().last_value(9), 125.0);
}

TEST_F(frame_chunks, AnyOtherExceptionOfTheGainPropagates) {
    cam()["Gain"].before_read = [](auto&) { throw std::runtime_error("x"); };
    EXPECT_THROW(process({}), std::runtime_error);
}

TEST_F(frame_chunks, AnExposureThatCantBeReadPropagatesWithTheGainAlreadyExported) {
    cam()["ExposureTime"].refuse_read();
    EXPECT_THROW(process({}), Vorn::Support::internal_error);
    EXPECT_NE(host().last_value(6), std::nullopt);
    EXPECT_EQ(host().last_value(9), std::nullopt);
}

TEST_F(frame_chunks, AnExposureBeyond32BitsSaturates) {
    cam()["ExposureTime"].real = 1e30;
    process({});
    EXPECT_EQ(kernel.exposureInt, INT32_MAX);
}

TEST_F(frame_chunks, TheCounterDecidesWhetherTheTicksAreLogged) {
    process({{0x200F, bytes_of(uint32_t{15})}}, 250'000'000);
    EXPECT_TRUE(mentioned("[d|ProcFrameChunks] ProcChunks: tick is 2000000 (diff = "));
    EXPECT_TRUE(mentioned(" (rc=2000000)\n"));
    recording::the_system_log().lines.clear();
    process({{0x200F, bytes_of(uint32_t{16})}}, 250'000'000);
    EXPECT_FALSE(mentioned("ProcChunks"));
}

TEST_F(frame_chunks, TheDifferenceIsThatToThePreviousFrame) {
    process({}, 125'000'000);
    process({{0x200F, bytes_of(uint32_t{1})}}, 250'000'000);
    EXPECT_TRUE(
        logged(level::debug, "ProcFrameChunks", tag, "ProcChunks: tick is 2000000 (diff = 1000000) (rc=2000000)"));
}

TEST_F(frame_chunks, TheFirstCallLogsADiffEqualToTheFullTimestampAndTheCounterStartsAt1) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            process({}, 250'000'000);
            bool const reported = mentioned("ProcChunks: tick is 2000000 (diff = 2000000) (rc=2000000)\n");
            std::exit(reported && host().last_value(10) == 1.0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
