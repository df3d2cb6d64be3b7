#include "description_check.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "aravis_handle.hpp"

using openpv::find_endless_reference;
using testing::HasSubstr;
using testing::Optional;

namespace {

std::optional<std::string> check(std::string const& nodes) {
    std::string const text =
        "<RegisterDescription ModelName=\"M\" VendorName=\"V\" StandardNameSpace=\"None\" SchemaMajorVersion=\"1\""
        " SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\""
        " SubMinorVersion=\"0\" xmlns=\"http://www.genicam.org/GenApi/Version_1_1\">" +
        nodes + "<Port Name=\"Device\"/></RegisterDescription>";
    openpv::object_handle<ArvDevice> const device(arv_fake_device_new("TEST0", nullptr));
    openpv::object_handle<ArvGc> const description(arv_gc_new(device.get(), text.data(), text.size()));
    return find_endless_reference(*description);
}

std::string integer(std::string const& name, std::string const& parts) {
    return "<Integer Name=\"" + name + "\">" + parts + "</Integer>";
}

/// Integers, each of which takes the next one as often as `part` says.
std::string chain(int length, std::string const& part, std::string const& part_end) {
    std::string nodes = integer("N" + std::to_string(length), "<Value>1</Value>");
    for (int i = 0; i < length; ++i) {
        std::string const next = "N" + std::to_string(i + 1);
        nodes += integer("N" + std::to_string(i), part + next + part_end);
    }
    return nodes;
}

constexpr char const* endless = "takes its own value";

}  // namespace

TEST(DescriptionCheck, FindsNothingInWhatCamerasHave) {
    EXPECT_EQ(check(integer("A", "<pValue>B</pValue><pMax>C</pMax>") + integer("B", "<Value>1</Value>") +
                    integer("C", "<pValue>B</pValue>")),
              std::nullopt);
    EXPECT_EQ(check(chain(60, "<pValue>", "</pValue>")), std::nullopt);
    EXPECT_EQ(check(integer("A", "<pValue>NoSuchNode</pValue>")), std::nullopt);
}

TEST(DescriptionCheck, LetsSelectorsAndInvalidatorsLeadInCircles) {
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

TEST(DescriptionCheck, FindsAFeatureThatTakesItsOwnValue) {
    EXPECT_THAT(check(integer("A", "<pValue>A</pValue>")), Optional(HasSubstr(endless)));
    EXPECT_THAT(check(integer("A", "<pMin>B</pMin><Value>1</Value>") + integer("B", "<pIsLocked>A</pIsLocked>")),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(check("<IntSwissKnife Name=\"A\"><pVariable Name=\"X\">A</pVariable><Formula>X</Formula>"
                      "</IntSwissKnife>"),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(check("<IntReg Name=\"A\"><pAddress>A</pAddress><Length>4</Length><pPort>Device</pPort></IntReg>"),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(check("<IntReg Name=\"A\"><Address>4</Address><Length>4</Length><pPort>Device</pPort>"
                      "<pIndex Offset=\"4\">A</pIndex></IntReg>"),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(check("<IntReg Name=\"A\"><Length>4</Length><pPort>Device</pPort><IntSwissKnife Name=\"K\">"
                      "<pVariable Name=\"X\">A</pVariable><Formula>X</Formula></IntSwissKnife></IntReg>"),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(check(integer("A", "<pIndex>B</pIndex><pValueIndexed Index=\"0\">A</pValueIndexed>") +
                      integer("B", "<Value>0</Value>")),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(
        check(integer("A", "<pIndex>B</pIndex><pValueDefault>A</pValueDefault>") + integer("B", "<Value>0</Value>")),
        Optional(HasSubstr(endless)));
    EXPECT_THAT(check("<Enumeration Name=\"E\"><EnumEntry Name=\"One\"><pIsAvailable>E</pIsAvailable>"
                      "<Value>1</Value></EnumEntry><Value>1</Value></Enumeration>"),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(check("<StructReg Comment=\"S\"><pAddress>One</pAddress><Length>4</Length><pPort>Device</pPort>"
                      "<StructEntry Name=\"One\"><Bit>3</Bit></StructEntry></StructReg>"),
                Optional(HasSubstr(endless)));
    EXPECT_THAT(check("<Group Comment=\"G\">" + integer("A", "<pValue>A</pValue>") + "</Group>"),
                Optional(HasSubstr(endless)));
}

TEST(DescriptionCheck, FindsMoreReferencesInARowThanTheStackHasRoomFor) {
    EXPECT_THAT(check(chain(5000, "<pValue>", "</pValue>")), Optional(HasSubstr("takes too many others in a row")));
}

TEST(DescriptionCheck, FindsAValueThatIsMadeOfTooMany) {
    EXPECT_THAT(check(chain(60, "<pMin>N60</pMin><pMax>N60</pMax><pValue>", "</pValue>")), std::nullopt);
    std::string nodes = integer("N60", "<Value>1</Value>");
    for (int i = 0; i < 60; ++i) {
        std::string const next = "N" + std::to_string(i + 1);
        nodes += integer("N" + std::to_string(i), "<pMin>" + next + "</pMin><pMax>" + next + "</pMax><Value>1</Value>");
    }
    EXPECT_THAT(check(nodes), Optional(HasSubstr("takes too many others")));
}
