// SPDX-License-Identifier: MIT
#include "jai_kernel/rotation.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "pixel_frames.hpp"

namespace {

using namespace Vorn::Support::MediaGrabber::Jai;
using pixel_frames::frame;

/// Cells of two pixels change places; a side of odd length is mirrored.
/// \return target of a pixel of a Bayer frame along a side
size_t bayer_target(size_t at, size_t length) {
    if (length % 2 != 0) {
        return length - 1 - at;
    }
    size_t const cell = at / 2;
    size_t const cells = length / 2;
    return (cells - 1 - cell) * 2 + at % 2;
}

/// Reference implementation: pixel by pixel into a second frame.
frame rotated(frame const& original) {
    frame result = original;
    bool const bayer = original.format->code == format_code::BayerRG8;
    for (uint32_t y = 0; y < original.height; ++y) {
        for (uint32_t x = 0; x < original.width; ++x) {
            size_t const to_x = bayer ? bayer_target(x, original.width) : original.width - 1 - x;
            size_t const to_y = bayer ? bayer_target(y, original.height) : original.height - 1 - y;
            result.put(to_x, to_y, original.get(x, y));
        }
    }
    return result;
}

RC_GTEST_PROP(Rotation, EqualsTheReferenceImplementationForEveryFormatAndSize, ()) {
    auto const original = *pixel_frames::any_frame();
    auto expected = rotated(original);
    auto actual = original;
    RC_ASSERT(Rotation__TurnBy180(*actual.format, actual.bytes, actual.width, actual.height));
    RC_ASSERT(actual.pixels() == expected.pixels());
}

RC_GTEST_PROP(Rotation, TwiceRestoresTheFrame, ()) {
    auto const original = *pixel_frames::any_frame();
    auto twice = original;
    Rotation__TurnBy180(*twice.format, twice.bytes, twice.width, twice.height);
    Rotation__TurnBy180(*twice.format, twice.bytes, twice.width, twice.height);
    RC_ASSERT(twice.pixels() == original.pixels());
}

RC_GTEST_PROP(Rotation, WritesNothingBeyondTheFrame, ()) {
    auto longer = *pixel_frames::any_frame();
    longer.bytes.resize(longer.bytes.size() + 40, 0xA5);
    Rotation__TurnBy180(*longer.format, longer.bytes, longer.width, longer.height);
    std::vector<uint8_t> const behind(longer.bytes.end() - 40, longer.bytes.end());
    RC_ASSERT(behind == std::vector<uint8_t>(40, 0xA5));
}

TEST(Rotation, ABayerCellKeepsItsInnerOrder) {
    auto const* const format = PixelFormat__Find(format_code::BayerRG8);
    // Two cells R G / G B, side by side.
    std::vector<uint8_t> bytes{1, 2, 3, 4,  //
                               5, 6, 7, 8};
    EXPECT_TRUE(Rotation__TurnBy180(*format, bytes, 4, 2));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{3, 4, 1, 2, 7, 8, 5, 6}));
}

TEST(Rotation, PackedPixelsChangePlacesWithinTheirGroup) {
    auto const* const format = PixelFormat__Find(format_code::Mono12Packed);
    std::vector<uint8_t> bytes{0x12, 0x63, 0x45};  // 0x123, 0x456
    EXPECT_TRUE(Rotation__TurnBy180(*format, bytes, 2, 1));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0x45, 0x36, 0x12}));
}

TEST(Rotation, TheUnusedHalfByteAtTheEndOfAnOddPackedLineStaysUnchanged) {
    auto const* const format = PixelFormat__Find(format_code::Mono12Packed);
    // Two lines of three pixels: 0x123 0x456 0x789 and 0xABC 0xDEF 0x012. The unused halves are 0xC and 0xD.
    std::vector<uint8_t> bytes{0x12, 0x63, 0x45, 0x78, 0xC9,  //
                               0xAB, 0xFC, 0xDE, 0x01, 0xD2};
    EXPECT_TRUE(Rotation__TurnBy180(*format, bytes, 3, 2));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0x01, 0xF2, 0xDE, 0xAB, 0xCC,  //
                                           0x78, 0x69, 0x45, 0x12, 0xD3}));
}

TEST(Rotation, AFrameThatIsTooShortStaysUnchanged) {
    for (format_code const code :
         {format_code::Mono8, format_code::Mono12Packed, format_code::Mono12, format_code::BayerRG8}) {
        auto const* const format = PixelFormat__Find(code);
        std::vector<uint8_t> bytes(format->frameBytes(9, 7) - 1, 0);
        bytes.at(0) = 1;
        auto const before = bytes;
        EXPECT_FALSE(Rotation__TurnBy180(*format, bytes, 9, 7));
        EXPECT_EQ(bytes, before);
    }
}

TEST(Rotation, AFrameOfAnUnknownFormatStaysUnchanged) {
    pixel_format unknown = *PixelFormat__Find(format_code::Mono8);
    unknown.code = static_cast<format_code>(77);
    std::vector<uint8_t> bytes{1, 2};
    EXPECT_FALSE(Rotation__TurnBy180(unknown, bytes, 2, 1));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{1, 2}));
}

}  // namespace
