// SPDX-License-Identifier: MIT
#include "telemetry/health_message.hpp"

#include <nlohmann/json.hpp>

namespace mediagrabber {

namespace {

using json = nlohmann::ordered_json;

template <typename value>
json or_null(std::optional<value> const& known) {
    return known ? json(*known) : json(nullptr);
}

json latest_frame(std::optional<frame_record> const& newest) {
    if (!newest) {
        return nullptr;
    }
    return {{"frame", newest->number},
            {"timestamp_us", newest->timestamp_us},
            {"gain_db", or_null(newest->gain_db)},
            {"exposure_us", or_null(newest->exposure_us)},
            {"temperature_c", or_null(newest->temperature_c)}};
}

}  // namespace

std::string health_message(recording_status const& status) {
    auto const& figures = status.figures;
    auto const& logged = status.log_counts;
    json text;
    text["name"] = status.name;
    text["instance"] = status.instance;
    text["capturing"] = status.capturing;
    text["uptime_s"] = status.uptime_s;
    text["seconds_since_frame"] = or_null(status.seconds_since_frame);
    text["period_us"] = status.period_us;
    text["frames"] = {{"from_camera", status.good_frames},
                      {"handed_over", figures.handed_over},
                      {"saved", figures.saved},
                      {"dropped_queue_full", figures.dropped_queue_full},
                      {"dropped_write_error", figures.dropped_write_error},
                      {"wanted", figures.wanted}};
    text["bytes"] = figures.bytes;
    text["empty_fetches"] = figures.empty_fetches;
    text["budgets_exceeded"] = logged.budgets_exceeded;
    text["drop_reports"] = logged.drop_reports;
    text["packets_resend_requested"] = logged.packets_resend_requested;
    text["packets_resent"] = logged.packets_resent;
    text["packets_lost"] = logged.packets_lost;
    text["packets_dropped_by_socket"] = logged.packets_dropped_by_socket;
    text["newest"] = latest_frame(status.newest);
    text["messages"] =
        status.broker ? json{{"sent", status.broker->sent}, {"dropped", status.broker->dropped}} : json();
    text["camera"] = json::object();
    for (auto const& property : status.camera) {
        text["camera"][property.label] = property.value;
    }
    text["plugin_version"] = status.plugin_version;
    text["directory"] = status.directory;
    return text.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace mediagrabber
