#include "telemetry/metrics.hpp"

#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "exposition.hpp"
#include "live/onlookers.hpp"
#include "temporary_directory.hpp"

using namespace mediagrabber;
using testing::HasSubstr;

namespace {

constexpr std::uint64_t some_time = 1'700'000'000'000'000;
exposition::labels const unlabelled{{"instance_number", "5"}};

frame_record taken_at(std::uint64_t number, std::uint64_t timestamp_us) {
    frame_record record;
    record.number = number;
    record.timestamp_us = timestamp_us;
    record.handed_over_us = timestamp_us + 3000;
    return record;
}

void show(metrics& to, frame_record const& record) {
    to.see(frame_lease(nullptr, std::nullopt, 0, record));
}

/// Everything is known, and every figure is another one.
recording_status full_status() {
    recording_status status;
    status.figures = {.wanted = 0,
                      .handed_over = 10,
                      .kept = 6,
                      .overrun = 3,
                      .not_written = 1,
                      .empty_fetches = 2,
                      .bytes = 123'456'789'012,
                      .seconds = 1.5};
    status.running_s = 77.5;
    status.good_frames = 11;
    status.capturing = true;
    status.period_us = 40'000;
    status.seconds_since_frame = 0.25;
    status.newest = taken_at(10, some_time);
    status.newest->temperature_c = 36.5F;
    status.newest->gain_db = 1.5F;
    status.newest->exposure_us = 250.0F;
    status.said = {.budgets_exceeded = 21, .drops_told = 22, .packets_asked_again = 23, .packets_missing = 24};
    status.camera = {{.label = "DeviceModel", .value = "M"}, {.label = "DeviceSerial", .value = "S"}};
    status.directory = "/";
    status.instance = 5;
    status.broker = broker_status{.connected = true, .sent = 31, .dropped = 32};
    status.ring_readers = 41;
    status.ring_overtaken = 42;
    return status;
}

exposition told(metrics const& tested, recording_status const& status = full_status()) {
    return exposition(tested.text(status));
}

std::string file_text(char const* path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// The metrics that a query asks for.
std::set<std::string> asked_for(std::string const& query) {
    static std::regex const metric("mediagrabber_[a-z_]+");
    return {std::sregex_token_iterator(query.begin(), query.end(), metric), std::sregex_token_iterator()};
}

void expect_known(std::string const& query, exposition const& known) {
    EXPECT_FALSE(asked_for(query).empty()) << query;
    for (auto const& name : asked_for(query)) {
        EXPECT_TRUE(known.knows(name)) << name << " in " << query;
    }
}

/// Every query in a dashboard, however deep it stands.
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

TEST(Metrics, AreWhatPrometheusReads) {
    metrics const tested;
    EXPECT_NO_THROW(told(tested));
    EXPECT_NO_THROW(told(tested, recording_status{}));
    auto const text = told(tested);
    for (auto const& [name, family] : text.families()) {
        EXPECT_THAT(name, testing::StartsWith("mediagrabber_"));
        EXPECT_FALSE(family.help.empty()) << name;
        for (auto const& sample : family.samples) {
            EXPECT_EQ(sample.with.at("instance_number"), "5") << name;
        }
    }
}

TEST(Metrics, TellWhatBecameOfTheFrames) {
    metrics const tested;
    auto const text = told(tested);
    auto const outcome = [&text](char const* which) {
        return text.value("mediagrabber_frames_total", {{"instance_number", "5"}, {"outcome", which}});
    };
    EXPECT_EQ(outcome("kept"), 6);
    EXPECT_EQ(outcome("overrun"), 3);
    EXPECT_EQ(outcome("not_written"), 1);
    EXPECT_EQ(text.value("mediagrabber_frames_received_total", unlabelled), 11);
    EXPECT_EQ(text.value("mediagrabber_empty_fetches_total", unlabelled), 2);
    EXPECT_EQ(text.value("mediagrabber_written_bytes_total", unlabelled), 123'456'789'012);
    EXPECT_EQ(text.value("mediagrabber_budgets_exceeded_total", unlabelled), 21);
    EXPECT_EQ(text.value("mediagrabber_drops_told_total", unlabelled), 22);
    EXPECT_EQ(text.value("mediagrabber_packets_asked_again_total", unlabelled), 23);
    EXPECT_EQ(text.value("mediagrabber_packets_missing_total", unlabelled), 24);
    EXPECT_EQ(text.value("mediagrabber_messages_sent_total", unlabelled), 31);
    EXPECT_EQ(text.value("mediagrabber_messages_dropped_total", unlabelled), 32);
    EXPECT_EQ(text.value("mediagrabber_ring_readers", unlabelled), 41);
    EXPECT_EQ(text.value("mediagrabber_ring_overtaken_frames_total", unlabelled), 42);
}

TEST(Metrics, AreInBaseUnits) {
    metrics const tested;
    auto const text = told(tested);
    EXPECT_DOUBLE_EQ(text.value("mediagrabber_frame_period_seconds", unlabelled), 0.04);
    EXPECT_DOUBLE_EQ(text.value("mediagrabber_exposure_seconds", unlabelled), 250e-6);
    EXPECT_EQ(text.value("mediagrabber_camera_temperature_celsius", unlabelled), 36.5);
    EXPECT_EQ(text.value("mediagrabber_gain_decibels", unlabelled), 1.5);
    EXPECT_EQ(text.value("mediagrabber_last_frame_age_seconds", unlabelled), 0.25);
    EXPECT_EQ(text.value("mediagrabber_running_seconds", unlabelled), 77.5);
    EXPECT_EQ(text.value("mediagrabber_capturing", unlabelled), 1);
    EXPECT_EQ(text.value("mediagrabber_broker_connected", unlabelled), 1);
    EXPECT_GT(text.value("mediagrabber_output_free_bytes", unlabelled), 0);
    EXPECT_GT(text.value("mediagrabber_processor_seconds_total", unlabelled), 0);
}

TEST(Metrics, LeaveOutWhatIsNotKnown) {
    metrics const tested;
    auto status = full_status();
    status.newest->temperature_c.reset();
    status.period_us = 0;
    status.camera.clear();
    status.broker.reset();
    status.directory = "/nowhere/at/all";
    auto const text = told(tested, status);
    for (char const* const name :
         {"mediagrabber_camera_temperature_celsius", "mediagrabber_frame_period_seconds", "mediagrabber_camera_info",
          "mediagrabber_messages_sent_total", "mediagrabber_broker_connected", "mediagrabber_output_free_bytes"}) {
        EXPECT_FALSE(text.knows(name)) << name;
    }
}

TEST(Metrics, CountTheTimeWithoutAFrameFromTheBeginningWhereNoneHasCome) {
    metrics const tested;
    recording_status status;
    status.running_s = 12.5;
    EXPECT_EQ(told(tested, status).value("mediagrabber_last_frame_age_seconds", {{"instance_number", "0"}}), 12.5);
}

TEST(Metrics, NameTheCameraWhateverItIsCalled) {
    metrics const tested;
    auto status = full_status();
    status.camera = {{.label = "DeviceModel", .value = "M \"1\"\\\n\xFF"},
                     {.label = "DeviceSerial", .value = "\xC3\xA4"}};
    auto const text = told(tested, status);
    EXPECT_EQ(text.value("mediagrabber_camera_info",
                         {{"instance_number", "5"}, {"model", "M \"1\"\\\n\xEF\xBF\xBD"}, {"serial", "\xC3\xA4"}}),
              1);
}

TEST(Metrics, NeverLetACountGoBack) {
    metrics const tested;
    auto status = full_status();
    told(tested, status);
    status.figures.kept = 5;
    status.said.packets_missing = 0;
    status.broker.reset();
    auto text = told(tested, status);
    EXPECT_EQ(text.value("mediagrabber_frames_total", {{"instance_number", "5"}, {"outcome", "kept"}}), 6);
    EXPECT_EQ(text.value("mediagrabber_packets_missing_total", unlabelled), 24);
    status.broker = broker_status{.connected = false, .sent = 30, .dropped = 33};
    text = told(tested, status);
    EXPECT_EQ(text.value("mediagrabber_messages_sent_total", unlabelled), 31);
    EXPECT_EQ(text.value("mediagrabber_messages_dropped_total", unlabelled), 33);
}

TEST(Metrics, MeasureIntervalsAgainstThePeriod) {
    EXPECT_DOUBLE_EQ(*interval_error_s(taken_at(1, some_time), taken_at(2, some_time + 40'025), 40'000), 25e-6);
    EXPECT_DOUBLE_EQ(*interval_error_s(taken_at(1, some_time), taken_at(2, some_time + 39'975), 40'000), 25e-6);
    EXPECT_DOUBLE_EQ(*interval_error_s(taken_at(1, some_time), taken_at(4, some_time + 120'000), 40'000), 0.0);
}

TEST(Metrics, AllowForFramesThatAreMissingByTheCamerasCounter) {
    auto before = taken_at(1, some_time);
    auto now = taken_at(2, some_time + 120'010);
    before.counter = 7;
    now.counter = 10;
    EXPECT_DOUBLE_EQ(*interval_error_s(before, now, 40'000), 10e-6);
}

TEST(Metrics, MeasureNoIntervalWhereThereIsNone) {
    auto const before = taken_at(1, some_time);
    EXPECT_FALSE(interval_error_s(before, taken_at(2, some_time + 40'000), 0));
    EXPECT_FALSE(interval_error_s(before, taken_at(2, some_time - 1), 40'000));
    auto counted = before;
    auto anew = taken_at(2, some_time + 40'000);
    counted.counter = 9;
    anew.counter = 1;
    EXPECT_FALSE(interval_error_s(counted, anew, 40'000));
}

TEST(Metrics, PutEveryFrameIntoTheHistograms) {
    std::atomic<std::uint32_t> const period_us{40'000};
    metrics tested;
    tested.measure_against(period_us);
    for (std::uint64_t i = 0; i < 10; ++i) {
        auto record = taken_at(i + 1, some_time + i * 40'000 + (i % 2) * 30);
        record.announced_us = i == 0 ? std::nullopt : std::optional(record.timestamp_us + 700);
        show(tested, record);
    }
    auto const text = told(tested);
    auto const below = [&text](std::string const& name, char const* bound) {
        return text.value(name + "_bucket", {{"instance_number", "5"}, {"le", bound}});
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

TEST(Metrics, KeepTheirSumsFromGoingBackWhenAClockIsSet) {
    metrics tested;
    auto record = taken_at(1, some_time);
    record.handed_over_us = some_time - 1'000'000;
    show(tested, record);
    EXPECT_EQ(told(tested).value("mediagrabber_handover_delay_seconds_sum", unlabelled), 0.0);
    EXPECT_EQ(told(tested).value("mediagrabber_handover_delay_seconds_count", unlabelled), 1.0);
}

TEST(Metrics, AreWhatTheGuideSays) {
    EXPECT_THAT(file_text(TELEMETRY_GUIDE), HasSubstr(metrics_reference()));
    metrics const tested;
    auto const text = told(tested);
    for (auto const& [name, family] : text.families()) {
        EXPECT_THAT(metrics_reference(), HasSubstr("| `" + name + "` | " + family.type + " |"));
    }
}

TEST(Dashboard, AsksForNothingThatIsNotThere) {
    metrics const tested;
    auto const known = told(tested);
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

TEST(Dashboard, LeavesTheDataSourceToItsUser) {
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

TEST(AlertRules, AskForNothingThatIsNotThere) {
    metrics const tested;
    auto const known = told(tested);
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

TEST(Metrics, AreThereForARecordingsOnlookers) {
    std::atomic<std::uint32_t> const period_us{10'000};
    configuration chosen;
    chosen.web_address = "127.0.0.1:0";
    onlookers tested(chosen);
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
        for (auto* const watcher : tested.watchers()) {
            watcher->see(frame_lease(nullptr, std::nullopt, 0, taken_at(i + 1, some_time + i * 10'000)));
        }
    }
    exposition const text(tested.metrics_text());
    EXPECT_EQ(text.value("mediagrabber_frame_interval_error_seconds_count", unlabelled), 2);
    EXPECT_EQ(text.value("mediagrabber_handover_delay_seconds_count", unlabelled), 3);
}
