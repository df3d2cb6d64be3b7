// SPDX-License-Identifier: MIT
#include <fmt/format.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "lut/lookup_table_file.hpp"

namespace mediagrabber {

namespace {

/// A file in memory for libtiff, and its first error message.
struct memory_file {
    std::string_view bytes;
    std::size_t at = 0;
    std::string error;
};

tmsize_t read_bytes(thandle_t handle, void* into, tmsize_t size) {
    auto& file = *static_cast<memory_file*>(handle);
    std::size_t const left = file.bytes.size() - std::min(file.at, file.bytes.size());
    std::size_t const got = std::min(left, static_cast<std::size_t>(size));
    if (got > 0) {
        std::memcpy(into, file.bytes.data() + file.at, got);
    }
    file.at += got;
    return static_cast<tmsize_t>(got);
}

tmsize_t write_nothing(thandle_t /*handle*/, void* /*data*/, tmsize_t /*size*/) {
    return 0;
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
    auto& file = *static_cast<memory_file*>(handle);
    std::size_t const from = whence == SEEK_CUR ? file.at : whence == SEEK_END ? file.bytes.size() : 0;
    file.at = from + offset;
    return file.at;
}

int leave_open(thandle_t /*handle*/) {
    return 0;
}

toff_t size_of(thandle_t handle) {
    return static_cast<memory_file*>(handle)->bytes.size();
}

[[gnu::format(printf, 4, 0)]] int store_error(TIFF* /*tiff*/, void* user, char const* /*module*/, char const* format,
                                              va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& error = static_cast<memory_file*>(user)->error;
    error = error.empty() ? text.data() : error;
    return 1;
}

int ignore_warning(TIFF* /*tiff*/, void* /*user*/, char const* /*module*/, char const* /*format*/, va_list /*a*/) {
    return 1;
}

using open_tiff = std::unique_ptr<TIFF, void (*)(TIFF*)>;

open_tiff open_in_memory(memory_file& file) {
    constexpr tmsize_t max_allocation = std::size_t{16} << 20U;  ///< bytes; twice the maximum file
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> const options(TIFFOpenOptionsAlloc(),
                                                                               TIFFOpenOptionsFree);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), max_allocation);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), store_error, &file);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignore_warning, nullptr);
    return {TIFFClientOpenExt("table", "rm", &file, read_bytes, write_nothing, seek, leave_open, size_of, nullptr,
                              nullptr, options.get()),
            TIFFClose};
}

[[noreturn]] void fail(memory_file const& file) {
    throw std::runtime_error(
        fmt::format("is not a readable TIFF file{}{}", file.error.empty() ? "" : ": ", file.error));
}

/// The dimensions of the image.
struct table_shape {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t bits = 1;
};

table_shape shape_of(TIFF* tiff) {
    table_shape shape;
    std::uint16_t samples = 1;
    std::uint16_t kind = SAMPLEFORMAT_UINT;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &shape.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &shape.height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &shape.bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &kind);
    if (samples != 1 || (shape.bits != 8 && shape.bits != 16) || kind != SAMPLEFORMAT_UINT || TIFFIsTiled(tiff) != 0) {
        throw std::runtime_error(
            fmt::format("has {} samples of {} bits per pixel, expected one unsigned sample of 8 or 16 bits, in strips",
                        samples, shape.bits));
    }
    if ((shape.width != 1 && shape.height != 1) || std::max(shape.width, shape.height) > max_lut_entries) {
        throw std::runtime_error(fmt::format("has {} x {} pixels, expected one line or one column of at most {}",
                                             shape.width, shape.height, max_lut_entries));
    }
    return shape;
}

}  // namespace

raw_lut read_tiff_lut(std::string_view bytes) {
    memory_file file{.bytes = bytes, .at = 0, .error = {}};
    auto const tiff = open_in_memory(file);
    if (tiff == nullptr) {
        fail(file);
    }
    auto const shape = shape_of(tiff.get());
    raw_lut table{.values = {}, .bits = shape.bits};
    std::vector<std::byte> line(static_cast<std::size_t>(TIFFScanlineSize(tiff.get())));
    for (std::uint32_t y = 0; y < shape.height; ++y) {
        if (TIFFReadScanline(tiff.get(), line.data(), y) != 1) {
            fail(file);
        }
        for (std::uint32_t x = 0; x < shape.width; ++x) {
            std::uint16_t value = std::to_integer<std::uint16_t>(line[x]);
            if (shape.bits == 16) {
                std::memcpy(&value, line.data() + std::size_t{2} * x, sizeof value);
            }
            table.values.push_back(value);
        }
    }
    return table;
}

}  // namespace mediagrabber
