// SPDX-License-Identifier: MIT
#include "images/frame_image.hpp"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <numeric>

#include "sample_frames.hpp"

using namespace mediagrabber;

namespace {

constexpr auto const& Mono8 = frame_formats[0];
constexpr auto const& Mono12Packed = frame_formats[1];
constexpr auto const& Mono12 = frame_formats[2];
constexpr auto const& bayer = frame_formats[3];

constexpr std::uint32_t any_side = 1'600;

/// A scene of one colour, as a sensor with a Bayer pattern captures it.
sample_frame bayer_frame(std::uint32_t width, std::uint32_t height, unsigned red, unsigned green, unsigned blue) {
    return make_frame(bayer, width, height, 0, [=](std::uint32_t x, std::uint32_t y) {
        return x % 2 == y % 2 ? (y % 2 == 0 ? red : blue) : green;
    });
}

std::vector<std::uint8_t> decoded(std::string const& jpeg, int& width, int& height, int format, int channels) {
    auto* const turbo = tjInitDecompress();
    int sampling = 0;
    int colours = 0;
    auto const* const bytes = reinterpret_cast<unsigned char const*>(jpeg.data());
    EXPECT_EQ(tjDecompressHeader3(turbo, bytes, jpeg.size(), &width, &height, &sampling, &colours), 0);
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                     static_cast<std::size_t>(channels));
    EXPECT_EQ(tjDecompress2(turbo, bytes, jpeg.size(), pixels.data(), width, 0, height, format, 0), 0);
    tjDestroy(turbo);
    return pixels;
}

}  // namespace

TEST(FrameImage, Of8BitsIsTheFrameItself) {
    auto const frame = make_frame(Mono8, 37, 11, 5);
    auto const image = shown(frame.view(), {}, any_side);
    ASSERT_EQ(image.width, 37U);
    ASSERT_EQ(image.height, 11U);
    EXPECT_EQ(image.channels, 1U);
    for (std::size_t i = 0; i < frame.values.size(); ++i) {
        ASSERT_EQ(image.values[i], frame.values[i]) << i;
    }
}

TEST(FrameImage, Of12BitsHasTheUpper8) {
    for (auto const* const format : {&Mono12, &Mono12Packed}) {
        auto const frame = make_frame(*format, 37, 11, 3);
        auto const image = shown(frame.view(), {}, any_side);
        for (std::size_t i = 0; i < frame.values.size(); ++i) {
            ASSERT_EQ(image.values[i], frame.values[i] >> 4U) << format->codec << " " << i;
        }
    }
}

TEST(FrameImage, MapsAWindowFromBlackToWhite) {
    auto const frame = make_frame(Mono12, 4, 1, 0, [](auto x, auto) { return std::array{511U, 512U, 768U, 1024U}[x]; });
    auto const image = shown(frame.view(), {.black = 32, .white = 64}, any_side);
    EXPECT_EQ(image.values, (std::vector<std::uint8_t>{0, 0, 128, 255}));
}

TEST(FrameImage, IsDownscaledByAveraging) {
    // Factor 2 with odd sides: the last column and line are averages of fewer.
    auto const frame = make_frame(Mono8, 5, 3, 1, [](auto x, auto y) { return 10 * x + y; });
    auto const image = shown(frame.view(), {}, 3);
    ASSERT_EQ(image.width, 3U);
    ASSERT_EQ(image.height, 2U);
    EXPECT_EQ(image.values, (std::vector<std::uint8_t>{5, 25, 40, 7, 27, 42}));
}

TEST(FrameImage, OfABayerPatternHasItsColours) {
    auto const frame = bayer_frame(8, 6, 200, 100, 50);
    auto const image = shown(frame.view(), {}, any_side);
    ASSERT_EQ(image.channels, 3U);
    for (std::size_t i = 0; i < image.values.size(); i += 3) {
        ASSERT_EQ(image.values[i], 200) << i;
        ASSERT_EQ(image.values[i + 1], 100) << i;
        ASSERT_EQ(image.values[i + 2], 50) << i;
    }
}

TEST(FrameImage, OfALargeBayerPatternHasItsColours) {
    auto const frame = bayer_frame(13, 9, 200, 100, 50);
    auto const image = shown(frame.view(), {}, 4);  // factor 4: two by two cells
    ASSERT_EQ(image.width, 3U);
    ASSERT_EQ(image.height, 2U);
    for (std::size_t i = 0; i < image.values.size(); i += 3) {
        ASSERT_EQ(image.values[i], 200) << i;
        ASSERT_EQ(image.values[i + 1], 100) << i;
        ASSERT_EQ(image.values[i + 2], 50) << i;
    }
}

