// SPDX-License-Identifier: MIT
/// \file
/// export_png FRAME.tif IMAGE.png: converts a recorded frame to a PNG image. 12-bit frames lose their lower 4 bits.
/// Bayer frames become colour images: the value of each colour is the mean of that colour's pixels in a 3 x 3
/// neighbourhood.
#include <png.h>
#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "image/pfnc.hpp"

namespace {

using camsim::cfa;

struct frame {
    std::uint32_t width = 0, height = 0;
    cfa filters = cfa::none;
    std::vector<std::uint8_t> pixels;  ///< 8 bits each

    std::uint8_t at(std::int64_t x, std::int64_t y) const {
        return pixels[static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x)];
    }
};

struct tiff_closer {
    void operator()(TIFF* file) const { TIFFClose(file); }
};

frame read(std::string const& path) {
    std::unique_ptr<TIFF, tiff_closer> const file(TIFFOpen(path.c_str(), "r"));
    if (file == nullptr) {
        throw std::runtime_error(path + ": cannot be read as TIFF");
    }
    frame read;
    std::uint16_t bits = 0;
    std::uint16_t photometric = 0;
    TIFFGetField(file.get(), TIFFTAG_IMAGEWIDTH, &read.width);
    TIFFGetField(file.get(), TIFFTAG_IMAGELENGTH, &read.height);
    TIFFGetField(file.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetField(file.get(), TIFFTAG_PHOTOMETRIC, &photometric);
    if (bits != 8 && bits != 16) {
        throw std::runtime_error(path + ": has " + std::to_string(bits) + " bits per sample; supported are 8 and 16");
    }
    read.filters = photometric == PHOTOMETRIC_CFA ? cfa::bayer_rg : cfa::none;
    read.pixels.resize(std::size_t{read.width} * read.height);
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize64(file.get())));
    for (std::uint32_t y = 0; y < read.height; ++y) {
        if (TIFFReadScanline(file.get(), line.data(), y, 0) != 1) {
            throw std::runtime_error(path + ": the file ends in line " + std::to_string(y));
        }
        for (std::uint32_t x = 0; x < read.width; ++x) {
            // The upper 8 of the 12 bits in a little-endian 16-bit sample.
            int const value = bits == 16 ? line[2 * x] >> 4 | (line[2 * x + 1] & 0xF) << 4 : line[x];
            read.pixels[std::size_t{y} * read.width + x] = static_cast<std::uint8_t>(value);
        }
    }
    return read;
}

/// The mean of the pixels of a colour (0 red, 1 green, 2 blue) in the 3 x 3 neighbourhood of a pixel; Bayer pattern
/// RGGB.
std::uint8_t colour(frame const& image, std::int64_t x, std::int64_t y, int wanted) {
    unsigned sum = 0;
    unsigned count = 0;
    for (std::int64_t ny = y - 1; ny <= y + 1; ++ny) {
        for (std::int64_t nx = x - 1; nx <= x + 1; ++nx) {
            bool const inside = nx >= 0 && ny >= 0 && nx < image.width && ny < image.height;
            if (inside && static_cast<int>(nx % 2 + ny % 2) == wanted) {
                sum += image.at(nx, ny);
                ++count;
            }
        }
    }
    return static_cast<std::uint8_t>(count == 0 ? 0 : sum / count);
}

std::vector<std::uint8_t> demosaiced(frame const& image) {
    std::vector<std::uint8_t> rgb;
    rgb.reserve(image.pixels.size() * 3);
    for (std::uint32_t y = 0; y < image.height; ++y) {
        for (std::uint32_t x = 0; x < image.width; ++x) {
            for (int wanted = 0; wanted < 3; ++wanted) {
                rgb.push_back(colour(image, x, y, wanted));
            }
        }
    }
    return rgb;
}

void write(std::string const& path, frame const& image) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = image.filters == cfa::bayer_rg ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    auto const pixels = image.filters == cfa::bayer_rg ? demosaiced(image) : image.pixels;
    if (png_image_write_to_file(&png, path.c_str(), 0, pixels.data(), 0, nullptr) == 0) {
        throw std::runtime_error(path + ": cannot be written: " + png.message);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: export_png FRAME.tif IMAGE.png\n");
        return EXIT_FAILURE;
    }
    try {
        write(argv[2], read(argv[1]));
        return EXIT_SUCCESS;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "export_png: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
