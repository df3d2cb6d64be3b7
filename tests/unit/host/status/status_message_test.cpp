// SPDX-License-Identifier: MIT
#include "status/status_message.hpp"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

using namespace mediagrabber;
using nlohmann::json;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

recording_status some_status() {
    recording_status status;
    status.name = "left";
    status.state = {.what = recording_state::kind::waiting, .reason = "no camera was found"};
    status.figures = {.wanted = 100,
                      .saved = 60,
                      .dropped_queue_full = 2,
                      .dropped_write_error = 1,
                      .empty_fetches = 3,
                      .bytes = 10'000'000,
                      .seconds = 2.0};
    status.uptime_s = 3725.9;
    status.log_counts = {
        .packets_resend_requested = 13, .packets_resent = 12, .packets_lost = 11, .packets_dropped_by_socket = 14};
    status.camera = {{.label = "DeviceModel", .value = "M"}, {.label = "DeviceSerial", .value = "S"}};
    status.plugin_version = "1.0";
    status.directory = "/data/left";
    status.page = "http://127.0.0.1:8080/";
    status.free_bytes = 12'300'000'000;
    status.delivery[delivery_check::frame_rate] = {
        .key = "timing.frame_rate_hz", .requested = 25.0, .actual = 24.5, .differs = false};
    return status;
}

}  // namespace

TEST(StatusMessage, HasTheStateAndTheFigures) {
    auto const message = status_message(some_status());
    EXPECT_EQ(message["name"], "left");
    EXPECT_EQ(message["state"], "waiting");
    EXPECT_EQ(message["waiting_reason"], "no camera was found");
    EXPECT_EQ(message["counts"]["saved"], 60);
    EXPECT_EQ(message["counts"]["dropped_queue_full"], 2);
    EXPECT_EQ(message["rates"], (json{{"frames_per_s", 24.5}, {"bytes_per_s", 5e6}}));
    EXPECT_EQ(message["free_bytes"], 12'300'000'000);
    EXPECT_EQ(message["plugin"], "1.0");
    EXPECT_EQ(message["page"], "http://127.0.0.1:8080/");
}

TEST(StatusMessage, HasNullForUnknownValues) {
    auto const message = status_message({});
    for (auto const* const name :
         {"waiting_reason", "seconds_since_frame", "newest", "configured", "free_bytes", "page"}) {
        EXPECT_TRUE(message[name].is_null()) << name;
    }
    EXPECT_EQ(message["rates"], (json{{"frames_per_s", nullptr}, {"bytes_per_s", nullptr}}));
}

TEST(StatusMessage, HasTheTimeOfTheNewestFrame) {
    auto status = some_status();
    static frame_format const format = *frame_format_named("Mono8");
    status.newest = frame_record{};
    status.newest->format = &format;
    EXPECT_TRUE(status_message(status)["newest"]["time"].is_null());
    status.newest->exposed = exposure_time{
        .time_us = 1790, .uncertainty_us = 13.0, .source = time_source::reference, .clock_drift_ppm = -40.25F};
    EXPECT_EQ(
        status_message(status)["newest"]["time"],
        (json{{"time_us", 1790}, {"uncertainty_us", 13.0}, {"source", "reference"}, {"clock_drift_ppm", -40.25}}));
    EXPECT_EQ(status_lines(status)[6], "clock     exposures known to 13 us (reference), camera clock -40.25 ppm");
    status.newest->exposed->clock_drift_ppm.reset();
    EXPECT_EQ(status_lines(status)[6], "clock     exposures known to 13 us (reference), camera clock - ppm");
    status.newest->exposed->source = time_source::arrivals;
    EXPECT_EQ(status_lines(status)[6],
              "clock     exposures known to 13 us about a constant delay (arrivals), camera clock - ppm");
}

TEST(StatusMessage, IsALineForEachSubject) {
    EXPECT_THAT(
        status_lines(some_status()),
        ElementsAre("name      left", "state     waiting: no camera was found", "camera    M, serial number S",
                    "frames    60/100 saved, dropped: 2 (queue full), 1 (write errors); 3 fetches without a frame",
                    "rates     24.50 frames/s (25 requested), 5.0 MB/s written",
                    "packets   11 lost, 12 resent, 13 resend requested, 14 dropped: socket receive buffer full",
                    "clock     -", "output    /data/left, 12.3 GB free", "uptime    1 h 2 min 5 s",
                    StartsWith("versions  mediagrabber ")));
}

TEST(StatusMessage, IsALineForEachUnknownSubject) {
    auto const lines = status_lines({});
    EXPECT_EQ(lines[1], "state     starting");
    EXPECT_EQ(lines[2], "camera    not reported yet");
    EXPECT_EQ(lines[4], "rates     - frames/s, - MB/s written");
}
