// SPDX-License-Identifier: MIT
#include "recording/bigtiff_file.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <memory>

#include "file_size_limit.hpp"
#include "sample_frames.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;

namespace {

using open_tiff = std::unique_ptr<TIFF, void (*)(TIFF*)>;

constexpr tiff_compression every_compression[] = {tiff_compression::none, tiff_compression::lzw,
                                                  tiff_compression::deflate};

/// Pixel values of the page, as another program reads them.
std::vector<std::uint16_t> values_in(TIFF* tiff) {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t bits = 0;
    EXPECT_EQ(TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width), 1);
    EXPECT_EQ(TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height), 1);
    EXPECT_EQ(TIFFGetField(tiff, TIFFTAG_BITSPERSAMPLE, &bits), 1);
    std::vector<std::uint8_t> line(static_cast<std::size_t>(TIFFScanlineSize(tiff)));
    std::vector<std::uint16_t> values;
    for (std::uint32_t y = 0; y < height; ++y) {
        EXPECT_EQ(TIFFReadScanline(tiff, line.data(), y), 1);
        for (std::size_t x = 0; x < width; ++x) {
            values.push_back(bits == 8 ? line[x] : static_cast<std::uint16_t>(line[2 * x] | line[2 * x + 1] << 8));
        }
    }
    return values;
}

/// The tags of a page, except the position of its pixels.
std::vector<std::string> tags_of(TIFF* tiff) {
    std::vector<std::string> tags;
    // libtiff's own names are signed and unsigned.
    auto const number_tags = std::to_array<std::uint32_t>(
        {TIFFTAG_BITSPERSAMPLE, TIFFTAG_COMPRESSION, TIFFTAG_PHOTOMETRIC, TIFFTAG_ORIENTATION, TIFFTAG_SAMPLESPERPIXEL,
         TIFFTAG_MINSAMPLEVALUE, TIFFTAG_MAXSAMPLEVALUE, TIFFTAG_PLANARCONFIG, std::uint32_t{TIFFTAG_PREDICTOR}});
    for (std::uint32_t const tag : number_tags) {
        std::uint16_t number = 0;
        bool const there = TIFFGetField(tiff, tag, &number) == 1;
        tags.push_back(std::to_string(tag) + "=" + (there ? std::to_string(number) : "none"));
    }
    for (std::uint32_t const tag :
         std::to_array<std::uint32_t>({TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH, TIFFTAG_ROWSPERSTRIP})) {
        std::uint32_t number = 0;
        bool const there = TIFFGetField(tiff, tag, &number) == 1;
        tags.push_back(std::to_string(tag) + "=" + (there ? std::to_string(number) : "none"));
    }
    for (std::uint32_t const tag :
         std::to_array<std::uint32_t>({TIFFTAG_IMAGEDESCRIPTION, TIFFTAG_MODEL, TIFFTAG_SOFTWARE, TIFFTAG_DATETIME})) {
        char const* text = nullptr;
        bool const there = TIFFGetField(tiff, tag, &text) == 1;
        tags.push_back(std::to_string(tag) + "=" + (there ? text : "none"));
    }
    std::uint16_t const* sides = nullptr;
    std::uint16_t count = 0;
    std::uint8_t const* colours = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_CFAREPEATPATTERNDIM, &sides) == 1 &&
        TIFFGetField(tiff, TIFFTAG_CFAPATTERN, &count, &colours) == 1) {
        tags.push_back("cell=" + std::to_string(sides[0]) + "x" + std::to_string(sides[1]) + " " +
                       std::string(colours, colours + count));
    }
    return tags;
}

class BigTiffFile : public testing::Test {
protected:
    BigTiffFile() : descriptor(open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

    std::filesystem::path path() const { return directory.path() / "frames.tif"; }
    open_tiff opened(std::filesystem::path const& file) const { return {TIFFOpen(file.c_str(), "r"), TIFFClose}; }
    open_tiff opened() const { return opened(path()); }
    std::vector<std::vector<std::uint16_t>> pages() const {
        std::vector<std::vector<std::uint16_t>> found;
        auto const tiff = opened();
        do {
            found.push_back(values_in(tiff.get()));
        } while (TIFFReadDirectory(tiff.get()) == 1);
        return found;
    }

    temporary_directory const directory;
    mediagrabber::file_handle const descriptor;
};

tiff_file uncompressed() {
    return {tiff_compression::none, "tester", "M"};
}

}  // namespace

