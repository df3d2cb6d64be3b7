// SPDX-License-Identifier: MIT
#include "telemetry/metrics.hpp"

#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "exposition.hpp"
#include "session/monitoring.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

constexpr std::uint64_t some_time = 1'700'000'000'000'000;
exposition::labels const unlabelled{{"instance_number", "5"}, {"name", "left"}};

frame_record taken_at(std::uint64_t number, std::uint64_t timestamp_us) {
    frame_record record;
    record.number = number;
    record.timestamp_us = timestamp_us;
    record.handed_over_us = timestamp_us + 3000;
    return record;
}

void show(metrics& to, frame_record const& record) {
    to.on_frame(frame_lease(nullptr, std::nullopt, 0, record));
}

/// Every value is known and distinct.
recording_status full_status() {
    recording_status status;
    status.figures = {.wanted = 0,
                      .handed_over = 10,
                      .saved = 6,
                      .dropped_queue_full = 3,
                      .dropped_write_error = 1,
                      .empty_fetches = 2,
                      .bytes = 123'456'789'012,
                      .seconds = 1.5};
    status.uptime_s = 77.5;
    status.good_frames = 11;
    status.capturing = true;
    status.period_us = 40'000;
    status.seconds_since_frame = 0.25;
    status.newest = taken_at(10, some_time);
    status.newest->temperature_c = 36.5F;
    status.newest->gain_db = 1.5F;
    status.newest->exposure_us = 250.0F;
    status.newest->exposed =
        exposure_time{.time_us = 1, .uncertainty_us = 20.0, .source = time_source::arrivals, .clock_drift_ppm = -40.5F};
    status.log_counts = {.budgets_exceeded = 21,
                         .drop_reports = 22,
                         .packets_resend_requested = 23,
                         .packets_resent = 25,
                         .packets_lost = 24,
                         .packets_dropped_by_socket = 26};
    status.camera = {{.label = "DeviceModel", .value = "M"}, {.label = "DeviceSerial", .value = "S"}};
    status.directory = "/";
    status.name = "left";
    status.instance = 5;
    status.free_bytes = 51;
    status.broker = broker_status{.connected = true, .sent = 31, .dropped = 32};
    status.ring_readers = 41;
    status.ring_overtaken = 42;
    status.delivery = {{{.key = "image.width", .requested = 645, .actual = 640, .differs = true},
                        {.key = "image.height", .requested = 480, .actual = 481, .differs = true},
                        {.key = "image.offset_x", .requested = 51, .actual = 51},
                        {.key = "image.offset_y", .requested = 52, .actual = 53, .differs = true},
                        {.key = "timing.frame_rate_hz", .requested = 25, .actual = 24.5}}};
    return status;
}

exposition scraped(metrics const& tested, recording_status const& status = full_status()) {
    return exposition(tested.text(status));
}

std::string file_text(char const* path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// \return the metrics that a query uses
std::set<std::string> metrics_in(std::string const& query) {
    static std::regex const metric("mediagrabber_[a-z_]+");
    return {std::sregex_token_iterator(query.begin(), query.end(), metric), std::sregex_token_iterator()};
}

void expect_known(std::string const& query, exposition const& known) {
    EXPECT_FALSE(metrics_in(query).empty()) << query;
    for (auto const& name : metrics_in(query)) {
        EXPECT_TRUE(known.contains(name)) << name << " in " << query;
    }
}

/// Collects every query of a dashboard, at any depth.
void collect_queries(nlohmann::json const& node, std::vector<std::string>& queries) {
    for (auto const& [key, value] : node.items()) {
        if (key == "expr") {
            queries.push_back(value.get<std::string>());
        } else if (value.is_structured()) {
            collect_queries(value, queries);
        }
    }
}

}  // namespace

TEST(Metrics, AreValidExpositionFormat) {
    metrics const tested;
    EXPECT_NO_THROW(scraped(tested));
    EXPECT_NO_THROW(scraped(tested, recording_status{}));
    auto const text = scraped(tested);
    for (auto const& [name, family] : text.families()) {
        EXPECT_THAT(name, testing::StartsWith("mediagrabber_"));
        EXPECT_FALSE(family.help.empty()) << name;
        for (auto const& sample : family.samples) {
            EXPECT_EQ(sample.with.at("instance_number"), "5") << name;
            EXPECT_EQ(sample.with.at("name"), "left") << name;
        }
    }
}

