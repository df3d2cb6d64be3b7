// SPDX-License-Identifier: MIT
#include "image/image_file.hpp"

#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace camsim {

namespace {

std::string lower_case_extension(std::filesystem::path const& file) {
    std::string extension = file.extension().string();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return extension;
}

void check_size(std::uint32_t width, std::uint32_t height) {
    if (width == 0 || height == 0 || width > max_image_side || height > max_image_side) {
        throw std::runtime_error("has " + std::to_string(width) + " x " + std::to_string(height) +
                                 " pixels, expected 1 to " + std::to_string(max_image_side) + " each");
    }
}

// TIFF

[[gnu::format(printf, 4, 0)]] int store_error(TIFF* /*tiff*/, void* user, char const* /*module*/, char const* format,
                                              va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& error = *static_cast<std::string*>(user);
    error = error.empty() ? text.data() : error;
    return 1;
}

int ignore_warning(TIFF* /*tiff*/, void* /*user*/, char const* /*module*/, char const* /*format*/, va_list /*a*/) {
    return 1;
}

using open_tiff = std::unique_ptr<TIFF, void (*)(TIFF*)>;

[[noreturn]] void fail_tiff(std::string const& error) {
    throw std::runtime_error("is not a readable TIFF file" + (error.empty() ? "" : ": " + error));
}

open_tiff open(std::filesystem::path const& file, std::string& error) {
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> const options(TIFFOpenOptionsAlloc(),
                                                                               TIFFOpenOptionsFree);
    constexpr tmsize_t max_allocation = std::size_t{8} * max_image_side * max_image_side;
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), max_allocation);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), store_error, &error);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignore_warning, nullptr);
    return {TIFFOpenExt(file.c_str(), "r", options.get()), TIFFClose};
}

raw_image read_tiff(std::filesystem::path const& file) {
    std::string error;
    auto const tiff = open(file, error);
    if (tiff == nullptr) {
        fail_tiff(error);
    }
    raw_image read;
    std::uint16_t bits = 1;
    std::uint16_t samples = 1;
    std::uint16_t kind = SAMPLEFORMAT_UINT;
    std::uint16_t planes = PLANARCONFIG_CONTIG;
    std::uint16_t meaning = PHOTOMETRIC_MINISBLACK;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &read.width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &read.height);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLEFORMAT, &kind);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_PLANARCONFIG, &planes);
    TIFFGetField(tiff.get(), TIFFTAG_PHOTOMETRIC, &meaning);
    check_size(read.width, read.height);
    bool const grey = meaning == PHOTOMETRIC_MINISBLACK && (samples == 1 || samples == 2);
    bool const colour = meaning == PHOTOMETRIC_RGB && (samples == 3 || samples == 4);
    bool const layout = TIFFIsTiled(tiff.get()) == 0 && (samples == 1 || planes == PLANARCONFIG_CONTIG);
    if ((!grey && !colour) || (bits != 8 && bits != 16) || kind != SAMPLEFORMAT_UINT || !layout) {
        throw std::runtime_error(
            "is a TIFF file of a kind that is not supported, expected grey or RGB with 8 or 16 bits "
            "per sample, in strips with interleaved samples");
    }
    read.samples = grey ? 1 : 3;
    read.bits = bits;
    read.values.reserve(read.samples * read.width * read.height);
    std::vector<unsigned char> line(static_cast<std::size_t>(TIFFScanlineSize(tiff.get())));
    for (std::uint32_t y = 0; y < read.height; ++y) {
        if (TIFFReadScanline(tiff.get(), line.data(), y) != 1) {
            fail_tiff(error);
        }
        for (std::size_t x = 0; x < read.width; ++x) {
            for (std::size_t sample = 0; sample < read.samples; ++sample) {
                std::uint16_t value = line[(x * samples + sample) * bits / 8];
                if (bits == 16) {
                    std::memcpy(&value, &line[(x * samples + sample) * 2], 2);  // libtiff converts the byte order
                }
                read.values.push_back(value);
            }
        }
    }
    return read;
}

