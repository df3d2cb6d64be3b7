// SPDX-License-Identifier: MIT
#include "jai_kernel/pixel_conversion.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "pixel_frames.hpp"

namespace {

using namespace Vorn::Support::MediaGrabber::Jai;
using pixel_frames::frame;

bool is_deep(pixel_format const& format) {
    return format.significantBits == 12;
}

/// \return a pixel of a Bayer frame, which is mirrored about its outermost pixels beyond its edges
uint32_t mirrored(frame const& image, int64_t x, int64_t y) {
    auto const inside = [](int64_t at, int64_t length) {
        if (length == 1) {
            return int64_t{0};
        }
        return at < 0 ? -at : at >= length ? 2 * (length - 1) - at : at;
    };
    return image.get(static_cast<size_t>(inside(x, image.width)), static_cast<size_t>(inside(y, image.height)));
}

/// \return brightness of a pixel on the 12-bit scale
uint32_t brightness(frame const& image, int64_t x, int64_t y) {
    if (image.format->code == format_code::BayerRG8) {
        uint32_t sum = 0;
        for (int64_t dy = -1; dy <= 1; ++dy) {
            for (int64_t dx = -1; dx <= 1; ++dx) {
                auto const weight = static_cast<uint32_t>((2 - std::abs(dx)) * (2 - std::abs(dy)));
                sum += weight * mirrored(image, x + dx, y + dy);
            }
        }
        return sum;  // the weights sum to 16
    }
    uint32_t const value = image.get(static_cast<size_t>(x), static_cast<size_t>(y));
    return is_deep(*image.format) ? std::min(value, 4095U) : value * 16;
}

/// Reference implementation: pixel by pixel.
frame converted(frame const& image, pixel_format const& to) {
    frame result(to, image.width, image.height);
    for (uint32_t y = 0; y < image.height; ++y) {
        for (uint32_t x = 0; x < image.width; ++x) {
            uint32_t const value = image.format->code == to.code ? image.get(x, y)
                                   : is_deep(to)                 ? brightness(image, x, y)
                                                                 : brightness(image, x, y) / 16;
            result.put(x, y, value);
        }
    }
    return result;
}

RC_GTEST_PROP(PixelConversion, EqualsTheReferenceImplementationForEveryFormatPairAndSize, ()) {
    auto const image = *pixel_frames::any_frame();
    auto const& to = **pixel_frames::any_format();
    RC_PRE(PixelConversion__IsPossible(*image.format, to));
    frame actual(to, image.width, image.height);
    RC_ASSERT(PixelConversion__Convert(*image.format, to, image.bytes, actual.bytes, image.width, image.height));
    RC_ASSERT(actual.pixels() == converted(image, to).pixels());
}

RC_GTEST_PROP(PixelConversion, WritesNothingBeyondTheFrame, ()) {
    auto const image = *pixel_frames::any_frame();
    auto const& to = **pixel_frames::any_format();
    RC_PRE(PixelConversion__IsPossible(*image.format, to));
    frame actual(to, image.width, image.height);
    actual.bytes.resize(actual.bytes.size() + 40, 0xA5);
    PixelConversion__Convert(*image.format, to, image.bytes, actual.bytes, image.width, image.height);
    RC_ASSERT(std::all_of(actual.bytes.end() - 40, actual.bytes.end(), [](uint8_t byte) { return byte == 0xA5; }));
}

RC_GTEST_PROP(PixelConversion, EightBitsSurviveAConversionToTwelveAndBack, ()) {
    auto const image = *pixel_frames::any_frame();
    RC_PRE(image.format->code == format_code::Mono8);
    for (format_code const code : {format_code::Mono12, format_code::Mono12Packed}) {
        auto const& deep = *PixelFormat__Find(code);
        frame there(deep, image.width, image.height);
        frame back(*image.format, image.width, image.height);
        PixelConversion__Convert(*image.format, deep, image.bytes, there.bytes, image.width, image.height);
        PixelConversion__Convert(deep, *image.format, there.bytes, back.bytes, image.width, image.height);
        RC_ASSERT(back.bytes == image.bytes);
    }
}

TEST(PixelConversion, TheUnusedHalfByteAtTheEndOfAnOddPackedLineIs0) {
    auto const& packed = *PixelFormat__Find(format_code::Mono12Packed);
    for (format_code const code : {format_code::Mono8, format_code::Mono12, format_code::BayerRG8}) {
        for (uint32_t const width : {1U, 3U, 7U, 9U, 129U, 131U, 257U}) {
            frame image(*PixelFormat__Find(code), width, 2);
            std::fill(image.bytes.begin(), image.bytes.end(), uint8_t{0xFF});
            frame actual(packed, width, 2);
            std::fill(actual.bytes.begin(), actual.bytes.end(), uint8_t{0xA5});
            EXPECT_TRUE(PixelConversion__Convert(*image.format, packed, image.bytes, actual.bytes, width, 2));
            size_t const line = packed.lineBytes(width);
            EXPECT_EQ(actual.bytes[line - 1] & 0xF0, 0) << width;
            EXPECT_EQ(actual.bytes[2 * line - 1] & 0xF0, 0) << width;
        }
    }
}

TEST(PixelConversion, AnEvenlyLitBayerFrameIsEvenlyGrey) {
    // Red 40, green 80, blue 200: (40 + 2 x 80 + 200) / 4 = 100, at the edges too.
    auto const& bayer = *PixelFormat__Find(format_code::BayerRG8);
    frame image(bayer, 7, 5);
    for (uint32_t y = 0; y < 5; ++y) {
        for (uint32_t x = 0; x < 7; ++x) {
            image.put(x, y, x % 2 == y % 2 ? (y % 2 == 0 ? 40U : 200U) : 80U);
        }
    }
    frame grey(*PixelFormat__Find(format_code::Mono8), 7, 5);
    EXPECT_TRUE(PixelConversion__Convert(bayer, *grey.format, image.bytes, grey.bytes, 7, 5));
    EXPECT_EQ(grey.bytes, std::vector<uint8_t>(35, 100));
}

TEST(PixelConversion, IsNotPossibleFromMonochromeToBayer) {
    auto const& bayer = *PixelFormat__Find(format_code::BayerRG8);
    for (format_code const code : {format_code::Mono8, format_code::Mono12Packed, format_code::Mono12}) {
        auto const& mono = *PixelFormat__Find(code);
        EXPECT_FALSE(PixelConversion__IsPossible(mono, bayer));
        EXPECT_TRUE(PixelConversion__IsPossible(bayer, mono));
        frame image(mono, 4, 4);
        frame target(bayer, 4, 4);
        EXPECT_FALSE(PixelConversion__Convert(mono, bayer, image.bytes, target.bytes, 4, 4));
    }
    EXPECT_TRUE(PixelConversion__IsPossible(bayer, bayer));
}

TEST(PixelConversion, FramesThatAreTooShortAreNotConverted) {
    auto const& mono8 = *PixelFormat__Find(format_code::Mono8);
    auto const& mono12 = *PixelFormat__Find(format_code::Mono12);
    frame image(mono8, 5, 3);
    frame target(mono12, 5, 3);
    image.bytes.pop_back();
    EXPECT_FALSE(PixelConversion__Convert(mono8, mono12, image.bytes, target.bytes, 5, 3));
    image.bytes.push_back(0);
    target.bytes.pop_back();
    EXPECT_FALSE(PixelConversion__Convert(mono8, mono12, image.bytes, target.bytes, 5, 3));
}

TEST(PixelConversion, AnEmptyFrameIsConvertedToAnEmptyFrame) {
    auto const& mono8 = *PixelFormat__Find(format_code::Mono8);
    EXPECT_TRUE(PixelConversion__Convert(mono8, *PixelFormat__Find(format_code::Mono12), {}, {}, 0, 0));
    EXPECT_TRUE(PixelConversion__Convert(*PixelFormat__Find(format_code::BayerRG8), mono8, {}, {}, 0, 5));
}

}  // namespace
