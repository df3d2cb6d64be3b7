// SPDX-License-Identifier: MIT
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fake_registers.hpp"
#include "genicam/node_graph.hpp"

using testing::HasSubstr;
using testing::Optional;

namespace {

std::optional<std::string> check_text(std::string const& xml) {
    fake_registers camera;
    std::string error;
    auto const graph = openpv::node_graph::load(xml, camera, error);
    EXPECT_EQ(graph == nullptr, !error.empty());
    return graph != nullptr ? std::nullopt : std::optional(error);
}

std::optional<std::string> check(std::string const& nodes) {
    return check_text(whole_xml(nodes));
}

std::string integer(std::string const& name, std::string const& parts) {
    return "<Integer Name=\"" + name + "\">" + parts + "</Integer>";
}

/// Integers that each refer to the next one through `part`.
std::string chain(int length, std::string const& part, std::string const& part_end) {
    std::string nodes = integer("N" + std::to_string(length), "<Value>1</Value>");
    for (int i = 0; i < length; ++i) {
        std::string const next = "N" + std::to_string(i + 1);
        nodes += integer("N" + std::to_string(i), part + next + part_end);
    }
    return nodes;
}

constexpr char const* circular = "refers to itself";

}  // namespace

TEST(XmlValidation, AcceptsTheXmlOfCameras) {
    EXPECT_EQ(check(integer("A", "<pValue>B</pValue><pMax>C</pMax>") + integer("B", "<Value>1</Value>") +
                    integer("C", "<pValue>B</pValue>")),
              std::nullopt);
    EXPECT_EQ(check(chain(60, "<pValue>", "</pValue>")), std::nullopt);
    EXPECT_EQ(check(integer("A", "<pValue>NoSuchNode</pValue>")), std::nullopt);
}

TEST(XmlValidation, AcceptsCircularSelectorsAndInvalidators) {
    EXPECT_EQ(check(integer("A", "<Value>1</Value><pSelected>B</pSelected>") +
                    integer("B", "<Value>1</Value><pSelected>A</pSelected>")),
              std::nullopt);
    std::string const reg =
        "<Address>0</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><pInvalidator>";
    EXPECT_EQ(check("<IntReg Name=\"A\">" + reg + "B</pInvalidator></IntReg><IntReg Name=\"B\">" + reg +
                    "A</pInvalidator></IntReg>"),
              std::nullopt);
    EXPECT_EQ(check("<Category Name=\"Root\"><pFeature>Root</pFeature></Category>"), std::nullopt);
}

TEST(XmlValidation, RejectsAFeatureThatRefersToItself) {
    EXPECT_THAT(check(integer("A", "<pValue>A</pValue>")), Optional(HasSubstr(circular)));
    EXPECT_THAT(check(integer("A", "<pMin>B</pMin><Value>1</Value>") + integer("B", "<pIsLocked>A</pIsLocked>")),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(check("<IntSwissKnife Name=\"A\"><pVariable Name=\"X\">A</pVariable><Formula>X</Formula>"
                      "</IntSwissKnife>"),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(check("<IntReg Name=\"A\"><pAddress>A</pAddress><Length>4</Length><pPort>Device</pPort></IntReg>"),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(check("<IntReg Name=\"A\"><Address>4</Address><Length>4</Length><pPort>Device</pPort>"
                      "<pIndex Offset=\"4\">A</pIndex></IntReg>"),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(check("<IntReg Name=\"A\"><Length>4</Length><pPort>Device</pPort><IntSwissKnife Name=\"K\">"
                      "<pVariable Name=\"X\">A</pVariable><Formula>X</Formula></IntSwissKnife></IntReg>"),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(check(integer("A", "<pIndex>B</pIndex><pValueIndexed Index=\"0\">A</pValueIndexed>") +
                      integer("B", "<Value>0</Value>")),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(
        check(integer("A", "<pIndex>B</pIndex><pValueDefault>A</pValueDefault>") + integer("B", "<Value>0</Value>")),
        Optional(HasSubstr(circular)));
    EXPECT_THAT(check("<Enumeration Name=\"E\"><EnumEntry Name=\"One\"><pIsAvailable>E</pIsAvailable>"
                      "<Value>1</Value></EnumEntry><Value>1</Value></Enumeration>"),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(check("<StructReg Comment=\"S\"><pAddress>One</pAddress><Length>4</Length><pPort>Device</pPort>"
                      "<StructEntry Name=\"One\"><Bit>3</Bit></StructEntry></StructReg>"),
                Optional(HasSubstr(circular)));
    EXPECT_THAT(check("<Group Comment=\"G\">" + integer("A", "<pValue>A</pValue>") + "</Group>"),
                Optional(HasSubstr(circular)));
}

TEST(XmlValidation, RejectsReferenceChainsThatWouldOverflowTheStack) {
    EXPECT_THAT(check(chain(5000, "<pValue>", "</pValue>")),
                Optional(HasSubstr("has more than 100 consecutive references")));
}

TEST(XmlValidation, RejectsAValueThatNeedsTooManyEvaluations) {
    EXPECT_THAT(check(chain(60, "<pMin>N60</pMin><pMax>N60</pMax><pValue>", "</pValue>")), std::nullopt);
    std::string nodes = integer("N60", "<Value>1</Value>");
    for (int i = 0; i < 60; ++i) {
        std::string const next = "N" + std::to_string(i + 1);
        nodes += integer("N" + std::to_string(i), "<pMin>" + next + "</pMin><pMax>" + next + "</pMax><Value>1</Value>");
    }
    EXPECT_THAT(check(nodes), Optional(HasSubstr("refers to too many other nodes")));
}

TEST(XmlValidation, RejectsGroupsThatAreNestedTooDeeply) {
    std::string nodes;
    for (int i = 0; i < 500; ++i) {
        nodes = "<Group Comment=\"G\">" + nodes + "</Group>";
        if (i == 50) {
            EXPECT_EQ(check(nodes), std::nullopt);
        }
    }
    EXPECT_THAT(check(nodes), Optional(HasSubstr("nested more than 100 levels deep")));
}

TEST(XmlValidation, RejectsTextsThatAreNotGenicamXml) {
    EXPECT_THAT(check_text(""), Optional(HasSubstr("cannot be parsed")));
    EXPECT_THAT(check_text("<RegisterDescription>"), Optional(HasSubstr("cannot be parsed")));
    EXPECT_THAT(check_text("<Other/>"), Optional(HasSubstr("has no RegisterDescription")));
}
