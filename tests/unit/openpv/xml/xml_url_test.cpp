// SPDX-License-Identifier: MIT
#include "xml/xml_url.hpp"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using openpv::parse_xml_url;
using openpv::xml_url;
using testing::HasSubstr;

namespace {

std::optional<xml_url> parse(std::string const& text) {
    std::string error;
    auto const url = parse_xml_url(text, error);
    EXPECT_EQ(error.empty(), url.has_value()) << text;
    return url;
}

std::string error_of(std::string const& text) {
    std::string error;
    EXPECT_FALSE(parse_xml_url(text, error)) << text;
    return error;
}

}  // namespace

TEST(XmlUrl, NamesMemoryOfTheCamera) {
    EXPECT_EQ(parse("Local:camera.xml;8000;1F00"), (xml_url{0x8000, 0x1F00, false}));
    EXPECT_EQ(parse("Local:camera.zip;8000;1F00"), (xml_url{0x8000, 0x1F00, true}));
}

TEST(XmlUrl, MayHaveTheFormsThatCamerasUse) {
    xml_url const expected{0x8000, 0x1F00, false};
    EXPECT_EQ(parse("local:camera.xml;0x8000;0x1f00"), expected);
    EXPECT_EQ(parse("LOCAL:///camera.XML;8000;1F00"), expected);
    EXPECT_EQ(parse("Local:camera.xml;8000;1F00?SchemaVersion=1.1.0"), expected);
    EXPECT_EQ(parse(" Local:camera.xml; 8000 ;1F00 \r\n"), expected);
    EXPECT_EQ(parse("Local:a;8000;1F00"), expected);
    EXPECT_EQ(parse("Local:;8000;1F00"), expected);
    xml_url const archive{0x8000, 0x1F00, true};
    EXPECT_EQ(parse("Local:camera.ZIP;8000;1F00"), archive);
    EXPECT_EQ(parse("Local: camera.zip ;8000;1F00"), archive);
}

TEST(XmlUrl, IsRefusedIfItNamesSomethingElse) {
    for (char const* const text : {"File:///dev/zero", "file:camera.xml", "http://10.0.0.1/camera.xml", "/etc/passwd",
                                   "Local", "xLocal:a.xml;0;4"}) {
        EXPECT_THAT(error_of(text), HasSubstr("only \"Local:\"")) << text;
    }
    EXPECT_EQ(error_of(""), "the URL is empty");
}

TEST(XmlUrl, IsRefusedIfItsNumbersAreInvalid) {
    for (char const* const text :
         {"Local:a.xml", "Local:8000", "Local:a.xml;8000", "Local:a.xml;;", "Local:a.xml;8000;-4",
          "Local:a.xml;8000;4;4", "Local:a.xml;80 00;4", "Local:a.xml;8000;0x", "Local:a.xml;10000000000000000;4"}) {
        EXPECT_THAT(error_of(text), HasSubstr("is not valid")) << text;
    }
}

TEST(XmlUrl, IsRefusedIfItsLengthIsZeroOrAbove16MiB) {
    EXPECT_TRUE(parse("Local:a.xml;0;1000000"));
    for (char const* const text : {"Local:a.xml;100000;7FFFFFFFFFFFFFFF", "Local:a.xml;0;40000000",
                                   "Local:a.xml;0;1000001", "Local:a.xml;0;0"}) {
        EXPECT_THAT(error_of(text), HasSubstr("length outside")) << text;
    }
}

TEST(XmlUrl, IsRefusedIfItEndsBeyondTheAddressSpace) {
    EXPECT_TRUE(parse("Local:a.xml;FFFFFFFC;4"));
    EXPECT_THAT(error_of("Local:a.xml;FFFFFFFC;5"), HasSubstr("beyond 32 bits"));
    EXPECT_THAT(error_of("Local:a.xml;FFFFFFFFFFFFFFFF;5"), HasSubstr("beyond 32 bits"));
}

TEST(XmlUrl, IsPrintableInItsError) {
    EXPECT_THAT(error_of("\x1b[2J"), HasSubstr("\"?[2J\""));
}
