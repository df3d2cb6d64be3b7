// SPDX-License-Identifier: MIT
#include "recording/tiff_file.hpp"

#include <sys/mman.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "base/file_handle.hpp"
#include "base/system_call.hpp"
#include "frames/frame_pixels.hpp"
#include "recording/tiff_tags.hpp"

namespace mediagrabber {

namespace {

/// The file that libtiff writes to, and its first error.
struct output {
    int descriptor;
    int error = 0;  ///< errno of a system call that failed
    std::string message;
};

[[gnu::format(printf, 4, 0)]] int take_message(TIFF* /*tiff*/, void* user, char const* /*module*/, char const* format,
                                               va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& message = static_cast<output*>(user)->message;
    if (message.empty()) {
        message = text.data();
    }
    return 1;
}

tmsize_t write_bytes(thandle_t handle, void* data, tmsize_t size) {
    auto& out = *static_cast<output*>(handle);
    tmsize_t written = 0;
    while (written < size) {
        ssize_t const done =
            ::write(out.descriptor, static_cast<char const*>(data) + written, static_cast<std::size_t>(size - written));
        if (done < 0 && errno != EINTR) {
            out.error = errno;
            return -1;
        }
        written += done < 0 ? 0 : done;
    }
    return written;
}

tmsize_t read_bytes(thandle_t handle, void* data, tmsize_t size) {
    return uninterrupted(
        [&] { return ::read(static_cast<output*>(handle)->descriptor, data, static_cast<std::size_t>(size)); });
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
    return static_cast<toff_t>(::lseek(static_cast<output*>(handle)->descriptor, static_cast<off_t>(offset), whence));
}

int leave_open(thandle_t /*handle*/) {
    return 0;
}

toff_t size_of(thandle_t handle) {
    int const descriptor = static_cast<output*>(handle)->descriptor;
    off_t const here = ::lseek(descriptor, 0, SEEK_CUR);
    off_t const end = ::lseek(descriptor, 0, SEEK_END);
    ::lseek(descriptor, here, SEEK_SET);
    return static_cast<toff_t>(end);
}

struct tiff_closer {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using open_tiff = std::unique_ptr<TIFF, tiff_closer>;

open_tiff open_output(output& out) {
    std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> const options(TIFFOpenOptionsAlloc(),
                                                                               TIFFOpenOptionsFree);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), take_message, &out);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), take_message, &out);
    return open_tiff(TIFFClientOpenExt("frame", "w", &out, read_bytes, write_bytes, seek, leave_open, size_of, nullptr,
                                       nullptr, options.get()));
}

[[noreturn]] void fail(output const& out) {
    if (out.error != 0) {
        throw std::runtime_error(std::strerror(out.error));
    }
    throw std::runtime_error(out.message.empty() ? "cannot write the TIFF file" : out.message);
}

void set_geometry(TIFF* tiff, frame_record const& record) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, record.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, record.height);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, record.height);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, int(unpacked_bits(*record.format)));
    TIFFSetField(tiff, TIFFTAG_MINSAMPLEVALUE, 0);
    TIFFSetField(tiff, TIFFTAG_MAXSAMPLEVALUE, (1 << record.format->significant_bits) - 1);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
}

void set_colours(TIFF* tiff, frame_format const& format) {
    if (format.cfa == colour_filter::none) {
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        return;
    }
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_CFA);
    TIFFSetField(tiff, TIFFTAG_CFAREPEATPATTERNDIM, cfa_cell_sides.data());
    TIFFSetField(tiff, TIFFTAG_CFAPATTERN, int{cfa_cell_colours.size()}, cfa_cell_colours.data());
}

void set_compression(TIFF* tiff, tiff_compression compression) {
    switch (compression) {
        case tiff_compression::none:
            TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
            return;
        case tiff_compression::lzw:
            TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
            break;
        case tiff_compression::deflate:
            TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
            break;
    }
    TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
}

/// Uncompressed pixels go from frame memory to the file without a copy; libtiff takes them as `void*` but only reads.
bool write_pixels(TIFF* tiff, frame_view const& frame, tiff_compression compression) {
    std::vector<std::byte> buffer;
    auto const pixels = unpacked(frame, buffer);
    auto const size = static_cast<tmsize_t>(pixels.size());
    if (compression == tiff_compression::none) {
        return TIFFWriteRawStrip(tiff, 0, const_cast<std::byte*>(pixels.data()), size) == size;
    }
    // The predictor works in place and must not change the frame, which other outputs share.
    if (buffer.empty()) {
        buffer.assign(pixels.begin(), pixels.end());
    }
    return TIFFWriteEncodedStrip(tiff, 0, buffer.data(), size) == size;
}

}  // namespace

tiff_file::tiff_file(tiff_compression compression, std::string software, std::string model)
    : compression_(compression), software_(std::move(software)), model_(std::move(model)) {}

void tiff_file::write(int descriptor, frame_view const& frame) const {
    output out{.descriptor = descriptor, .error = 0, .message = {}};
    auto const tiff = open_output(out);
    if (tiff == nullptr) {
        fail(out);
    }
    set_geometry(tiff.get(), frame.record);
    set_colours(tiff.get(), *frame.record.format);
    set_compression(tiff.get(), compression_);
    TIFFSetField(tiff.get(), TIFFTAG_SOFTWARE, software_.c_str());
    if (!model_.empty()) {
        TIFFSetField(tiff.get(), TIFFTAG_MODEL, model_.c_str());
    }
    std::string const time = tiff_date(frame.record.timestamp_us);
    if (!time.empty()) {
        TIFFSetField(tiff.get(), TIFFTAG_DATETIME, time.c_str());
    }
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEDESCRIPTION, tiff_description(frame.record).c_str());
    bool const complete = write_pixels(tiff.get(), frame, compression_) && TIFFWriteDirectory(tiff.get()) != 0;
    if (!complete || out.error != 0 || !out.message.empty()) {
        fail(out);
    }
}

/// libtiff's coders write only to files, so this one writes to a file in memory.
std::vector<std::byte> tiff_file::encoded_strip(frame_view const& frame) const {
    file_handle const memory(memfd_create("strip", MFD_CLOEXEC));
    if (!memory) {
        throw std::system_error(errno, std::generic_category(), "cannot create the memory file for compression");
    }
    output out{.descriptor = memory.get(), .error = 0, .message = {}};
    auto const tiff = open_output(out);
    if (tiff == nullptr) {
        fail(out);
    }
    set_geometry(tiff.get(), frame.record);
    set_colours(tiff.get(), *frame.record.format);
    set_compression(tiff.get(), compression_);
    if (!write_pixels(tiff.get(), frame, compression_) || out.error != 0) {
        fail(out);
    }
    std::vector<std::byte> strip(TIFFGetStrileByteCount(tiff.get(), 0));
    auto const offset = static_cast<off_t>(TIFFGetStrileOffset(tiff.get(), 0));
    std::size_t done = 0;
    while (done < strip.size()) {
        ssize_t const got = uninterrupted([&] {
            return pread(memory.get(), strip.data() + done, strip.size() - done, offset + static_cast<off_t>(done));
        });
        if (got <= 0) {
            out.error = got < 0 ? errno : EIO;
            fail(out);
        }
        done += static_cast<std::size_t>(got);
    }
    return strip;
}

}  // namespace mediagrabber
