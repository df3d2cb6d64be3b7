// SPDX-License-Identifier: MIT
#include "control/control_message.hpp"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

using namespace mediagrabber;
using testing::ElementsAre;

TEST(ControlMessage, TransmitsTheRequest) {
    auto const line =
        written(change_request{.settings = {{"gain.db", "6"}, {"log.sinks", "[\"syslog\"]"}}, .timeout_s = 2.5});
    EXPECT_EQ(line, "{\"set\":[\"gain.db=6\",\"log.sinks=[\\\"syslog\\\"]\"],\"timeout_s\":2.5}\n");
    auto const read = read_request(line);
    EXPECT_EQ(read.timeout_s, 2.5);
    ASSERT_EQ(read.settings.size(), 2U);
    EXPECT_EQ(read.settings[1].path, "log.sinks");
    EXPECT_EQ(read.settings[1].value, "[\"syslog\"]");
}

TEST(ControlMessage, TransmitsThatARestartIsPermitted) {
    auto const line = written(change_request{.settings = {{"a", "1"}}, .timeout_s = 1.0, .restart = true});
    EXPECT_TRUE(read_request(line).restart);
    EXPECT_FALSE(read_request("{\"set\":[\"a=1\"]}").restart);
    EXPECT_THROW(read_request("{\"set\":[\"a=1\"],\"restart\":1}"), setting_refused);
}

TEST(ControlMessage, TransmitsARequestOfSignal) {
    change_request request;
    request.signal = "reload";
    EXPECT_EQ(written(request), "{\"signal\":\"reload\"}\n");
    EXPECT_EQ(read_request(written(request)).signal, "reload");
    EXPECT_EQ(read_request("{\"set\":[\"a=1\"]}").signal, "");
    EXPECT_THROW(read_request("{\"signal\":1}"), setting_refused);
    EXPECT_THROW(read_request("{\"signal\":\"\"}"), setting_refused);
    EXPECT_THROW(read_request("{\"signal\":\"stop\",\"timeout_s\":1}"), setting_refused);
}

TEST(ControlMessage, TransmitsTheEventOfATrigger) {
    change_request request;
    request.signal = "trigger";
    request.event = "20261121T173318.123Z-door";
    auto const read = read_request(written(request));
    EXPECT_EQ(read.signal, "trigger");
    EXPECT_EQ(read.event, request.event);
    EXPECT_EQ(read_request("{\"signal\":\"trigger\"}").event, "");
    for (auto const* const text :
         {R"({"signal":"trigger","event":"door"})", R"({"signal":"trigger","event":""})",
          R"({"signal":"trigger","event":1})", R"({"signal":"stop","event":"20261121T173318Z-door"})",
          R"({"signal":"trigger","event":"20261121T173318Z-door","timeout_s":1})",
          R"({"event":"20261121T173318Z-a"})"}) {
        EXPECT_THROW(read_request(text), setting_refused) << text;
    }
}

TEST(ControlMessage, EventsAreNamesOfOneDirectory) {
    for (auto const& text : {std::string("20261121T173318Z-a"), std::string("20261121T173318.123Z-Door_2.left-hand"),
                             "20261121T173318Z-" + std::string(100, 'x')}) {
        EXPECT_TRUE(is_event(text)) << text;
    }
    for (auto const& text :
         {std::string(), std::string("door"), std::string("20261121T173318Z"), std::string("20261121T173318Z-"),
          std::string("20261121T173318Z-../door"), std::string("20261121T173318Z-a/b"),
          std::string("20261121T173318Z-.."), std::string("20261121T173318Z-a b"), std::string("20261121T173318Z-a\n"),
          std::string("2026-11-21T17:33:18Z-a"), std::string("20261321T173318Z-a"), std::string("20260021T173318Z-a"),
          std::string("20261132T173318Z-a"), std::string("20261100T173318Z-a"), std::string("20261121T243318Z-a"),
          std::string("20261121T176018Z-a"), std::string("20261121T173361Z-a"),
          "20261121T173318Z-" + std::string(101, 'x'), "20261121T173318Z-" + std::string(1'000'000, 'x')}) {
        EXPECT_FALSE(is_event(text)) << text.substr(0, 40);
    }
}

TEST(ControlMessage, TransmitsQueries) {
    change_request get;
    get.keys = {"gain.db", "line"};
    EXPECT_EQ(written(get), "{\"get\":[\"gain.db\",\"line\"]}\n");
    EXPECT_THAT(read_request(written(get)).keys, ElementsAre("gain.db", "line"));
    EXPECT_FALSE(read_request(written(get)).is_change());
    change_request status;
    status.asks_status = true;
    EXPECT_EQ(written(status), "{\"status\":true}\n");
    EXPECT_TRUE(read_request(written(status)).asks_status);
    for (auto const* const text : {"{\"get\":[]}", "{\"get\":\"gain.db\"}", "{\"get\":[1]}", "{\"status\":false}",
                                   "{\"status\":1}", "{\"status\":true,\"get\":[\"a\"]}"}) {
        EXPECT_THROW(read_request(text), setting_refused) << text;
    }
}

TEST(ControlMessage, TransmitsTheResultForPrograms) {
    auto const read = read_answer(written(change_answer{.lines = {"a"}, .result = "{\"gain.db\":6}"}));
    EXPECT_EQ(read.result, "{\n  \"gain.db\": 6\n}");
    EXPECT_EQ(read_answer(written(change_answer{.lines = {"a"}})).result, "");
}

TEST(ControlMessage, TransmitsTheResponse) {
    auto const read = read_answer(written(change_answer{.status = exit_status::value_differs, .lines = {"a", "b\nc"}}));
    EXPECT_EQ(read.status, exit_status::value_differs);
    EXPECT_THAT(read.lines, ElementsAre("a", "b\nc"));
}

TEST(ControlMessage, IsOneLineForAnyContent) {
    for (auto const* const text : {"a\nb=1", "a\xff=1", "\x01=1"}) {
        auto const line = written(change_request{.settings = {{text, text}}, .timeout_s = 1.0});
        EXPECT_EQ(line.find('\n'), line.size() - 1);
    }
}

TEST(ControlMessage, RefusesOtherFiles) {
    for (auto const* const text :
         {"", "x", "{", "[]", "5", "{}", "{\"set\":{}}", "{\"set\":[]}", "{\"set\":[1]}", "{\"set\":[\"a\"]}",
          "{\"set\":[\"a=1\"],\"timeout_s\":0}", "{\"set\":[\"a=1\"],\"timeout_s\":\"1\"}",
          "{\"set\":[\"a=1\"],\"timeout_s\":3601}"}) {
        EXPECT_THROW(read_request(text), setting_refused) << text;
    }
    for (auto const* const text :
         {"", "x", "{}", "{\"status\":\"0\",\"lines\":[]}", "{\"status\":0}", "{\"status\":0,\"lines\":[1]}", "[]"}) {
        EXPECT_THROW(read_answer(text), std::runtime_error) << text;
    }
}

RC_GTEST_PROP(ControlMessage, NeverDoesMoreThanRefuse, (std::string const& text)) {
    try {
        read_request(text);
    } catch (setting_refused const&) {
    }
}
