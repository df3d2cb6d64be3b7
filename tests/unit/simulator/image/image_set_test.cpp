// SPDX-License-Identifier: MIT
#include "image/image_set.hpp"

#include <gmock/gmock.h>
#include <png.h>
#include <tiffio.h>

#include <array>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>

#include "image/frame_renderer.hpp"
#include "temporary_directory.hpp"

using namespace camsim;
using testing::HasSubstr;

namespace {

constexpr std::uint32_t width = 24;
constexpr std::uint32_t height = 16;

/// Samples of an image whose values differ from pixel to pixel.
template <typename sample>
std::vector<sample> samples_of(std::size_t per_pixel, unsigned step, unsigned modulus) {
    std::vector<sample> values(per_pixel * width * height);
    for (std::size_t index = 0; index < values.size(); ++index) {
        values[index] = static_cast<sample>(index * step % modulus);
    }
    return values;
}

void write_png(std::filesystem::path const& file, std::uint32_t format, void const* pixels,
               std::uint32_t columns = width) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = columns;
    image.height = height;
    image.format = format;
    ASSERT_NE(png_image_write_to_file(&image, file.c_str(), 0, pixels, 0, nullptr), 0) << image.message;
}

void write_tiff(std::filesystem::path const& file, std::uint16_t bits, std::uint16_t samples, void* pixels) {
    std::unique_ptr<TIFF, void (*)(TIFF*)> const tiff(TIFFOpen(file.c_str(), "w"), TIFFClose);
    ASSERT_NE(tiff, nullptr);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, samples == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    auto* const bytes = static_cast<unsigned char*>(pixels);
    for (std::uint32_t y = 0; y < height; ++y) {
        ASSERT_EQ(TIFFWriteScanline(tiff.get(), bytes + std::size_t{y} * width * samples * bits / 8, y), 1);
    }
}

class ImageSet : public testing::Test {
protected:
    /// The bytes of a frame that is exposed by a camera without noise.
    std::vector<std::byte> frame(pixel_format format, std::uint64_t number = 0, double gain = 1.0) {
        scene_settings scene;
        scene.images = image_set::read(directory_.path());
        scene.sensor_width = width;
        scene.sensor_height = height;
        scene.noise = 0.0;
        scene.black_level = 0;
        frame_settings settings;
        settings.frame_number = number;
        settings.gain = gain;
        settings.area = {width, height, 0, 0};
        settings.format = format;
        std::vector<std::byte> out(frame_bytes(settings.area, format));
        render_frame({scene, settings}, out);
        return out;
    }

    std::string failure() {
        try {
            image_set::read(directory_.path());
        } catch (std::runtime_error const& error) {
            return error.what();
        }
        return "no failure";
    }

    std::filesystem::path file(char const* name) const { return directory_.path() / name; }

    temporary_directory directory_;
};

std::vector<std::byte> as_bytes(std::vector<std::uint8_t> const& values) {
    std::vector<std::byte> bytes;
    for (std::uint8_t const value : values) {
        bytes.push_back(std::byte{value});
    }
    return bytes;
}

}  // namespace

TEST_F(ImageSet, IsSentUnchangedInItsOwnDepth) {
    auto const pixels = samples_of<std::uint8_t>(1, 7, 256);
    write_png(file("a.png"), PNG_FORMAT_GRAY, pixels.data());
    EXPECT_EQ(frame(pixel_format::mono8), as_bytes(pixels));
}

