// SPDX-License-Identifier: MIT
#include "lut/lookup_table_file.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>
#include <tiffio.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

template <typename reader>
std::string refusal(reader&& read) {
    try {
        read();
        return {};
    } catch (std::runtime_error const& error) {
        return error.what();
    }
}

std::string csv_refusal(std::string const& text) {
    return refusal([&] { read_csv_lut(text); });
}

/// A file of NumPy's format with this description.
std::string npy(std::string const& type, std::string const& shape, std::string const& data, char version = 1) {
    std::string const description = "{'descr': '" + type + "', 'fortran_order': False, 'shape': (" + shape + "), }\n";
    std::string file = "\x93NUMPY";
    file += version;
    file += '\0';
    file += static_cast<char>(description.size());
    file += '\0';
    file += version == 1 ? "" : std::string(2, '\0');
    return file + description + data;
}

template <typename number>
std::string bytes_of(std::vector<number> const& values, bool swapped = false) {
    std::string bytes;
    for (number const value : values) {
        std::string one(sizeof value, '\0');
        std::memcpy(one.data(), &value, sizeof value);
        bytes += swapped ? std::string(one.rbegin(), one.rend()) : one;
    }
    return bytes;
}

std::string npy_refusal(std::string const& file) {
    return refusal([&] { read_npy_lut(file); });
}

/// A TIFF file of some values, as another program writes it.
class TiffLut : public testing::Test {
protected:
    struct shape {
        std::uint32_t width = 0;
        std::uint32_t height = 1;
        std::uint16_t bits = 16;
        std::uint16_t samples = 1;
        std::uint16_t compression = COMPRESSION_NONE;
    };

