// SPDX-License-Identifier: MIT
#include "images/full_pixels.hpp"

#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>

#include <fstream>

#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

frame_format const& format_named(char const* name) {
    return *frame_format_named(name);
}

std::vector<std::uint16_t> values_of(full_pixels const& image) {
    std::vector<std::uint16_t> values;
    for (std::size_t i = 0; i < image.values.size(); i += image.bits / 8) {
        auto const byte = [&](std::size_t at) { return static_cast<unsigned char>(image.values[at]); };
        values.push_back(static_cast<std::uint16_t>(image.bits == 8 ? byte(i) : byte(i) | byte(i + 1) << 8U));
    }
    return values;
}

/// What libtiff reads from a file of grey or RGB values.
full_pixels read_by_libtiff(std::string const& file) {
    temporary_directory const directory;
    auto const path = directory.path() / "frame.tif";
    std::ofstream(path, std::ios::binary) << file;
    std::unique_ptr<TIFF, void (*)(TIFF*)> const opened(TIFFOpen(path.c_str(), "r"), TIFFClose);
    full_pixels read;
    if (opened == nullptr) {
        ADD_FAILURE() << "libtiff cannot open it";
        return read;
    }
    std::uint16_t bits = 0;
    std::uint16_t channels = 0;
    TIFFGetField(opened.get(), TIFFTAG_IMAGEWIDTH, &read.width);
    TIFFGetField(opened.get(), TIFFTAG_IMAGELENGTH, &read.height);
    TIFFGetField(opened.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetField(opened.get(), TIFFTAG_SAMPLESPERPIXEL, &channels);
    read.bits = bits;
    read.channels = channels;
    read.values.resize(static_cast<std::size_t>(TIFFStripSize(opened.get())));
    EXPECT_EQ(TIFFReadEncodedStrip(opened.get(), 0, read.values.data(), -1), TIFFStripSize(opened.get()));
    return read;
}

full_pixels read_by_libpng(std::string const& file) {
    png_image head{};
    head.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_memory(&head, file.data(), file.size()), 0) << head.message;
    full_pixels read{.width = head.width,
                     .height = head.height,
                     .channels = PNG_IMAGE_SAMPLE_CHANNELS(head.format),
                     .bits = 8 * PNG_IMAGE_SAMPLE_COMPONENT_SIZE(head.format),
                     .values = {}};
    read.values.resize(PNG_IMAGE_SIZE(head));
    EXPECT_NE(png_image_finish_read(&head, nullptr, read.values.data(), 0, nullptr), 0) << head.message;
    return read;
}

void expect_equal(full_pixels const& read, full_pixels const& written) {
    EXPECT_EQ(read.width, written.width);
    EXPECT_EQ(read.height, written.height);
    EXPECT_EQ(read.channels, written.channels);
    EXPECT_EQ(read.bits, written.bits);
    EXPECT_EQ(read.values, written.values);
}

}  // namespace

TEST(FullPixels, KeepAllBitsOfEachFormat) {
    for (auto const& format : frame_formats) {
        auto const frame = make_frame(format, 7, 5, 3);
        auto const pixels = all_pixels(frame.view(), false);
        EXPECT_EQ(pixels.bits, format.significant_bits > 8 ? 16U : 8U) << format.name;
        EXPECT_EQ(values_of(pixels), frame.values) << format.name;
    }
}

TEST(FullPixels, AreReadByLibtiffWithoutLoss) {
    for (auto const& format : frame_formats) {
        auto const frame = make_frame(format, 7, 5, 3);
        for (bool const colour : {false, true}) {
            auto const pixels = all_pixels(frame.view(), colour);
            expect_equal(read_by_libtiff(encode_tiff(pixels)), pixels);
        }
    }
}

TEST(FullPixels, AreReadByLibpngWithoutLoss) {
    for (auto const& format : frame_formats) {
        auto const frame = make_frame(format, 7, 5, 3);
        for (bool const colour : {false, true}) {
            auto const pixels = all_pixels(frame.view(), colour);
            expect_equal(read_by_libpng(encode_png(pixels)), pixels);
        }
    }
}

TEST(FullPixels, OfABayerPatternKeepTheMeasuredColours) {
    auto const frame = make_frame(format_named("BayerRG8"), 6, 4);
    auto const pixels = all_pixels(frame.view(), true);
    ASSERT_EQ(pixels.channels, 3U);
    auto const values = values_of(pixels);
    for (std::size_t y = 0; y < 4; ++y) {
        for (std::size_t x = 0; x < 6; ++x) {
            auto const colour = x % 2 + y % 2;  // red, green / green, blue
            EXPECT_EQ(values[(y * 6 + x) * 3 + colour], frame.values[y * 6 + x]);
        }
    }
}

TEST(FullPixels, AreTheUpperBitsIn8Bits) {
    auto const frame = make_frame(format_named("Mono12Packed"), 7, 5);
    auto const pixels = all_pixels_in_8_bits(frame.view(), true);
    EXPECT_EQ(pixels.bits, 8U);
    auto const values = values_of(pixels);
    for (std::size_t i = 0; i < frame.values.size(); ++i) {
        EXPECT_EQ(values[i], frame.values[i] >> 4U);
    }
}

TEST(FullPixels, OfARectangleAreThoseOfTheFrame) {
    for (auto const& format : frame_formats) {
        auto const frame = make_frame(format, 9, 7, 2);
        auto const part = part_of(frame.view(), {.x = 3, .y = 2, .width = 5, .height = 4}, 1);
        ASSERT_EQ(part.width, 5U);
        ASSERT_EQ(part.height, 4U);
        std::vector<std::uint16_t> expected;
        for (std::size_t y = 2; y < 6; ++y) {
            for (std::size_t x = 3; x < 8; ++x) {
                expected.push_back(frame.values[y * 9 + x]);
            }
        }
        EXPECT_EQ(values_of(part), expected) << format.name;
    }
}

TEST(FullPixels, AreReducedToTheMaximumOfEachBlock) {
    auto const frame = make_frame(format_named("Mono12"), 9, 7, 0, [](auto x, auto y) { return 100 * y + x; });
    auto const part = part_of(frame.view(), {.x = 1, .y = 2, .width = 8, .height = 5}, 3);
    EXPECT_EQ(part.width, 3U);
    EXPECT_EQ(part.height, 2U);
    EXPECT_EQ(values_of(part), (std::vector<std::uint16_t>{403, 406, 408, 603, 606, 608}));
}