TEST_F(BigTiffFile, HasAPagePerFrameWithEveryCompression) {
    for (auto const compression : every_compression) {
        std::vector<std::vector<std::uint16_t>> expected;
        {
            bigtiff_file file(descriptor.get(), tiff_file(compression, "tester 1", "M-1"));
            for (auto const& format : frame_formats) {
                for (auto const& [width, height] : {std::pair{16U, 8U}, {1U, 1U}, {7U, 5U}, {33U, 3U}}) {
                    for (std::uint32_t const padding : {0U, 5U}) {
                        auto const frame = make_frame(format, width, height, padding);
                        auto const before = frame.bytes;
                        EXPECT_EQ(file.write(frame.view()).place.page, expected.size());
                        EXPECT_EQ(frame.bytes, before);
                        expected.push_back(frame.values);
                    }
                }
            }
        }
        EXPECT_EQ(pages(), expected);
        std::filesystem::remove(path());
    }
}

TEST_F(BigTiffFile, HasTheTagsOfASingleFile) {
    for (auto const compression : every_compression) {
        tiff_file const single(compression, "tester 1", "M-1");
        for (auto const& format : frame_formats) {
            auto frame = make_frame(format, 16, 8);
            frame.record.timestamp_us = 1'700'000'000'123'456;
            auto const alone = directory.path() / "single.tif";
            {
                mediagrabber::file_handle const file(open(alone.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
                single.write(file.get(), frame.view());
            }
            bigtiff_file many(descriptor.get(), single);
            many.write(frame.view());
            auto const tags = tags_of(opened().get());
            EXPECT_EQ(tags, tags_of(opened(alone).get()));
            EXPECT_THAT(tags, testing::Contains("306=2023:11:14 22:13:20"));
            std::filesystem::remove(path());
        }
    }
}

TEST_F(BigTiffFile, HasABigTiffHeader) {
    bigtiff_file file(descriptor.get(), uncompressed());
    file.write(make_frame(frame_formats[0], 4, 4).view());
    std::array<char, 8> first{};
    std::ifstream(path(), std::ios::binary).read(first.data(), first.size());
    EXPECT_EQ(std::memcmp(first.data(), "II\x2b\0\x08\0\0\0", first.size()), 0);
}

TEST_F(BigTiffFile, RefusesAFrameThatDoesNotFitWhereverTheDiskIsFull) {
    auto const frame = make_frame(frame_formats[0], 16, 8);
    std::uint64_t one = 0;
    std::uint64_t whole = 0;
    {
        bigtiff_file file(descriptor.get(), uncompressed());
        file.write(frame.view());
        one = std::filesystem::file_size(path());
        file.write(frame.view());
        whole = std::filesystem::file_size(path());
    }
    std::filesystem::remove(path());
    // The disk is full at every place of the second page in turn.
    bigtiff_file file(descriptor.get(), uncompressed());
    file.write(frame.view());
    for (std::uint64_t allowed = one; allowed < whole; ++allowed) {
        {
            file_size_limit const limit(allowed);
            EXPECT_THROW(file.write(frame.view()), std::system_error);
        }
        ASSERT_EQ(std::filesystem::file_size(path()), one);
    }
    EXPECT_EQ(pages().size(), 1U);
    EXPECT_EQ(file.write(frame.view()).place.page, 1U);
    EXPECT_EQ(pages(), (std::vector<std::vector<std::uint16_t>>{frame.values, frame.values}));
}

TEST_F(BigTiffFile, UndoesTheLastPage) {
    bigtiff_file file(descriptor.get(), uncompressed());
    auto const kept = make_frame(frame_formats[0], 16, 8);
    file.write(kept.view());
    file.write(make_frame(frame_formats[2], 5, 3).view());
    file.undo_last();
    EXPECT_EQ(pages(), (std::vector<std::vector<std::uint16_t>>{kept.values}));
    EXPECT_EQ(file.write(kept.view()).place.page, 1U);
    EXPECT_EQ(pages(), (std::vector<std::vector<std::uint16_t>>{kept.values, kept.values}));
}

TEST_F(BigTiffFile, WritesOnlyTheEndAndOnePointerForAPage) {
    // The cost of a page is measured in read and write calls, which do not depend on the load of the machine.
    auto const count = [] {
        std::ifstream in("/proc/self/io");
        std::uint64_t calls = 0;
        for (std::string name; in >> name;) {
            std::uint64_t value = 0;
            in >> value;
            calls += name == "syscr:" || name == "syscw:" ? value : 0;
        }
        return calls;
    };
    bigtiff_file file(descriptor.get(), uncompressed());
    auto const frame = make_frame(frame_formats[0], 16, 8);
    auto const calls_of = [&](int pages) {
        auto const before = count();
        for (int i = 0; i < pages; ++i) {
            file.write(frame.view());
        }
        return count() - before;
    };
    calls_of(1);
    auto const early = calls_of(1000);
    calls_of(20'000);
    auto const late = calls_of(1000);
    EXPECT_NEAR(static_cast<double>(late), static_cast<double>(early), 50);
    EXPECT_GT(early, 1000U);
}