    std::string tiff(shape const& as, char const* mode = "w") {
        auto const path = directory.path() / "table.tif";
        {
            std::unique_ptr<TIFF, void (*)(TIFF*)> const file(TIFFOpen(path.c_str(), mode), TIFFClose);
            TIFFSetField(file.get(), TIFFTAG_IMAGEWIDTH, as.width);
            TIFFSetField(file.get(), TIFFTAG_IMAGELENGTH, as.height);
            TIFFSetField(file.get(), TIFFTAG_BITSPERSAMPLE, int{as.bits});
            TIFFSetField(file.get(), TIFFTAG_SAMPLESPERPIXEL, int{as.samples});
            TIFFSetField(file.get(), TIFFTAG_COMPRESSION, int{as.compression});
            TIFFSetField(file.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
            TIFFSetField(file.get(), TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
            TIFFSetField(file.get(), TIFFTAG_ROWSPERSTRIP, 16);
            std::uint16_t value = 0;
            for (std::uint32_t y = 0; y < as.height; ++y) {
                std::vector<std::uint16_t> line(std::size_t{as.width} * as.samples);
                for (auto& pixel : line) {
                    pixel = as.bits == 8 ? static_cast<std::uint16_t>(value * 0x101) : value;
                    value = static_cast<std::uint16_t>(value + 1);
                }
                std::vector<std::uint8_t> narrow(line.begin(), line.end());
                TIFFWriteScanline(file.get(), as.bits == 8 ? static_cast<void*>(narrow.data()) : line.data(), y);
            }
        }
        std::ostringstream all;
        all << std::ifstream(path, std::ios::binary).rdbuf();
        return all.str();
    }

    temporary_directory const directory;
};

std::string tiff_refusal(std::string const& file) {
    return refusal([&] { read_tiff_lut(file); });
}

}  // namespace

// ---- Text ---------------------------------------------------------------------------------------

TEST(CsvLut, HasOneValuePerLine) {
    auto const table = read_csv_lut("0\n 10\r\n20 # the last\n\n");
    EXPECT_THAT(table.values, ElementsAre(0, 10, 20));
    EXPECT_EQ(table.bits, 16U);
}

TEST(CsvLut, HasAnIndexAndAValuePerLine) {
    EXPECT_THAT(read_csv_lut("index,value\n0,5\n1;6\n2\t7\n").values, ElementsAre(5, 6, 7));
}

TEST(CsvLut, HasAllValuesOnOneLine) {
    EXPECT_THAT(read_csv_lut("# a comment\n1,2, 3;4 5\n").values, ElementsAre(1, 2, 3, 4, 5));
}

TEST(CsvLut, HasFractionsIfOneValueIsAFraction) {
    auto const table = read_csv_lut("0\n0.5\n1e0\n");
    EXPECT_THAT(table.values, ElementsAre(0, 0.5, 1));
    EXPECT_FALSE(table.bits);
}

TEST(CsvLut, ReportsErrorsWithTheirPosition) {
    EXPECT_EQ(csv_refusal("1\n2\nx3\n"), "line 3, column 1: \"x3\" is not a number");
    EXPECT_EQ(csv_refusal("1\n  2, 3x\n"), "line 2, column 6: \"3x\" is not a number");
    EXPECT_THAT(csv_refusal("0,1\n2\n"), HasSubstr("line 2, column 1: has 1 numbers, expected"));
    EXPECT_THAT(csv_refusal("0,1,2\n1,2,3\n"), HasSubstr("line 1, column 1: has 3 numbers"));
    EXPECT_EQ(csv_refusal("0,5\n2,6\n"), "line 2, column 1: expected the index 1");
    EXPECT_THAT(csv_refusal("1\n" + std::string(100'000, 'x')), HasSubstr("is not a number"));
    EXPECT_THAT(csv_refusal("1 999e999"), HasSubstr("is not a number"));
}

TEST(CsvLut, IsEmptyForAnEmptyFile) {
    EXPECT_TRUE(read_csv_lut("").values.empty());
    EXPECT_TRUE(read_csv_lut("index,value\n# nothing\n").values.empty());
}

// ---- NumPy --------------------------------------------------------------------------------------

TEST(NpyLut, ReadsUnsignedIntegers) {
    auto const small = read_npy_lut(npy("|u1", "3,", bytes_of<std::uint8_t>({1, 2, 255})));
    EXPECT_THAT(small.values, ElementsAre(1, 2, 255));
    EXPECT_EQ(small.bits, 8U);
    auto const large = read_npy_lut(npy("<u2", "2,", bytes_of<std::uint16_t>({258, 65'535})));
    EXPECT_THAT(large.values, ElementsAre(258, 65'535));
    EXPECT_EQ(large.bits, 16U);
}

TEST(NpyLut, ReadsFloats) {
    auto const narrow = read_npy_lut(npy("<f4", "2,", bytes_of<float>({0.25F, 1.0F})));
    EXPECT_THAT(narrow.values, ElementsAre(0.25, 1));
    EXPECT_FALSE(narrow.bits);
    EXPECT_THAT(read_npy_lut(npy("<f8", "1,", bytes_of<double>({0.1}))).values, ElementsAre(0.1));
}

TEST(NpyLut, ReadsBothByteOrdersAndAllVersions) {
    EXPECT_THAT(read_npy_lut(npy(">u2", "1,", bytes_of<std::uint16_t>({258}, true))).values, ElementsAre(258));
    EXPECT_THAT(read_npy_lut(npy(">f8", "1,", bytes_of<double>({0.1}, true))).values, ElementsAre(0.1));
    for (char const version : {'\1', '\2', '\3'}) {
        EXPECT_THAT(read_npy_lut(npy("|u1", "1,", "A", version)).values, ElementsAre(65));
    }
}

TEST(NpyLut, RefusesInvalidFiles) {
    EXPECT_EQ(npy_refusal(""), "is not a NumPy file");
    EXPECT_EQ(npy_refusal("PK\3\4 something quite different"), "is not a NumPy file");
    EXPECT_THAT(npy_refusal(npy("|u1", "1,", "A", '\4')), HasSubstr("has version 4"));
    EXPECT_THAT(npy_refusal(npy("<i4", "1,", "AAAA")), HasSubstr("has the type <i4, expected uint8,"));
    EXPECT_THAT(npy_refusal(npy("O", "1,", "A")), HasSubstr("has the unknown type O"));
    EXPECT_THAT(npy_refusal(npy("", "1,", "A")), HasSubstr("has the unknown type "));
    EXPECT_THAT(npy_refusal(npy("|u1", "2, 2", "AAAA")), HasSubstr("has the shape (2, 2), expected one dimension"));
    EXPECT_THAT(npy_refusal(npy("|u1", "", "A")), HasSubstr("has the shape ()"));
    EXPECT_EQ(npy_refusal(npy("|u1", "2,", "A")), "has 1 bytes of data, expected 2 for 2 entries");
    EXPECT_THAT(npy_refusal(npy("|u1", "1,", "AB")), HasSubstr("has 2 bytes of data, expected 1"));
    EXPECT_THAT(npy_refusal(npy("<f8", "999999999,", "A")), HasSubstr("has 1 bytes"));
    EXPECT_THAT(npy_refusal(npy("|u1", "99999999999999999999,", "A")), HasSubstr("has the shape"));
}

TEST(NpyLut, RefusesTruncatedFiles) {
    auto const complete = npy("<u2", "256,", std::string(512, 'x'));
    for (std::size_t size = 0; size < complete.size(); ++size) {
        EXPECT_NE(npy_refusal(complete.substr(0, size)), "") << size;
    }
}

RC_GTEST_PROP(NpyLut, ReadsOrRefusesAnyContent, ()) {
    auto file = npy("<u2", "4,", "12345678", *rc::gen::element('\1', '\2', '\3'));
    auto const changes = *rc::gen::container<std::vector<std::pair<std::size_t, char>>>(
        rc::gen::pair(rc::gen::inRange<std::size_t>(0, file.size()), rc::gen::arbitrary<char>()));
    for (auto const& [place, byte] : changes) {
        file[place] = byte;
    }
    try {
        RC_ASSERT(read_npy_lut(file).values.size() <= file.size());
    } catch (std::runtime_error const&) {
    }
}

// ---- TIFF ---------------------------------------------------------------------------------------

TEST_F(TiffLut, ReadsOneLineOrOneColumn) {
    for (auto const& as :
         {shape{.width = 300, .height = 1}, shape{.width = 1, .height = 300},
          shape{.width = 300, .height = 1, .bits = 16, .samples = 1, .compression = COMPRESSION_LZW}}) {
        auto const table = read_tiff_lut(tiff(as));
        EXPECT_EQ(table.bits, 16U);
        ASSERT_EQ(table.values.size(), 300U);
        for (std::size_t i = 0; i < table.values.size(); ++i) {
            ASSERT_EQ(table.values[i], static_cast<double>(i));
        }
    }
}

TEST_F(TiffLut, ReadsBothByteOrders) {
    EXPECT_EQ(read_tiff_lut(tiff({.width = 300}, "wb")).values.back(), 299);
    EXPECT_EQ(read_tiff_lut(tiff({.width = 300}, "wl")).values.back(), 299);
}

TEST_F(TiffLut, ReadsEightBits) {
    auto const table = read_tiff_lut(tiff({.width = 256, .height = 1, .bits = 8}));
    EXPECT_EQ(table.bits, 8U);
    EXPECT_EQ(table.values.back(), 255);
}

TEST_F(TiffLut, RefusesOtherShapes) {
    EXPECT_THAT(tiff_refusal(tiff({.width = 16, .height = 16})), HasSubstr("has 16 x 16 pixels, expected one line or"));
    EXPECT_THAT(tiff_refusal(tiff({.width = 300, .height = 1, .bits = 16, .samples = 3})),
                HasSubstr("has 3 samples of 16 bits per pixel, expected one"));
    EXPECT_THAT(tiff_refusal(tiff({.width = 70'000})), HasSubstr("has 70000 x 1 pixels"));
}

TEST_F(TiffLut, RefusesOtherFiles) {
    EXPECT_THAT(tiff_refusal(""), HasSubstr("is not a readable TIFF file"));
    EXPECT_THAT(tiff_refusal("0,1,2,3,4,5,6,7,8,9"), HasSubstr("is not a readable TIFF file: Not a TIFF"));
}

TEST_F(TiffLut, ReadsOrRefusesDamagedFiles) {
    auto const complete = tiff({.width = 256, .height = 1, .bits = 16, .samples = 1, .compression = COMPRESSION_LZW});
    for (std::size_t place = 0; place < complete.size(); ++place) {
        for (char const byte : {'\0', '\xff', '\x7f'}) {
            auto damaged = complete;
            damaged[place] = byte;
            try {
                EXPECT_LE(read_tiff_lut(damaged).values.size(), max_lut_entries);
            } catch (std::runtime_error const&) {
            }
        }
        // libtiff does not need the last four bytes, the offset of the next image.
        EXPECT_TRUE(place + 4 >= complete.size() || !tiff_refusal(complete.substr(0, place)).empty()) << place;
    }
}

// ---- Files --------------------------------------------------------------------------------------

TEST(LutFile, IsReadByItsExtension) {
    temporary_directory const directory;
    auto const csv = directory.path() / "table.CSV";
    std::ofstream(csv) << "1\n2\n";
    EXPECT_THAT(read_lut_file(csv).values, ElementsAre(1, 2));
    auto const array = directory.path() / "table.npy";
    std::ofstream(array, std::ios::binary) << npy("|u1", "1,", "A");
    EXPECT_THAT(read_lut_file(array).values, ElementsAre(65));
    EXPECT_THAT(refusal([&] { read_lut_file(directory.path() / "table.png"); }), HasSubstr("has an unknown type"));
    EXPECT_THAT(refusal([&] { read_lut_file(directory.path() / "other.csv"); }), HasSubstr("cannot be opened"));
    std::filesystem::create_directory(directory.path() / "a.csv");
    EXPECT_THAT(refusal([&] { read_lut_file(directory.path() / "a.csv"); }), HasSubstr("is not a regular file"));
}