TEST_F(ImageSet, Of16BitsHas12BitsIfNoValueIsLarger) {
    auto small = samples_of<std::uint16_t>(1, 37, 4096);
    write_tiff(file("a.tif"), 16, 1, small.data());
    auto const sent = frame(pixel_format::mono12);
    for (std::size_t index = 0; index < small.size(); ++index) {
        EXPECT_EQ(std::to_integer<unsigned>(sent[2 * index]) | std::to_integer<unsigned>(sent[2 * index + 1]) << 8U,
                  small[index]);
    }
    auto large = samples_of<std::uint16_t>(1, 37, 65'536);
    large[1] = 4096;
    write_tiff(file("b.tif"), 16, 1, large.data());
    EXPECT_EQ(image_set::read(directory_.path())->line(1, 0)[1], 256);
    EXPECT_EQ(image_set::read(directory_.path())->line(0, 0)[3], 3 * 37 / 16) << "all files have the same scale";
}

TEST_F(ImageSet, IsExposedInALoopInTheOrderOfNames) {
    std::vector<std::uint8_t> pixels(width * height);
    for (std::uint8_t const value : std::array<std::uint8_t, 3>{30, 10, 20}) {
        std::ranges::fill(pixels, value);
        write_png(file((std::to_string(value) + ".PNG").c_str()), PNG_FORMAT_GRAY, pixels.data());
    }
    write_tiff(file("40.tiff"), 8, 1, (std::ranges::fill(pixels, 40), pixels.data()));
    std::ofstream(file("notes.txt")) << "no image";
    for (std::uint64_t number = 0; number < 9; ++number) {
        EXPECT_EQ(frame(pixel_format::mono8, number)[5], std::byte(10 * (number % 4 + 1))) << number;
    }
}

TEST_F(ImageSet, InColourIsSeenThroughTheFilters) {
    auto pixels = samples_of<std::uint8_t>(3, 11, 251);
    write_tiff(file("a.tif"), 8, 3, pixels.data());
    auto const value = [&](std::size_t x, std::size_t y, std::size_t colour) {
        return std::byte{pixels[(y * width + x) * 3 + colour]};
    };
    auto const sent = frame(pixel_format::bayer_rg8);
    EXPECT_EQ(sent[2], value(2, 0, 0));
    EXPECT_EQ(sent[3], value(3, 0, 1));
    EXPECT_EQ(sent[width + 2], value(2, 1, 1));
    EXPECT_EQ(sent[width + 3], value(3, 1, 2));
}

TEST_F(ImageSet, IsBrighterWithGain) {
    std::vector<std::uint8_t> const pixels(width * height, 50);
    write_png(file("a.png"), PNG_FORMAT_GRAY, pixels.data());
    EXPECT_EQ(frame(pixel_format::mono8, 0, 2.0)[0], std::byte{100});
}

TEST_F(ImageSet, IgnoresAnAlphaChannel) {
    auto const pixels = samples_of<std::uint8_t>(4, 13, 256);
    write_png(file("a.png"), PNG_FORMAT_RGBA, pixels.data());
    auto const images = image_set::read(directory_.path());
    EXPECT_EQ(images->samples_per_pixel(0), 3U);
    EXPECT_EQ(images->line(0, 0)[3], pixels[4] * 16);
}

TEST_F(ImageSet, OfFilesThatDoNotFitIsRefusedWithTheFileAndTheReason) {
    EXPECT_THAT(failure(), HasSubstr("contains no TIFF or PNG files"));
    std::vector<std::uint8_t> const pixels(std::size_t{4} * width * height, 50);
    write_png(file("a.png"), PNG_FORMAT_GRAY, pixels.data());
    write_png(file("b.png"), PNG_FORMAT_GRAY, pixels.data(), 2 * width);
    EXPECT_THAT(failure(), HasSubstr("b.png: has 48 x 16 pixels, the first image has 24 x 16"));
    std::ofstream(file("b.png")) << "not an image";
    EXPECT_THAT(failure(), HasSubstr("b.png: is not a readable PNG file: Not a PNG file"));
    std::filesystem::resize_file(file("b.png"), 0);
    EXPECT_THAT(failure(), HasSubstr("b.png: is not a readable PNG file"));
    std::filesystem::remove(file("b.png"));
    std::ofstream(file("c.tif")) << "not an image";
    EXPECT_THAT(failure(), HasSubstr("c.tif: is not a readable TIFF file"));
    std::vector<std::uint8_t> wide(std::size_t{4} * width * height);
    write_tiff(file("c.tif"), 32, 1, wide.data());
    EXPECT_THAT(failure(), HasSubstr("c.tif: is a TIFF file of a kind that is not supported"));
    EXPECT_THROW(image_set::read(directory_.path() / "absent"), std::runtime_error);
}

TEST_F(ImageSet, SurvivesEveryTruncation) {
    auto const pixels = samples_of<std::uint8_t>(1, 7, 256);
    write_png(file("a.png"), PNG_FORMAT_GRAY, pixels.data());
    auto const size = std::filesystem::file_size(file("a.png"));
    for (auto kept = size; kept-- > 0;) {
        std::filesystem::resize_file(file("a.png"), kept);
        (void)failure();
    }
    EXPECT_THAT(failure(), HasSubstr("is not a readable PNG file"));
}
