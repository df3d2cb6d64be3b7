#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <PvImage.h>
#include <PvResult.h>
#include <PvString.h>

TEST(PvString, OfANullPointerIsEmpty) {
    PvString const text(nullptr);
    EXPECT_STREQ(text.GetAscii(), "");
    EXPECT_EQ(text.GetLength(), 0U);
    EXPECT_EQ(text, PvString());
}

TEST(PvString, KeepsItsOwnCopyOfTheText) {
    std::string source = "Width";
    PvString const text(source.c_str());
    source = "Height";
    EXPECT_STREQ(text.GetAscii(), "Width");
    EXPECT_EQ(text.GetLength(), 5U);
}

TEST(PvString, AssignmentCopiesAndLeavesTheSourceAlone) {
    PvString const source("Mono8");
    PvString text("Mono12Packed");
    text = source;
    EXPECT_STREQ(text.GetAscii(), "Mono8");
    EXPECT_NE(text.GetAscii(), source.GetAscii()) << "the two share memory";
    text = PvString();
    EXPECT_STREQ(text.GetAscii(), "");
    EXPECT_STREQ(source.GetAscii(), "Mono8");
}

TEST(PvString, SurvivesAssignmentToItself) {
    PvString text("Mono8");
    PvString& same = text;
    text = same;
    EXPECT_STREQ(text.GetAscii(), "Mono8");
}

TEST(PvString, ComparesByText) {
    EXPECT_TRUE(PvString("Off") == "Off");
    EXPECT_FALSE(PvString("Off") != "Off");
    EXPECT_TRUE(PvString("Off") != "On");
    EXPECT_TRUE(PvString("Off") != "");
    EXPECT_TRUE(PvString("Off") != "Offset");
}

TEST(PvResult, IsOkWithoutADescriptionByDefault) {
    PvResult const result;
    EXPECT_TRUE(result.IsOK());
    EXPECT_EQ(result.GetCode(), PvResult::Code::OK);
    EXPECT_STREQ(result.GetCodeString().GetAscii(), "OK");
    EXPECT_STREQ(result.GetDescription().GetAscii(), "");
}

TEST(PvResult, NamesEachOfItsCodes) {
    using code = PvResult::Code;
    std::pair<uint32_t, char const*> const names[] = {
        {code::OK, "OK"},
        {code::NOT_FOUND, "NOT_FOUND"},
        {code::NOT_CONNECTED, "NOT_CONNECTED"},
        {code::TIMEOUT, "TIMEOUT"},
        {code::ABORTED, "ABORTED"},
        {code::INVALID_PARAMETER, "INVALID_PARAMETER"},
        {code::NOT_SUPPORTED, "NOT_SUPPORTED"},
        {code::GENERIC_ERROR, "GENERIC_ERROR"},
        {code::MISSING_PACKETS, "MISSING_PACKETS"},
        {code::BUFFER_TOO_SMALL, "BUFFER_TOO_SMALL"},
    };
    for (auto const& [value, name] : names) {
        EXPECT_STREQ(PvResult(value).GetCodeString().GetAscii(), name);
    }
}

TEST(PvResult, WithACodeOnlyStillDescribesWhatItMeans) {
    PvResult const result(PvResult::Code::BUFFER_TOO_SMALL);
    EXPECT_FALSE(result.IsOK());
    EXPECT_STREQ(result.GetDescription().GetAscii(), "The block is larger than the attached memory.");
}

TEST(PvResult, OfACodeThatHasNoNameIsNotOk) {
    PvResult const result(4711);
    EXPECT_FALSE(result.IsOK());
    EXPECT_EQ(result.GetCode(), 4711U);
    EXPECT_STREQ(result.GetCodeString().GetAscii(), "UNKNOWN");
}

TEST(PvResult, CopiesKeepCodeAndDescription) {
    PvResult const refused(PvResult::Code::INVALID_PARAMETER, "Width cannot be set to 7.");
    PvResult copy;
    copy = refused;
    EXPECT_EQ(copy.GetCode(), PvResult::Code::INVALID_PARAMETER);
    EXPECT_STREQ(PvResult(copy).GetDescription().GetAscii(), "Width cannot be set to 7.");
}

TEST(PvImage, KnowsTheBitsOfAPixelInEveryFormat) {
    EXPECT_EQ(PvImage::GetPixelSize(PvPixelMono8), 8U);
    EXPECT_EQ(PvImage::GetPixelSize(PvPixelMono12Packed), 12U);
    EXPECT_EQ(PvImage::GetPixelSize(PvPixelMono12), 16U);
    EXPECT_EQ(PvImage::GetPixelSize(PvPixelBayerRG8), 8U);
}

TEST(PvImage, HasNoPixelSizeForAFormatThatIsNotAmongThem) {
    EXPECT_EQ(PvImage::GetPixelSize(static_cast<PvPixelType>(0x02180014)), 0U);
}
