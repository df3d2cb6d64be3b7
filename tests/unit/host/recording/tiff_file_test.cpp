// SPDX-License-Identifier: MIT
#include "recording/tiff_file.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "file_size_limit.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

using open_tiff = std::unique_ptr<TIFF, void (*)(TIFF*)>;

template <typename value>
value field(TIFF* tiff, std::uint32_t tag) {
    value read{};
    EXPECT_EQ(TIFFGetField(tiff, tag, &read), 1) << "tag " << tag;
    return read;
}

std::string text_field(TIFF* tiff, std::uint32_t tag) {
    return field<char const*>(tiff, tag);
}

/// Pixel values as another program reads them.
std::vector<std::uint16_t> values_in(TIFF* tiff) {
    auto const width = field<std::uint32_t>(tiff, TIFFTAG_IMAGEWIDTH);
    auto const height = field<std::uint32_t>(tiff, TIFFTAG_IMAGELENGTH);
    bool const wide = field<std::uint16_t>(tiff, TIFFTAG_BITSPERSAMPLE) == 16;
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize(tiff)));
    std::vector<std::uint16_t> values;
    for (std::uint32_t y = 0; y < height; ++y) {
        EXPECT_EQ(TIFFReadScanline(tiff, line.data(), y), 1);
        for (std::uint32_t x = 0; x < width; ++x) {
            std::uint16_t value = line[x];
            if (wide) {
                std::memcpy(&value, line.data() + std::size_t{2} * x, 2);
            }
            values.push_back(value);
        }
    }
    return values;
}

class TiffFile : public testing::Test {
protected:
    /// Writes a frame and opens what was written.
    open_tiff written(sample_frame const& frame, tiff_compression compression = tiff_compression::none,
                      std::string const& model = "M-1") {
        auto const path = directory.path() / "frame.tif";
        int const file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        tiff_file(compression, "tester 1", model).write(file, frame.view());
        close(file);
        open_tiff tiff(TIFFOpen(path.c_str(), "r"), TIFFClose);
        EXPECT_NE(tiff, nullptr);
        return tiff;
    }

    temporary_directory const directory;
};

/// The error of writing to a descriptor; "" without an error.
std::string refusal(int descriptor, sample_frame const& frame, tiff_compression compression = tiff_compression::none) {
    try {
        tiff_file(compression, "tester 1", "").write(descriptor, frame.view());
        return {};
    } catch (std::runtime_error const& error) {
        return error.what();
    }
}

}  // namespace

TEST_F(TiffFile, HoldsThePixelsOfEveryFormatAndSizeWithEveryCompression) {
    for (auto const& format : frame_formats) {
        for (auto const& [width, height] : {std::pair{16U, 8U}, {1U, 1U}, {7U, 5U}, {33U, 3U}}) {
            for (std::uint32_t const padding : {0U, 5U}) {
                for (auto const compression :
                     {tiff_compression::none, tiff_compression::lzw, tiff_compression::deflate}) {
                    auto const frame = make_frame(format, width, height, padding);
                    auto const tiff = written(frame, compression);
                    EXPECT_EQ(values_in(tiff.get()), frame.values)
                        << format.codec << " " << width << " x " << height << " + " << padding;
                    EXPECT_EQ(field<std::uint32_t>(tiff.get(), TIFFTAG_IMAGEWIDTH), width);
                    EXPECT_EQ(field<std::uint32_t>(tiff.get(), TIFFTAG_IMAGELENGTH), height);
                }
            }
        }
    }
}

TEST_F(TiffFile, DoesNotChangeTheFrame) {
    for (auto const compression : {tiff_compression::lzw, tiff_compression::deflate}) {
        auto const frame = make_frame(frame_formats[2], 16, 8);
        auto const before = frame.bytes;
        written(frame, compression);
        EXPECT_EQ(frame.bytes, before);
    }
}