TEST(Metrics, CountFramesAndPackets) {
    metrics const tested;
    auto const text = scraped(tested);
    auto const dropped = [&text](char const* cause) {
        return text.value("mediagrabber_frames_dropped_total",
                          {{"instance_number", "5"}, {"name", "left"}, {"cause", cause}});
    };
    EXPECT_EQ(text.value("mediagrabber_frames_saved_total", unlabelled), 6);
    EXPECT_EQ(dropped("queue_full"), 3);
    EXPECT_EQ(dropped("write_error"), 1);
    EXPECT_EQ(text.value("mediagrabber_frames_received_total", unlabelled), 11);
    EXPECT_EQ(text.value("mediagrabber_empty_fetches_total", unlabelled), 2);
    EXPECT_EQ(text.value("mediagrabber_written_bytes_total", unlabelled), 123'456'789'012);
    EXPECT_EQ(text.value("mediagrabber_budgets_exceeded_total", unlabelled), 21);
    EXPECT_EQ(text.value("mediagrabber_drop_reports_total", unlabelled), 22);
    EXPECT_EQ(text.value("mediagrabber_packets_resend_requested_total", unlabelled), 23);
    EXPECT_EQ(text.value("mediagrabber_packets_resent_total", unlabelled), 25);
    EXPECT_EQ(text.value("mediagrabber_packets_lost_total", unlabelled), 24);
    EXPECT_EQ(text.value("mediagrabber_packets_dropped_by_socket_total", unlabelled), 26);
    EXPECT_EQ(text.value("mediagrabber_mqtt_messages_sent_total", unlabelled), 31);
    EXPECT_EQ(text.value("mediagrabber_mqtt_messages_dropped_total", unlabelled), 32);
    EXPECT_EQ(text.value("mediagrabber_ring_readers", unlabelled), 41);
    EXPECT_EQ(text.value("mediagrabber_ring_overtaken_frames_total", unlabelled), 42);
}

TEST(Metrics, AreInBaseUnits) {
    metrics const tested;
    auto const text = scraped(tested);
    EXPECT_DOUBLE_EQ(text.value("mediagrabber_frame_period_seconds", unlabelled), 0.04);
    EXPECT_DOUBLE_EQ(text.value("mediagrabber_exposure_seconds", unlabelled), 250e-6);
    EXPECT_DOUBLE_EQ(text.value("mediagrabber_time_uncertainty_seconds", unlabelled), 20e-6);
    EXPECT_EQ(text.value("mediagrabber_camera_clock_drift_ppm", unlabelled), -40.5);
    EXPECT_EQ(text.value("mediagrabber_camera_temperature_celsius", unlabelled), 36.5);
    EXPECT_EQ(text.value("mediagrabber_gain_decibels", unlabelled), 1.5);
    EXPECT_EQ(text.value("mediagrabber_last_frame_age_seconds", unlabelled), 0.25);
    EXPECT_EQ(text.value("mediagrabber_uptime_seconds", unlabelled), 77.5);
    EXPECT_EQ(text.value("mediagrabber_capturing", unlabelled), 1);
    EXPECT_EQ(text.value("mediagrabber_mqtt_connected", unlabelled), 1);
    EXPECT_EQ(text.value("mediagrabber_output_free_bytes", unlabelled), 51);
    EXPECT_GT(text.value("mediagrabber_process_cpu_seconds_total", unlabelled), 0);
}

TEST(Metrics, CompareRequestedAndActualValues) {
    metrics const tested;
    auto const text = scraped(tested);
    auto const of = [&text](char const* name, char const* value) {
        return text.value(name, {{"instance_number", "5"}, {"name", "left"}, {"value", value}});
    };
    EXPECT_EQ(text.value("mediagrabber_frame_rate_requested_hertz", unlabelled), 25);
    EXPECT_EQ(text.value("mediagrabber_frame_rate_actual_hertz", unlabelled), 24.5);
    struct {
        char const* value;
        double requested;
        double actual;
    } const region[] = {{"width", 645, 640}, {"height", 480, 481}, {"offset_x", 51, 51}, {"offset_y", 52, 53}};
    for (auto const& one : region) {
        EXPECT_EQ(of("mediagrabber_region_requested_pixels", one.value), one.requested) << one.value;
        EXPECT_EQ(of("mediagrabber_region_actual_pixels", one.value), one.actual) << one.value;
        EXPECT_EQ(of("mediagrabber_requested_value_differs", one.value), one.requested == one.actual ? 0 : 1)
            << one.value;
    }
    EXPECT_EQ(of("mediagrabber_requested_value_differs", "frame_rate"), 0);
}

TEST(Metrics, OmitUnknownValues) {
    metrics const tested;
    auto status = full_status();
    status.newest->temperature_c.reset();
    status.period_us = 0;
    status.camera.clear();
    status.broker.reset();
    status.delivery = {};
    status.free_bytes.reset();
    auto const text = scraped(tested, status);
    for (char const* const name :
         {"mediagrabber_camera_temperature_celsius", "mediagrabber_frame_period_seconds", "mediagrabber_camera_info",
          "mediagrabber_mqtt_messages_sent_total", "mediagrabber_mqtt_connected", "mediagrabber_output_free_bytes",
          "mediagrabber_frame_rate_requested_hertz", "mediagrabber_frame_rate_actual_hertz",
          "mediagrabber_region_requested_pixels", "mediagrabber_region_actual_pixels",
          "mediagrabber_requested_value_differs"}) {
        EXPECT_FALSE(text.contains(name)) << name;
    }
}

TEST(Metrics, ReportTheUptimeAsFrameAgeBeforeTheFirstFrame) {
    metrics const tested;
    recording_status status;
    status.uptime_s = 12.5;
    EXPECT_EQ(
        scraped(tested, status).value("mediagrabber_last_frame_age_seconds", {{"instance_number", "0"}, {"name", ""}}),
        12.5);
}

TEST(Metrics, EscapeTheLabelsOfTheCamera) {
    metrics const tested;
    auto status = full_status();
    status.camera = {{.label = "DeviceModel", .value = "M \"1\"\\\n\xFF"},
                     {.label = "DeviceSerial", .value = "\xC3\xA4"}};
    auto const text = scraped(tested, status);
    EXPECT_EQ(
        text.value(
            "mediagrabber_camera_info",
            {{"instance_number", "5"}, {"name", "left"}, {"model", "M \"1\"\\\n\xEF\xBF\xBD"}, {"serial", "\xC3\xA4"}}),
        1);
}

TEST(Metrics, NeverDecreaseACounter) {
    metrics const tested;
    auto status = full_status();
    scraped(tested, status);
    status.figures.saved = 5;
    status.log_counts.packets_lost = 0;
    status.broker.reset();
    auto text = scraped(tested, status);
    EXPECT_EQ(text.value("mediagrabber_frames_saved_total", unlabelled), 6);
    EXPECT_EQ(text.value("mediagrabber_packets_lost_total", unlabelled), 24);
    status.broker = broker_status{.connected = false, .sent = 30, .dropped = 33};
    text = scraped(tested, status);
    EXPECT_EQ(text.value("mediagrabber_mqtt_messages_sent_total", unlabelled), 31);
    EXPECT_EQ(text.value("mediagrabber_mqtt_messages_dropped_total", unlabelled), 33);
}

TEST(Metrics, MeasureIntervalsAgainstThePeriod) {
    EXPECT_DOUBLE_EQ(*interval_error_s(taken_at(1, some_time), taken_at(2, some_time + 40'025), 40'000), 25e-6);
    EXPECT_DOUBLE_EQ(*interval_error_s(taken_at(1, some_time), taken_at(2, some_time + 39'975), 40'000), 25e-6);
    EXPECT_DOUBLE_EQ(*interval_error_s(taken_at(1, some_time), taken_at(4, some_time + 120'000), 40'000), 0.0);
}

TEST(Metrics, AccountForMissingFramesByTheCameraCounter) {
    auto before = taken_at(1, some_time);
    auto now = taken_at(2, some_time + 120'010);
    before.counter = 7;
    now.counter = 10;
    EXPECT_DOUBLE_EQ(*interval_error_s(before, now, 40'000), 10e-6);
}

TEST(Metrics, MeasureNoIntervalAcrossARestart) {
    auto const before = taken_at(1, some_time);
    EXPECT_FALSE(interval_error_s(before, taken_at(2, some_time + 40'000), 0));
    EXPECT_FALSE(interval_error_s(before, taken_at(2, some_time - 1), 40'000));
    auto counted = before;
    auto restarted = taken_at(2, some_time + 40'000);
    counted.counter = 9;
    restarted.counter = 1;
    EXPECT_FALSE(interval_error_s(counted, restarted, 40'000));
}

TEST(Metrics, AddEveryFrameToTheHistograms) {
    std::atomic<std::uint32_t> const period_us{40'000};
    metrics tested;
    tested.measure_against(period_us);
    for (std::uint64_t i = 0; i < 10; ++i) {
        auto record = taken_at(i + 1, some_time + i * 40'000 + (i % 2) * 30);
        record.announced_us = i == 0 ? std::nullopt : std::optional(record.timestamp_us + 700);
        show(tested, record);
    }
    auto const text = scraped(tested);
    auto const below = [&text](std::string const& name, char const* bound) {
        return text.value(name + "_bucket", {{"instance_number", "5"}, {"name", "left"}, {"le", bound}});
    };
    EXPECT_EQ(text.value("mediagrabber_frame_interval_error_seconds_count", unlabelled), 9);
    EXPECT_NEAR(text.value("mediagrabber_frame_interval_error_seconds_sum", unlabelled), 9 * 30e-6, 1e-9);
    EXPECT_EQ(below("mediagrabber_frame_interval_error_seconds", "2e-05"), 0);
    EXPECT_EQ(below("mediagrabber_frame_interval_error_seconds", "5e-05"), 9);
    EXPECT_EQ(text.value("mediagrabber_handover_delay_seconds_count", unlabelled), 10);
    EXPECT_NEAR(text.value("mediagrabber_handover_delay_seconds_sum", unlabelled), 10 * 3e-3, 1e-9);
    EXPECT_EQ(text.value("mediagrabber_announcement_error_seconds_count", unlabelled), 9);
    EXPECT_NEAR(text.value("mediagrabber_announcement_error_seconds_sum", unlabelled), 9 * 700e-6, 1e-9);
}

TEST(Metrics, NeverDecreaseASumWhenTheClockIsSet) {
    metrics tested;
    auto record = taken_at(1, some_time);
    record.handed_over_us = some_time - 1'000'000;
    show(tested, record);
    EXPECT_EQ(scraped(tested).value("mediagrabber_handover_delay_seconds_sum", unlabelled), 0.0);
    EXPECT_EQ(scraped(tested).value("mediagrabber_handover_delay_seconds_count", unlabelled), 1.0);
}

TEST(Metrics, MatchTheReferenceInTheGuide) {
    EXPECT_THAT(file_text(TELEMETRY_GUIDE), HasSubstr(metrics_reference()));
    metrics const tested;
    auto const text = scraped(tested);
    for (auto const& [name, family] : text.families()) {
        EXPECT_THAT(metrics_reference(), HasSubstr("| `" + name + "` | " + family.type + " |"));
    }
}

TEST(Dashboard, QueriesOnlyExistingMetrics) {
    metrics const tested;
    auto const known = scraped(tested);
    auto const dashboard = nlohmann::json::parse(file_text(GRAFANA_DASHBOARD));
    std::vector<std::string> queries;
    collect_queries(dashboard["panels"], queries);
    EXPECT_GE(queries.size(), 8U);
    for (auto const& query : queries) {
        expect_known(query, known);
    }
    for (auto const& variable : dashboard["templating"]["list"]) {
        if (variable["type"] == "query") {
            expect_known(variable["query"]["query"], known);
        }
    }
}

TEST(Dashboard, LeavesTheDataSourceToTheUser) {
    auto const dashboard = nlohmann::json::parse(file_text(GRAFANA_DASHBOARD));
    EXPECT_GE(dashboard["schemaVersion"], 36);  // Grafana 9
    EXPECT_EQ(dashboard["templating"]["list"][0]["type"], "datasource");
    std::set<int> ids;
    for (auto const& panel : dashboard["panels"]) {
        EXPECT_EQ(panel["datasource"]["uid"], "${datasource}") << panel["title"];
        EXPECT_TRUE(ids.insert(panel["id"].get<int>()).second) << panel["title"];
        for (auto const& target : panel["targets"]) {
            EXPECT_EQ(target["datasource"]["uid"], "${datasource}") << panel["title"];
        }
    }
}

TEST(AlertRules, QueryOnlyExistingMetrics) {
    metrics const tested;
    auto const known = scraped(tested);
    std::istringstream lines(file_text(ALERT_RULES));
    std::size_t alerts = 0;
    std::size_t queries = 0;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(line.find('\t'), line.npos) << line;
        alerts += line.find("- alert: ") != line.npos ? 1U : 0U;
        if (auto const at = line.find("expr: "); at != line.npos) {
            ++queries;
            if (line.find("up{") == line.npos) {
                expect_known(line.substr(at), known);
            }
        }
    }
    EXPECT_GE(alerts, 4U);
    EXPECT_EQ(queries, alerts);
}

TEST(Metrics, ObserveFramesAsPartOfMonitoring) {
    std::atomic<std::uint32_t> const period_us{10'000};
    configuration chosen;
    chosen.web.address = "127.0.0.1:0";
    monitoring tested(chosen);
    auto status = full_status();
    tested.open({.status =
                     [&tested, &status] {
                         tested.complete(status);
                         return status;
                     },
                 .controls = {},
                 .tone = nullptr,
                 .period_us = &period_us});
    for (std::uint64_t i = 0; i < 3; ++i) {
        for (auto* const observer : tested.observers()) {
            observer->on_frame(frame_lease(nullptr, std::nullopt, 0, taken_at(i + 1, some_time + i * 10'000)));
        }
    }
    exposition const text(tested.metrics_text());
    EXPECT_EQ(text.value("mediagrabber_frame_interval_error_seconds_count", unlabelled), 2);
    EXPECT_EQ(text.value("mediagrabber_handover_delay_seconds_count", unlabelled), 3);
}
