// SPDX-License-Identifier: MIT
#include "xml/xml_loader.hpp"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../scripted_wire.hpp"
#include "zip_archive.hpp"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t first_url = 0x200;
constexpr std::uint32_t second_url = 0x400;
constexpr std::uint32_t content = 0x8000;

class XmlLoader : public testing::Test {
protected:
    XmlLoader() {
        wire.on_command = [this](received_command const& command) { camera.serve(wire, command); };
    }

    std::optional<std::string> load() {
        return openpv::load_xml(
            channel, [this](std::string const& text) { reports.push_back(text); }, error);
    }

    std::unique_ptr<scripted_wire> owned = std::make_unique<scripted_wire>();
    scripted_wire& wire = *owned;
    openpv::gvcp_channel channel{std::move(owned), 0};
    memory_camera camera;
    std::vector<std::string> reports;
    std::string error;
};

}  // namespace

TEST_F(XmlLoader, ReadsTheXmlAtTheFirstUrl) {
    camera.put(first_url, "Local:a.xml;8000;6");
    camera.put(second_url, "Local:b.xml;9000;6");
    camera.put(content, "<xml/>");
    EXPECT_EQ(load(), "<xml/>");
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(XmlLoader, ReadsALongXmlOfAnyLength) {
    std::string const xml(10001, 'x');
    camera.put(first_url, "Local:a.xml;8000;2711");
    camera.put(content, xml);
    EXPECT_EQ(load(), xml);
}

TEST_F(XmlLoader, DropsZerosAtTheEnd) {
    camera.put(first_url, "Local:a.xml;8000;10");
    camera.put(content, "<xml/>");
    EXPECT_EQ(load(), "<xml/>");
}

TEST_F(XmlLoader, UnpacksAnArchive) {
    auto const archive = zip_archive({{"camera.xml", "<xml/>"}});
    std::array<char, 64> url{};
    std::snprintf(url.data(), url.size(), "Local:a.zip;8000;%zX", archive.size());
    camera.put(first_url, url.data());
    camera.put(content, archive);
    EXPECT_EQ(load(), "<xml/>");
}

TEST_F(XmlLoader, UnpacksAnArchiveThatIsNamedXml) {
    auto const archive = zip_archive({{"camera.xml", "<xml/>"}});
    std::array<char, 64> url{};
    std::snprintf(url.data(), url.size(), "Local:a.xml;8000;%zX", archive.size());
    camera.put(first_url, url.data());
    camera.put(content, archive);
    EXPECT_EQ(load(), "<xml/>");
}

TEST_F(XmlLoader, TriesTheSecondUrlWhenTheFirstFails) {
    camera.put(first_url, "File:///dev/zero");
    camera.put(second_url, "Local:a.xml;8000;6");
    camera.put(content, "<xml/>");
    EXPECT_EQ(load(), "<xml/>");
    EXPECT_THAT(reports, ElementsAre(HasSubstr("File:///dev/zero")));
}

TEST_F(XmlLoader, ReportsBothReasons) {
    camera.put(first_url, "Local:a.xml;8000;7FFFFFFFFFFFFFFF");
    EXPECT_FALSE(load());
    EXPECT_THAT(error, HasSubstr("first URL: the URL \"Local:a.xml;8000;7FFFFFFFFFFFFFFF\" specifies a length"));
    EXPECT_THAT(error, HasSubstr("second URL: the URL is empty"));
    EXPECT_EQ(wire.elapsed(), 0ms);
}

TEST_F(XmlLoader, MakesTheXmlPrintable) {
    camera.put(first_url, "Local:a.xml;8000;D");
    camera.put(content, "<a b=\"\x1b\x1b\"/>");
    EXPECT_EQ(load(), "<a b=\"??\"/>");
}

TEST_F(XmlLoader, ReportsProgressOfASlowCamera) {
    camera.put(first_url, "Local:a.xml;8000;20000");
    camera.put(content, std::string(0x20000, 'x'));
    camera.round_trip = 20ms;
    EXPECT_TRUE(load());
    EXPECT_GE(wire.elapsed(), 4800ms);
    EXPECT_EQ(reports.size(), 2U);
    EXPECT_THAT(reports.at(0), HasSubstr("of 131072 bytes after 2 s"));
}

TEST_F(XmlLoader, EndsAfterTenSeconds) {
    camera.put(first_url, "Local:a.xml;8000;1000000");
    camera.round_trip = 20ms;
    EXPECT_FALSE(load());
    EXPECT_THAT(error, HasSubstr("longer than 10 s"));
    EXPECT_LE(wire.elapsed(), 10100ms);
}

TEST_F(XmlLoader, SendsNothingWhenTimeIsUp) {
    camera.put(first_url, "Local:a.xml;8000;1000000");
    wire.on_command = [this](received_command const& command) {
        wire.advance(190ms);  // blocks in sending, so that time passes although every command is acknowledged at once
        camera.serve(wire, command);
    };
    EXPECT_FALSE(load());
    EXPECT_THAT(error, HasSubstr("second URL: reading took longer than 10 s, 0 of 512 bytes arrived"));
    EXPECT_LE(wire.elapsed(), 10s + 190ms);
    EXPECT_EQ(wire.commands.size(), 53U);
}

TEST_F(XmlLoader, EndsWhenTheCameraStopsResponding) {
    camera.put(first_url, "Local:a.xml;8000;100000");
    wire.on_command = [this](received_command const& command) {
        if (wire.commands.size() < 20) {
            camera.serve(wire, command);
        }
    };
    EXPECT_FALSE(load());
    EXPECT_THAT(error, HasSubstr("did not respond in time"));
    EXPECT_LE(wire.elapsed(), 10100ms);
}
