// SPDX-License-Identifier: MIT
#include "image/pixel_packing.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "bytes.hpp"

using namespace camsim;

namespace {

std::vector<std::byte> packed(std::vector<std::uint16_t> const& samples, pixel_format format) {
    std::vector<std::byte> out(line_bytes(static_cast<std::uint32_t>(samples.size()), format));
    pack_line(samples, format, out);
    return out;
}

}  // namespace

TEST(PixelPacking, KeepsTheUpperEightBitsInMono8) {
    EXPECT_EQ(packed({0x000, 0x010, 0xABC, 0xFFF}, pixel_format::mono8), bytes({0x00, 0x01, 0xAB, 0xFF}));
    EXPECT_EQ(packed({0xABC, 0x123}, pixel_format::bayer_rg8), bytes({0xAB, 0x12}));
}

TEST(PixelPacking, StoresMono12LittleEndian) {
    EXPECT_EQ(packed({0xABC, 0x001}, pixel_format::mono12), bytes({0xBC, 0x0A, 0x01, 0x00}));
}

TEST(PixelPacking, StoresTwoPixelsOfMono12PackedInThreeBytes) {
    EXPECT_EQ(packed({0xABC, 0x123, 0xFFF, 0x000}, pixel_format::mono12_packed),
              bytes({0xAB, 0x3C, 0x12, 0xFF, 0x0F, 0x00}));
}

RC_GTEST_PROP(PixelPacking, LosesNothingOfTwelveBits, ()) {
    auto const samples = *rc::gen::container<std::vector<std::uint16_t>>(64, rc::gen::inRange<std::uint16_t>(0, 4096));
    auto const in_pairs = packed(samples, pixel_format::mono12_packed);
    auto const in_words = packed(samples, pixel_format::mono12);
    for (std::size_t index = 0; index < samples.size(); ++index) {
        auto const at = [&](std::vector<std::byte> const& data, std::size_t offset) {
            return std::to_integer<unsigned>(data[offset]);
        };
        std::size_t const triple = index / 2 * 3;
        unsigned const upper = at(in_pairs, triple + (index % 2 == 0 ? 0 : 2));
        unsigned const lower = at(in_pairs, triple + 1) >> (index % 2 == 0 ? 0U : 4U) & 0xFU;
        RC_ASSERT((upper << 4U | lower) == samples[index]);
        RC_ASSERT((at(in_words, 2 * index) | at(in_words, 2 * index + 1) << 8U) == samples[index]);
    }
}

TEST(FrameBytes, DependOnTheBitsPerPixel) {
    region const area{1280, 1024, 0, 0};
    EXPECT_EQ(frame_bytes(area, pixel_format::mono8), 1310720U);
    EXPECT_EQ(frame_bytes(area, pixel_format::mono12_packed), 1966080U);
    EXPECT_EQ(frame_bytes(area, pixel_format::mono12), 2621440U);
    EXPECT_EQ(frame_bytes({16384, 16384, 0, 0}, pixel_format::mono12), std::size_t{1} << 29U);
}
