#include "telemetry/health_message.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using namespace mediagrabber;
using nlohmann::json;

TEST(HealthMessage, TellsWhatBecameOfTheFrames) {
    recording_status status;
    status.instance = 7;
    status.good_frames = 1 + (1ULL << 60U);
    status.figures = {.wanted = 20,
                      .handed_over = 10,
                      .kept = 6,
                      .overrun = 3,
                      .not_written = 1,
                      .empty_fetches = 2,
                      .bytes = 12345,
                      .seconds = 1.5};
    status.said.packets_missing = 4;
    status.broker = broker_status{.connected = true, .sent = 8, .dropped = 9};
    auto const told = json::parse(health_message(status));
    EXPECT_EQ(told["instance"], 7);
    EXPECT_EQ(told["frames"]["from_camera"], 1 + (1ULL << 60U));
    EXPECT_EQ(told["frames"]["wanted"], 20);
    EXPECT_EQ(told["frames"]["handed_over"], 10);
    EXPECT_EQ(told["frames"]["kept"], 6);
    EXPECT_EQ(told["frames"]["overrun"], 3);
    EXPECT_EQ(told["frames"]["not_written"], 1);
    EXPECT_EQ(told["empty_fetches"], 2);
    EXPECT_EQ(told["bytes"], 12345);
    EXPECT_EQ(told["packets_missing"], 4);
    EXPECT_EQ(told["messages"], (json{{"sent", 8}, {"dropped", 9}}));
}

TEST(HealthMessage, SaysNullWhereNothingIsKnown) {
    auto const told = json::parse(health_message({}));
    EXPECT_TRUE(told["seconds_since_frame"].is_null());
    EXPECT_TRUE(told["newest"].is_null());
    EXPECT_TRUE(told["messages"].is_null());
    EXPECT_EQ(told["camera"], json::object());
}

TEST(HealthMessage, HasTheNewestFrame) {
    recording_status status;
    status.newest = frame_record{};
    status.newest->number = 3;
    status.newest->temperature_c = 36.5F;
    auto const told = json::parse(health_message(status));
    EXPECT_EQ(told["newest"]["frame"], 3);
    EXPECT_EQ(told["newest"]["temperature_c"], 36.5);
    EXPECT_TRUE(told["newest"]["gain_db"].is_null());
}

TEST(HealthMessage, IsUtf8WhateverACameraIsCalled) {
    recording_status status;
    status.camera = {{.label = "DeviceModel", .value = "M\xFF\xC3\n\"x"}, {.label = "L\xFE", .value = "\xC3\xA4"}};
    status.directory = "/data/\x80";
    auto const told = json::parse(health_message(status));
    EXPECT_EQ(told["camera"]["DeviceModel"], "M\xEF\xBF\xBD\xEF\xBF\xBD\n\"x");
    EXPECT_EQ(told["camera"]["L\xEF\xBF\xBD"], "\xC3\xA4");
    EXPECT_EQ(told["directory"], "/data/\xEF\xBF\xBD");
}
