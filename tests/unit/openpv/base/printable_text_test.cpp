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

TEST(PrintableText, ReplacesTheFirstAndTheLastControlCharacterOfEachRange) {
    EXPECT_EQ(printable("\x01\x1f\x7f"), "???");
    EXPECT_EQ(printable("\xC2\x80\xC2\x9F"), "????");
    EXPECT_EQ(printable("\xE2\x80\x8E\xE2\x80\x8F"), "??????") << "left-to-right and right-to-left marks";
    EXPECT_EQ(printable("\xE2\x80\xA8\xE2\x80\xAE"), "??????") << "line separator, right-to-left override";
    EXPECT_EQ(printable("\xE2\x81\xA6\xE2\x81\xA9"), "??????") << "isolates";
}

TEST(PrintableText, KeepsTheNeighboursOfControlCharacters) {
    for (char const* const text : {" ~", "\xC2\xA0", "\xE2\x80\x8D", "\xE2\x80\x90", "\xE2\x80\xA7", "\xE2\x80\xAF",
                                   "\xE2\x81\xA5", "\xE2\x81\xAA"}) {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(PrintableText, KeepsTheFirstAndTheLastCharacterOfEachLength) {
    for (char const* const text : {"\xC3\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                                   "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(PrintableText, ReplacesBytesThatAreNotUtf8) {
    EXPECT_EQ(printable("\x9B"
                        "a\xFF\xC3"),
              "?a??");
    EXPECT_EQ(printable("\xC0\x9B"), "??") << "an overlong form of ESC";
    EXPECT_EQ(printable("\xE0\x82\x9B"), "???") << "an overlong form of CSI";
    EXPECT_EQ(printable("\xC1\x81"), "??") << "an overlong form of A";
    EXPECT_EQ(printable("\xE0\x83\xA4"), "???") << "an overlong form of a character of two bytes";
    EXPECT_EQ(printable("\xF0\x8F\xBF\xBF"), "????") << "an overlong form of a character of three bytes";
    EXPECT_EQ(printable("\xED\xA0\x80"), "???") << "a surrogate";
    EXPECT_EQ(printable("\xED\xBF\xBF"), "???") << "the last surrogate";
    EXPECT_EQ(printable("\xF4\x90\x80\x80"), "????") << "beyond the last character";
    EXPECT_EQ(printable("\xF8\x90\x80\x80"), "????") << "a first byte that no character has";
    EXPECT_EQ(printable("\xC3\xC3\xA4"), "?\xC3\xA4") << "a character without its second byte";
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
    EXPECT_EQ(printable_xml("&#X1B;&#&#27;"), "??????&#?????");
    EXPECT_EQ(printable_xml("&#x;&#;&#99999999999;&#1"), "&#x;&#;&#99999999999;&#1") << "no references";
    EXPECT_EQ(printable_xml("&#27,"), "&#27,") << "no reference";
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