TEST_F(TiffFile, HasTheMaximumSampleValue) {
    auto const grey8 = written(make_frame(frame_formats[0], 4, 4));
    EXPECT_EQ(field<std::uint16_t>(grey8.get(), TIFFTAG_BITSPERSAMPLE), 8);
    EXPECT_EQ(field<std::uint16_t>(grey8.get(), TIFFTAG_MAXSAMPLEVALUE), 255);
    for (int const format : {1, 2}) {
        auto const grey12 = written(make_frame(frame_formats[format], 4, 4));
        EXPECT_EQ(field<std::uint16_t>(grey12.get(), TIFFTAG_BITSPERSAMPLE), 16);
        EXPECT_EQ(field<std::uint16_t>(grey12.get(), TIFFTAG_MAXSAMPLEVALUE), 4095);
    }
}

TEST_F(TiffFile, MarksABayerPatternAsCfa) {
    auto const bayer = written(make_frame(frame_formats[3], 4, 4));
    EXPECT_EQ(field<std::uint16_t>(bayer.get(), TIFFTAG_PHOTOMETRIC), PHOTOMETRIC_CFA);
    std::uint16_t count = 0;
    std::uint8_t const* pattern = nullptr;
    ASSERT_EQ(TIFFGetField(bayer.get(), TIFFTAG_CFAPATTERN, &count, &pattern), 1);
    EXPECT_EQ(std::vector<int>(pattern, pattern + count), (std::vector<int>{0, 1, 1, 2}));
    auto const grey = written(make_frame(frame_formats[0], 4, 4));
    EXPECT_EQ(field<std::uint16_t>(grey.get(), TIFFTAG_PHOTOMETRIC), PHOTOMETRIC_MINISBLACK);
}

TEST_F(TiffFile, HasSoftwareModelAndTime) {
    auto frame = make_frame(frame_formats[1], 4, 4);
    frame.record.number = 12;
    frame.record.timestamp_us = 1'700'000'000'123'456;
    auto const tiff = written(frame);
    EXPECT_EQ(text_field(tiff.get(), TIFFTAG_SOFTWARE), "tester 1");
    EXPECT_EQ(text_field(tiff.get(), TIFFTAG_MODEL), "M-1");
    EXPECT_EQ(text_field(tiff.get(), TIFFTAG_DATETIME), "2023:11:14 22:13:20");
    EXPECT_EQ(text_field(tiff.get(), TIFFTAG_IMAGEDESCRIPTION),
              "frame 12, 1700000000123456 us since 1970-01-01 UTC, Mono12Packed, 12 significant bits");
}

TEST_F(TiffFile, OmitsUnknownTags) {
    auto frame = make_frame(frame_formats[0], 4, 4);
    frame.record.timestamp_us = 18'446'744'073'709'551'615U;
    auto const tiff = written(frame, tiff_compression::none, "");
    char const* text = nullptr;
    EXPECT_EQ(TIFFGetField(tiff.get(), TIFFTAG_MODEL, &text), 0);
    EXPECT_EQ(TIFFGetField(tiff.get(), TIFFTAG_DATETIME, &text), 0);
    EXPECT_EQ(values_in(tiff.get()), frame.values);
}

TEST_F(TiffFile, ReportsAFullDisk) {
    int const full = open("/dev/full", O_RDWR | O_CLOEXEC);
    for (auto const compression : {tiff_compression::none, tiff_compression::lzw, tiff_compression::deflate}) {
        EXPECT_THAT(refusal(full, make_frame(frame_formats[0], 64, 64), compression),
                    HasSubstr("No space left on device"));
    }
    close(full);
}

TEST_F(TiffFile, ReportsAnUnwritableFile) {
    int const read_only = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_THAT(refusal(read_only, make_frame(frame_formats[0], 4, 4)), HasSubstr("Bad file descriptor"));
    close(read_only);
}

TEST_F(TiffFile, IsInvalidWhenTruncatedAnywhere) {
    auto const frame = make_frame(frame_formats[0], 16, 16);
    written(frame, tiff_compression::none, "");
    auto const whole = std::filesystem::file_size(directory.path() / "frame.tif");
    for (rlim_t allowed = 0; allowed < whole; ++allowed) {
        int const file = memfd_create("frame", MFD_CLOEXEC);
        std::string why;
        {
            file_size_limit const limit(allowed);
            why = refusal(file, frame);
        }
        EXPECT_NE(why, "") << allowed << " of " << whole << " bytes";
        close(file);
    }
}
