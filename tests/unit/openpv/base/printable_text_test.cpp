// SPDX-License-Identifier: MIT
#include "base/printable_text.hpp"

#include <string>

#include <gtest/gtest.h>
#include <PvResult.h>
#include <rapidcheck/gtest.h>

using openpv::printable;
using openpv::printable_ascii;
using openpv::printable_xml;

TEST(PrintableText, KeepsText) {
    EXPECT_EQ(printable("GO-5100M, 20 \xC2\xB0"
                        "C, \xE6\x97\xA5\xE6\x9C\xAC, \xF0\x9F\x93\xB7"),
              "GO-5100M, 20 \xC2\xB0"
              "C, \xE6\x97\xA5\xE6\x9C\xAC, \xF0\x9F\x93\xB7");
    EXPECT_EQ(printable(""), "");
}

TEST(PrintableText, ReplacesControlCharacters) {
    EXPECT_EQ(printable("a\x1b[2J\nb\tc\x7f"), "a?[2J?b?c?");
    EXPECT_EQ(printable("\xC2\x9B"
                        "2J"),
              "??2J")
        << "CSI of C1";
    EXPECT_EQ(printable("\xE2\x80\xAE"), "???") << "right-to-left override";
    EXPECT_EQ(printable("\xE2\x80\xA8"), "???") << "line separator";
}

TEST(PrintableText, ReplacesBytesThatAreNotUtf8) {
    EXPECT_EQ(printable("\x9B"
                        "a\xFF\xC3"),
              "?a??");
    EXPECT_EQ(printable("\xC0\x9B"), "??") << "an overlong form of ESC";
    EXPECT_EQ(printable("\xE0\x82\x9B"), "???") << "an overlong form of CSI";
    EXPECT_EQ(printable("\xED\xA0\x80"), "???") << "a surrogate";
}

TEST(PrintableText, IsAsciiWhereTheStandardDefinesTheField) {
    EXPECT_EQ(printable_ascii("a\xC2\xB0\n\x7f~ "), "a????~ ");
}

TEST(PrintableXml, KeepsItsLayoutAndOrdinaryReferences) {
    EXPECT_EQ(printable_xml("<a b=\"&lt;&#65;&#xB0;\">\r\n\t</a>"), "<a b=\"&lt;&#65;&#xB0;\">\r\n\t</a>");
}

TEST(PrintableXml, ReplacesControlCharactersAndReferencesToThem) {
    EXPECT_EQ(printable_xml("<a>\x1b</a>"), "<a>?</a>");
    EXPECT_EQ(printable_xml("<a b=\"x&#10;y&#x1B;z&#0155;\"/>"), "<a b=\"x?????y??????z???????\"/>");
    EXPECT_EQ(printable_xml("&#x;&#;&#99999999999;&#1"), "&#x;&#;&#99999999999;&#1") << "no references";
}

TEST(PrintableText, IsWhatAResultDescribes) {
    PvResult const result(PvResult::Code::GENERIC_ERROR, "Gain\x1b[31m cannot be read");
    EXPECT_STREQ(result.GetDescription().GetAscii(), "Gain?[31m cannot be read");
}

RC_GTEST_PROP(PrintableText, HasNoControlBytesWhateverTheInput, (std::string const& raw)) {
    std::string const text = printable(raw);
    RC_ASSERT(text.size() == raw.size());
    for (char const each : text) {
        RC_ASSERT(static_cast<unsigned char>(each) >= 0x20 && each != 0x7F);
    }
    RC_ASSERT(printable(text) == text);
}
