#include "tiff_file.hpp"

#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace mediagrabber {

namespace {

// EXIF's colour numbers in a colour filter array.
constexpr std::uint8_t red = 0;
constexpr std::uint8_t green = 1;
constexpr std::uint8_t blue = 2;

/// Where libtiff's complaints go, and the file that it writes to.
struct output {
    int descriptor;
    int error = 0;  ///< errno of a system call that failed
    std::string complaint;
};

[[gnu::format(printf, 4, 0)]] int take_complaint(TIFF* /*tiff*/, void* user, char const* /*module*/, char const* format,
                                                 va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& complaint = static_cast<output*>(user)->complaint;
    if (complaint.empty()) {
        complaint = text.data();
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
    return ::read(static_cast<output*>(handle)->descriptor, data, static_cast<std::size_t>(size));
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
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), take_complaint, &out);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), take_complaint, &out);
    return open_tiff(TIFFClientOpenExt("frame", "w", &out, read_bytes, write_bytes, seek, leave_open, size_of, nullptr,
                                       nullptr, options.get()));
}

[[noreturn]] void fail(output const& out) {
    if (out.error != 0) {
        throw std::runtime_error(std::strerror(out.error));
    }
    throw std::runtime_error(out.complaint.empty() ? "the TIFF file can't be written" : out.complaint);
}

/// The TIFF tag's form of a time, in UTC.
std::string date_and_time(std::uint64_t timestamp_us) {
    auto const seconds = static_cast<std::time_t>(timestamp_us / 1'000'000);
    std::tm broken_down{};
    std::array<char, 32> text{};
    if (gmtime_r(&seconds, &broken_down) == nullptr || broken_down.tm_year + 1900 > 9999 ||
        std::strftime(text.data(), text.size(), "%Y:%m:%d %H:%M:%S", &broken_down) != 19) {
        return {};
    }
    return text.data();
}

std::string description_of(frame_record const& record) {
    return "frame " + std::to_string(record.number) + ", " + std::to_string(record.timestamp_us) +
           " us since 1970-01-01 UTC, " + std::string(record.format->codec) + ", " +
           std::to_string(record.format->significant_bits) + " significant bits";
}

std::uint16_t bits_in_file(pixel_format const& format) {
    return format.significant_bits > 8 ? 16 : 8;
}

void set_geometry(TIFF* tiff, frame_record const& record) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, record.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, record.height);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, record.height);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, int{bits_in_file(*record.format)});
    TIFFSetField(tiff, TIFFTAG_MINSAMPLEVALUE, 0);
    TIFFSetField(tiff, TIFFTAG_MAXSAMPLEVALUE, (1 << record.format->significant_bits) - 1);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
}

void set_meaning(TIFF* tiff, pixel_format const& format) {
    if (!format.bayer) {
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        return;
    }
    std::array<std::uint16_t, 2> const repeat{2, 2};
    std::array<std::uint8_t, 4> const pattern{red, green, green, blue};
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_CFA);
    TIFFSetField(tiff, TIFFTAG_CFAREPEATPATTERNDIM, repeat.data());
    TIFFSetField(tiff, TIFFTAG_CFAPATTERN, int{pattern.size()}, pattern.data());
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

/// GigE Vision packing: two pixels in three bytes; the first byte holds the upper 8 bits of the first, the second the
/// lower 4 bits of both, the first pixel's below, the third the upper 8 bits of the second.
void unpack_line(std::span<std::byte const> packed, std::uint16_t* pixels, std::uint32_t width) {
    auto const byte_at = [&](std::size_t i) { return std::to_integer<unsigned>(packed[i]); };
    std::size_t at = 0;
    for (std::uint32_t x = 0; x < width; x += 2, at += 3) {
        unsigned const low_bits = byte_at(at + 1);
        pixels[x] = static_cast<std::uint16_t>(byte_at(at) << 4U | (low_bits & 0xFU));
        if (x + 1 < width) {
            pixels[x + 1] = static_cast<std::uint16_t>(byte_at(at + 2) << 4U | low_bits >> 4U);
        }
    }
}

/// The pixels without gaps, as the file holds them. Empty when they lie so in memory already.
std::vector<std::byte> gathered(frame_view const& frame) {
    frame_record const& record = frame.record;
    pixel_format const& format = *record.format;
    bool const packed = format.container_bits == 12;
    std::size_t const line_bytes = format.line_bytes(record.width);
    if (!packed && record.stride == line_bytes) {
        return {};
    }
    std::size_t const file_line = std::size_t{record.width} * bits_in_file(format) / 8;
    std::vector<std::byte> gap_free(file_line * record.height);
    for (std::size_t y = 0; y < record.height; ++y) {
        auto const line = frame.pixels.subspan(y * record.stride, line_bytes);
        std::byte* const out = gap_free.data() + y * file_line;
        if (packed) {
            unpack_line(line, reinterpret_cast<std::uint16_t*>(out), record.width);
        } else {
            std::memcpy(out, line.data(), line.size());
        }
    }
    return gap_free;
}

/// libtiff takes pixels as `void*`; uncompressed they go from frame memory to the file without a copy.
bool write_pixels(TIFF* tiff, frame_view const& frame, tiff_compression compression) {
    auto gap_free = gathered(frame);
    auto* const pixels = gap_free.empty() ? const_cast<std::byte*>(frame.pixels.data()) : gap_free.data();
    auto const size = static_cast<tmsize_t>(gap_free.empty() ? frame.pixels.size() : gap_free.size());
    if (compression == tiff_compression::none) {
        return TIFFWriteRawStrip(tiff, 0, pixels, size) == size;
    }
    // The predictor works in place, and these pixels are not libtiff's to change.
    if (gap_free.empty()) {
        gap_free.assign(frame.pixels.begin(), frame.pixels.end());
    }
    return TIFFWriteEncodedStrip(tiff, 0, gap_free.data(), size) == size;
}

}  // namespace

tiff_file::tiff_file(tiff_compression compression, std::string software, std::string model)
    : compression_(compression), software_(std::move(software)), model_(std::move(model)) {}

void tiff_file::write(int descriptor, frame_view const& frame) const {
    output out{.descriptor = descriptor, .error = 0, .complaint = {}};
    auto const tiff = open_output(out);
    if (tiff == nullptr) {
        fail(out);
    }
    set_geometry(tiff.get(), frame.record);
    set_meaning(tiff.get(), *frame.record.format);
    set_compression(tiff.get(), compression_);
    TIFFSetField(tiff.get(), TIFFTAG_SOFTWARE, software_.c_str());
    if (!model_.empty()) {
        TIFFSetField(tiff.get(), TIFFTAG_MODEL, model_.c_str());
    }
    std::string const time = date_and_time(frame.record.timestamp_us);
    if (!time.empty()) {
        TIFFSetField(tiff.get(), TIFFTAG_DATETIME, time.c_str());
    }
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEDESCRIPTION, description_of(frame.record).c_str());
    bool const complete = write_pixels(tiff.get(), frame, compression_) && TIFFWriteDirectory(tiff.get()) != 0;
    if (!complete || out.error != 0 || !out.complaint.empty()) {
        fail(out);
    }
}

}  // namespace mediagrabber
