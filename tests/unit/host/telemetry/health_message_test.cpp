// SPDX-License-Identifier: MIT
#include "telemetry/health_message.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using namespace mediagrabber;
using nlohmann::json;

TEST(HealthMessage, CountsFramesAndPackets) {
    recording_status status;
    status.name = "left";
    status.instance = 7;
    status.good_frames = 1 + (1ULL << 60U);
    status.figures = {.wanted = 20,
                      .handed_over = 10,
                      .saved = 6,
                      .dropped_queue_full = 3,
                      .dropped_write_error = 1,
                      .empty_fetches = 2,
                      .bytes = 12345,
                      .seconds = 1.5};
    status.uptime_s = 2.5;
    status.log_counts = {.budgets_exceeded = 11,
                         .drop_reports = 12,
                         .packets_resend_requested = 13,
                         .packets_resent = 14,
                         .packets_lost = 15,
                         .packets_dropped_by_socket = 16};
    status.broker = broker_status{.connected = true, .sent = 8, .dropped = 9};
    auto const sent = json::parse(health_message(status));
    EXPECT_EQ(sent["name"], "left");
    EXPECT_EQ(sent["instance"], 7);
    EXPECT_EQ(sent["frames"]["from_camera"], 1 + (1ULL << 60U));
    EXPECT_EQ(sent["frames"]["wanted"], 20);
    EXPECT_EQ(sent["frames"]["handed_over"], 10);
    EXPECT_EQ(sent["frames"]["saved"], 6);
    EXPECT_EQ(sent["frames"]["dropped_queue_full"], 3);
    EXPECT_EQ(sent["frames"]["dropped_write_error"], 1);
    EXPECT_EQ(sent["empty_fetches"], 2);
    EXPECT_EQ(sent["bytes"], 12345);
    EXPECT_EQ(sent["uptime_s"], 2.5);
    EXPECT_EQ(sent["budgets_exceeded"], 11);
    EXPECT_EQ(sent["drop_reports"], 12);
    EXPECT_EQ(sent["packets_resend_requested"], 13);
    EXPECT_EQ(sent["packets_resent"], 14);
    EXPECT_EQ(sent["packets_lost"], 15);
    EXPECT_EQ(sent["packets_dropped_by_socket"], 16);
    EXPECT_EQ(sent["messages"], (json{{"sent", 8}, {"dropped", 9}}));
}

TEST(HealthMessage, HasNullForUnknownValues) {
    auto const sent = json::parse(health_message({}));
    EXPECT_TRUE(sent["seconds_since_frame"].is_null());
    EXPECT_TRUE(sent["newest"].is_null());
    EXPECT_TRUE(sent["messages"].is_null());
    EXPECT_EQ(sent["camera"], json::object());
}

TEST(HealthMessage, HasTheNewestFrame) {
    recording_status status;
    status.newest = frame_record{};
    status.newest->number = 3;
    status.newest->temperature_c = 36.5F;
    auto const sent = json::parse(health_message(status));
    EXPECT_EQ(sent["newest"]["frame"], 3);
    EXPECT_EQ(sent["newest"]["temperature_c"], 36.5);
    EXPECT_TRUE(sent["newest"]["gain_db"].is_null());
}

TEST(HealthMessage, IsValidUtf8) {
    recording_status status;
    status.camera = {{.label = "DeviceModel", .value = "M\xFF\xC3\n\"x"}, {.label = "L\xFE", .value = "\xC3\xA4"}};
    status.directory = "/data/\x80";
    auto const sent = json::parse(health_message(status));
    EXPECT_EQ(sent["camera"]["DeviceModel"], "M\xEF\xBF\xBD\xEF\xBF\xBD\n\"x");
    EXPECT_EQ(sent["camera"]["L\xEF\xBF\xBD"], "\xC3\xA4");
    EXPECT_EQ(sent["directory"], "/data/\xEF\xBF\xBD");
}
