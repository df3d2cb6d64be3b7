// SPDX-License-Identifier: MIT
#include "xml/xml_archive.hpp"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zip_archive.hpp"

using testing::HasSubstr;

namespace {

using bytes = std::vector<std::byte>;

std::string error_of(bytes const& archive) {
    std::string error;
    EXPECT_FALSE(openpv::unpack_xml(archive, error));
    EXPECT_NE(error, "");
    return error;
}

/// Offset of the first entry of the directory.
std::ptrdiff_t directory_of(bytes const& archive) {
    static constexpr std::array signature{std::byte{'P'}, std::byte{'K'}, std::byte{1}, std::byte{2}};
    return std::search(archive.begin(), archive.end(), signature.begin(), signature.end()) - archive.begin();
}

/// Replaces a 32-bit number in the local header and in the directory.
bytes with_number(bytes archive, std::size_t local_offset, std::size_t directory_offset, std::uint32_t value) {
    auto const directory = directory_of(archive);
    std::memcpy(archive.data() + local_offset, &value, sizeof value);
    std::memcpy(archive.data() + directory + directory_offset, &value, sizeof value);
    return archive;
}

}  // namespace

TEST(XmlArchive, IsUnpacked) {
    std::string const xml = "<RegisterDescription>" + std::string(5000, ' ') + "</RegisterDescription>";
    std::string error;
    EXPECT_EQ(openpv::unpack_xml(zip_archive({{"camera.xml", xml}}), error), xml);
    EXPECT_EQ(error, "");
}

TEST(XmlArchive, MayContainOtherEntries) {
    std::string error;
    EXPECT_EQ(openpv::unpack_xml(zip_archive({{"readme", "text"}, {"CAMERA.XML", "<xml/>"}}), error), "<xml/>");
    EXPECT_EQ(openpv::unpack_xml(zip_archive({{"camera", "<xml/>"}}), error), "<xml/>");
    EXPECT_EQ(openpv::unpack_xml(zip_archive({{"a", "text"}, {"b.xml", "<xml/>"}}), error), "<xml/>");
}

TEST(XmlArchive, IsRefusedIfItIsDamaged) {
    auto const archive = zip_archive({{"camera.xml", std::string(1000, 'x')}});
    EXPECT_THAT(error_of({}), HasSubstr("0 entries"));
    EXPECT_THAT(error_of(bytes(147, std::byte{0x50})), HasSubstr("damaged"));
    for (std::size_t size = 0; size < archive.size(); ++size) {
        error_of(bytes(archive.begin(), archive.begin() + static_cast<std::ptrdiff_t>(size)));
    }
}

TEST(XmlArchive, IsRefusedIfItsChecksumIsWrong) {
    EXPECT_THAT(error_of(with_number(zip_archive({{"camera.xml", "<xml/>"}}), 14, 16, 0x12345678)),
                HasSubstr("checksum"));
}

TEST(XmlArchive, IsRefusedIfItAnnouncesFourGigabytes) {
    EXPECT_THAT(error_of(with_number(zip_archive({{"camera.xml", "<xml/>"}}), 22, 24, 0xFFFFFFF0)),
                HasSubstr("16 MiB"));
}

TEST(XmlArchive, IsRefusedIfItsEntryIsLongerOrShorterThanAnnounced) {
    auto const archive = zip_archive({{"camera.xml", std::string(1000, 'x')}});
    EXPECT_THAT(error_of(with_number(archive, 22, 24, 1001)), HasSubstr("cannot be unpacked"));
    EXPECT_THAT(error_of(with_number(archive, 22, 24, 999)), HasSubstr("cannot be unpacked"));
}

TEST(XmlArchive, IsRefusedIfItUsesAnotherCompressionMethodOrEncryption) {
    auto const archive = zip_archive({{"camera.xml", std::string(1000, 'x')}});
    constexpr std::uint32_t bzip2 = 12;
    EXPECT_THAT(error_of(with_number(archive, 8, 10, bzip2)), HasSubstr("compression method"));
    constexpr std::uint32_t encrypted = 1;
    constexpr std::uint32_t deflated = 8;
    EXPECT_THAT(error_of(with_number(archive, 6, 8, encrypted | deflated << 16)), HasSubstr("is encrypted"));
}

TEST(XmlArchive, ExpandsAtMostTwoHundredTimes) {
    auto const archive = zip_archive({{"camera.xml", std::string(1000, 'x')}});
    std::uint32_t compressed = 0;
    std::memcpy(&compressed, archive.data() + directory_of(archive) + 20, sizeof compressed);
    EXPECT_THAT(error_of(with_number(archive, 22, 24, 200 * compressed)), HasSubstr("cannot be unpacked"));
    EXPECT_THAT(error_of(with_number(archive, 22, 24, 200 * compressed + 200)), HasSubstr("ratio"));
}

TEST(XmlArchive, IsRefusedIfAnOffsetLeadsOutside) {
    error_of(with_number(zip_archive({{"camera.xml", "<xml/>"}}), 14, 42, 0x7FFFFFF0));
}

TEST(XmlArchive, IsRefusedIfItExpandsTooMuch) {
    EXPECT_THAT(error_of(zip_archive({{"camera.xml", std::string(8 << 20, ' ')}})), HasSubstr("ratio"));
    EXPECT_THAT(error_of(zip_archive({{"camera.xml", std::string(16 << 20, ' ')}})), HasSubstr("ratio"));
    EXPECT_THAT(error_of(zip_archive({{"camera.xml", std::string((16 << 20) + 1, ' ')}})), HasSubstr("16 MiB"));
}

TEST(XmlArchive, IsRefusedIfItHasTooManyEntries) {
    std::vector<std::pair<std::string, std::string>> entries;
    for (int i = 0; i < 17; ++i) {
        entries.emplace_back(std::to_string(i) + ".xml", "<xml/>");
    }
    EXPECT_THAT(error_of(zip_archive(entries)), HasSubstr("17 entries"));
    entries.pop_back();
    std::string error;
    EXPECT_EQ(openpv::unpack_xml(zip_archive(entries), error), "<xml/>") << error;
    EXPECT_THAT(error_of(zip_archive({{"camera.xml", ""}})), HasSubstr("16 MiB"));
}
