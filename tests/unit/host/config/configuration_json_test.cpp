// SPDX-License-Identifier: MIT
#include "config/configuration_json.hpp"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "config/configuration_schema.hpp"

using namespace mediagrabber;
using nlohmann::json;

TEST(ConfigurationJson, HasTheTypesOfTheValues) {
    EXPECT_EQ(json_of_value(""), nullptr);
    EXPECT_EQ(json_of_value("6"), 6);
    EXPECT_EQ(json_of_value("0.5"), 0.5);
    EXPECT_EQ(json_of_value("true"), true);
    EXPECT_EQ(json_of_value("\"a\\u0001\\\"b\""), "a\x01\"b");
    EXPECT_EQ(json_of_value("[1, 2.5]").dump(), "[1,2.5]");
    EXPECT_EQ(json_of_line({.pin = 6, .source = line_source::low, .inverted = true}).dump(),
              R"({"pin":"Out2","source":"Low","inverted":true})");
}

TEST(ConfigurationJson, HasASchemaOfEveryKey) {
    auto const schema = json::parse(configuration_json_schema());
    std::size_t keys = 0;
    for (auto const& [name, table] : schema["properties"].items()) {
        keys += name == "line" ? 0 : table["properties"].size();
    }
    EXPECT_EQ(keys, configuration_schema().size());
    auto const& frames = schema["properties"]["run"]["properties"]["frames"];
    EXPECT_EQ(frames["type"], "integer");
    EXPECT_EQ(frames["minimum"], 0);
    EXPECT_EQ(frames["default"], 0);
    EXPECT_FALSE(schema["properties"]["gain"]["properties"]["db"].contains("default"));
}
