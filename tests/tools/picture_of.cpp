// picture_of FRAME.tif PICTURE.png: a recorded frame as a picture to look at. 12-bit frames lose their lower 4 bits;
// the colour filter array of a Bayer frame becomes colours by averaging what its neighbours have of each.
#include <png.h>
#include <tiffio.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct frame {
    uint32_t width = 0, height = 0;
    bool bayer = false;
    std::vector<uint8_t> pixels;  ///< 8 bits each

    uint8_t at(int64_t x, int64_t y) const { return pixels[static_cast<size_t>(y) * width + static_cast<size_t>(x)]; }
};

struct tiff_closer {
    void operator()(TIFF* file) const { TIFFClose(file); }
};

frame read(std::string const& path) {
    std::unique_ptr<TIFF, tiff_closer> const file(TIFFOpen(path.c_str(), "r"));
    if (file == nullptr) {
        throw std::runtime_error(path + ": can't be read as TIFF");
    }
    frame read;
    uint16_t bits = 0;
    uint16_t photometric = 0;
    TIFFGetField(file.get(), TIFFTAG_IMAGEWIDTH, &read.width);
    TIFFGetField(file.get(), TIFFTAG_IMAGELENGTH, &read.height);
    TIFFGetField(file.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetField(file.get(), TIFFTAG_PHOTOMETRIC, &photometric);
    if (bits != 8 && bits != 16) {
        throw std::runtime_error(path + ": has " + std::to_string(bits) + " bits a sample; 8 or 16 can be shown");
    }
    read.bayer = photometric == PHOTOMETRIC_CFA;
    read.pixels.resize(size_t{read.width} * read.height);
    std::vector<uint8_t> line(static_cast<size_t>(TIFFScanlineSize64(file.get())));
    for (uint32_t y = 0; y < read.height; ++y) {
        if (TIFFReadScanline(file.get(), line.data(), y, 0) != 1) {
            throw std::runtime_error(path + ": ends in line " + std::to_string(y));
        }
        for (uint32_t x = 0; x < read.width; ++x) {
            // The upper 8 of the 12 bits that a little-endian 16-bit sample holds.
            int const value = bits == 16 ? line[2 * x] >> 4 | (line[2 * x + 1] & 0xF) << 4 : line[x];
            read.pixels[size_t{y} * read.width + x] = static_cast<uint8_t>(value);
        }
    }
    return read;
}

/// The mean of the pixels of one colour (0 red, 1 green, 2 blue) around a place of an RGGB pattern.
uint8_t colour(frame const& image, int64_t x, int64_t y, int wanted) {
    unsigned sum = 0;
    unsigned count = 0;
    for (int64_t ny = y - 1; ny <= y + 1; ++ny) {
        for (int64_t nx = x - 1; nx <= x + 1; ++nx) {
            bool const inside = nx >= 0 && ny >= 0 && nx < image.width && ny < image.height;
            if (inside && static_cast<int>(nx % 2 + ny % 2) == wanted) {
                sum += image.at(nx, ny);
                ++count;
            }
        }
    }
    return static_cast<uint8_t>(count == 0 ? 0 : sum / count);
}

std::vector<uint8_t> in_colours(frame const& image) {
    std::vector<uint8_t> rgb;
    rgb.reserve(image.pixels.size() * 3);
    for (uint32_t y = 0; y < image.height; ++y) {
        for (uint32_t x = 0; x < image.width; ++x) {
            for (int wanted = 0; wanted < 3; ++wanted) {
                rgb.push_back(colour(image, x, y, wanted));
            }
        }
    }
    return rgb;
}

void write(std::string const& path, frame const& image) {
    png_image picture{};
    picture.version = PNG_IMAGE_VERSION;
    picture.width = image.width;
    picture.height = image.height;
    picture.format = image.bayer ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    auto const pixels = image.bayer ? in_colours(image) : image.pixels;
    if (png_image_write_to_file(&picture, path.c_str(), 0, pixels.data(), 0, nullptr) == 0) {
        throw std::runtime_error(path + ": can't be written: " + picture.message);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: picture_of FRAME.tif PICTURE.png\n");
        return EXIT_FAILURE;
    }
    try {
        write(argv[2], read(argv[1]));
        return EXIT_SUCCESS;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "picture_of: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