TEST(FrameImage, ExistsForTheSmallestFrames) {
    for (auto const& format : frame_formats) {
        for (std::uint32_t const width : {1U, 2U, 3U}) {
            for (std::uint32_t const height : {1U, 2U, 3U}) {
                auto const frame = make_frame(format, width, height);
                auto const image = shown(frame.view(), {}, any_side);
                EXPECT_EQ(image.values.size(), std::size_t{width} * height * image.channels) << format.codec;
                EXPECT_FALSE(jpeg_encoder().encode(image).empty());
            }
        }
    }
    auto const line = make_frame(bayer, 5'000, 1);
    EXPECT_FALSE(shown(line.view(), {}, any_side).values.empty());
}

TEST(FrameImage, KeepsAnEdgeOfABayerPatternInPlace) {
    // Dark left of column 8, bright from there on, grey all over.
    auto const frame = make_frame(bayer, 16, 8, 0, [](auto x, auto) { return x < 8 ? 20 : 220; });
    auto const image = shown(frame.view(), {}, any_side);
    for (std::uint32_t y = 0; y < 8; ++y) {
        for (unsigned channel = 0; channel < 3; ++channel) {
            EXPECT_EQ(image.values[3 * (y * 16 + 6) + channel], 20);
            EXPECT_EQ(image.values[3 * (y * 16 + 9) + channel], 220);
        }
    }
}

TEST(JpegEncoder, EncodesAGreyImage) {
    shown_pixels image{.width = 64, .height = 48, .channels = 1, .values = {}};
    for (unsigned i = 0; i < 64 * 48; ++i) {
        image.values.push_back(static_cast<std::uint8_t>(i % 64 * 3 + i / 64));
    }
    int width = 0;
    int height = 0;
    auto const pixels = decoded(jpeg_encoder().encode(image), width, height, TJPF_GRAY, 1);
    ASSERT_EQ(width, 64);
    ASSERT_EQ(height, 48);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        ASSERT_NEAR(pixels[i], image.values[i], 6) << i;
    }
}

TEST(JpegEncoder, EncodesColours) {
    shown_pixels const image = shown(bayer_frame(32, 32, 220, 60, 20).view(), {}, any_side);
    int width = 0;
    int height = 0;
    auto const pixels = decoded(jpeg_encoder().encode(image), width, height, TJPF_RGB, 3);
    for (std::size_t i = 0; i < pixels.size(); i += 3) {
        ASSERT_NEAR(pixels[i], 220, 6);
        ASSERT_NEAR(pixels[i + 1], 60, 6);
        ASSERT_NEAR(pixels[i + 2], 20, 6);
    }
}

TEST(JpegEncoder, RefusesAnImageWithoutPixels) {
    EXPECT_THROW(jpeg_encoder().encode({}), std::runtime_error);
}

TEST(ValueHistogram, CountsEveryPixelBeforeItIsScaled) {
    auto const frame = make_frame(Mono8, 100, 50, 7);
    auto const histogram = count_frame(frame.view());
    std::array<std::uint32_t, 256> expected{};
    for (auto const value : frame.values) {
        ++expected[value];
    }
    EXPECT_EQ(histogram.counts, expected);
    EXPECT_EQ(histogram.pixels, 5'000U);
    EXPECT_EQ(histogram.black, expected.front());
    EXPECT_EQ(histogram.white, expected.back());
    auto const sum = std::accumulate(frame.values.begin(), frame.values.end(), 0.0);
    EXPECT_NEAR(histogram.mean, sum / 255.0 / 5'000.0, 1e-9);
}

TEST(ValueHistogram, Has16ValuesPerBinFor12Bits) {
    for (auto const* const format : {&Mono12, &Mono12Packed}) {
        auto const frame = make_frame(*format, 4, 1, 0, [](auto x, auto) {
            return std::array{0U, 15U, 16U, 4095U}[x];
        });
        auto const histogram = count_frame(frame.view());
        EXPECT_EQ(histogram.counts[0], 2U);
        EXPECT_EQ(histogram.counts[1], 1U);
        EXPECT_EQ(histogram.counts[255], 1U);
        EXPECT_EQ(histogram.black, 1U);
        EXPECT_EQ(histogram.white, 1U);
    }
}

TEST(ValueWindow, ExcludesOneInAThousandAtEitherEnd) {
    value_histogram histogram;
    histogram.counts[0] = 1;
    histogram.counts[40] = 500;
    histogram.counts[80] = 498;
    histogram.counts[255] = 1;
    histogram.pixels = 1'000;
    auto const window = window_of(histogram);
    EXPECT_EQ(window.black, 40U);
    EXPECT_EQ(window.white, 81U);
}

TEST(ValueWindow, IsValidForNoneOrOneValue) {
    EXPECT_LT(window_of({}).black, window_of({}).white);
    value_histogram flat;
    flat.counts[7] = 100;
    flat.pixels = 100;
    EXPECT_EQ(window_of(flat).black, 7U);
    EXPECT_EQ(window_of(flat).white, 8U);
}