// PNG. libpng reports errors by longjmp(), so nothing with a destructor is created between setjmp() and its calls.

struct png_reader {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::FILE* file = nullptr;
    std::array<char, 256> error{};
    std::vector<png_byte> bytes;
    std::vector<png_bytep> lines;

    png_reader() = default;
    png_reader(png_reader const&) = delete;
    png_reader& operator=(png_reader const&) = delete;
    ~png_reader() {
        png_destroy_read_struct(&png, &info, nullptr);
        if (file != nullptr) {
            std::fclose(file);
        }
    }
};

[[noreturn]] void store_png_error(png_structp png, png_const_charp message) {
    auto& reader = *static_cast<png_reader*>(png_get_error_ptr(png));
    std::snprintf(reader.error.data(), reader.error.size(), "%s", message);
    png_longjmp(png, 1);
}

void ignore_png_warning(png_structp /*png*/, png_const_charp /*message*/) {}

/// Reads up to the pixels, and converts them to grey or RGB without alpha.
bool read_png_header(png_reader& reader) {
    if (setjmp(png_jmpbuf(reader.png)) != 0) {
        return false;
    }
    png_init_io(reader.png, reader.file);
    png_read_info(reader.png, reader.info);
    png_set_expand(reader.png);
    png_set_strip_alpha(reader.png);
    if (png_get_bit_depth(reader.png, reader.info) == 16) {
        png_set_swap(reader.png);
    }
    png_set_interlace_handling(reader.png);
    png_read_update_info(reader.png, reader.info);
    return true;
}

bool read_png_lines(png_reader& reader) {
    if (setjmp(png_jmpbuf(reader.png)) != 0) {
        return false;
    }
    png_read_image(reader.png, reader.lines.data());
    return true;
}

[[noreturn]] void fail_png(png_reader const& reader) {
    throw std::runtime_error(std::string("is not a readable PNG file: ") + reader.error.data());
}

raw_image read_png(std::filesystem::path const& file) {
    png_reader reader;
    reader.file = std::fopen(file.c_str(), "rb");
    if (reader.file == nullptr) {
        throw std::runtime_error(std::string("cannot be opened: ") + std::strerror(errno));
    }
    reader.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &reader, store_png_error, ignore_png_warning);
    reader.info = reader.png != nullptr ? png_create_info_struct(reader.png) : nullptr;
    if (reader.info == nullptr) {
        throw std::bad_alloc();
    }
    png_set_user_limits(reader.png, max_image_side, max_image_side);
    if (!read_png_header(reader)) {
        fail_png(reader);
    }
    raw_image read;
    read.width = png_get_image_width(reader.png, reader.info);
    read.height = png_get_image_height(reader.png, reader.info);
    read.samples = png_get_channels(reader.png, reader.info);
    read.bits = png_get_bit_depth(reader.png, reader.info);
    std::size_t const line_bytes = png_get_rowbytes(reader.png, reader.info);
    reader.bytes.resize(line_bytes * read.height);
    for (std::uint32_t y = 0; y < read.height; ++y) {
        reader.lines.push_back(reader.bytes.data() + y * line_bytes);
    }
    if (!read_png_lines(reader)) {
        fail_png(reader);
    }
    read.values.resize(read.samples * read.width * read.height);
    if (read.bits == 16) {
        std::memcpy(read.values.data(), reader.bytes.data(), reader.bytes.size());
    } else {
        std::ranges::copy(reader.bytes, read.values.begin());
    }
    return read;
}

bool is_png_file(std::filesystem::path const& file) {
    return lower_case_extension(file) == ".png";
}

}  // namespace

bool is_image_file(std::filesystem::path const& file) {
    std::string const extension = lower_case_extension(file);
    return extension == ".tif" || extension == ".tiff" || is_png_file(file);
}

raw_image read_image_file(std::filesystem::path const& file) {
    return is_png_file(file) ? read_png(file) : read_tiff(file);
}

}  // namespace camsim
