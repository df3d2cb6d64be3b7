// SPDX-License-Identifier: MIT
#include "telemetry/metrics.hpp"

#include <prometheus/text_serializer.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "status/frame_history.hpp"

namespace mediagrabber {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using reading = std::optional<double>;  ///< of a metric; empty: absent from the output

constexpr double us_per_s = 1e6;
constexpr char instance_label[] = "instance_number";
constexpr char name_label[] = "name";

/// One value of a metric, and the label that distinguishes it from the other values of the same metric.
struct figure {
    char const* label;  ///< empty: none
    char const* label_value;
    reading (*value)(recording_status const&);
};

struct definition {
    char const* name;
    MetricType type;
    char const* help;
    std::vector<figure> figures;
};

double seconds(timeval const& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / us_per_s;
}

double cpu_time() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// \param factor  converts the value to its base unit
/// \return a value of the latest frame
template <typename member>
reading of_newest(recording_status const& status, std::optional<member> frame_record::*value, double factor = 1.0) {
    return status.newest && (*status.newest).*value ? reading(double{*((*status.newest).*value)} * factor) : reading();
}

std::optional<exposure_time> newest_time(recording_status const& status) {
    return status.newest ? status.newest->exposed : std::nullopt;
}

reading time_uncertainty(recording_status const& status) {
    auto const time = newest_time(status);
    return time ? reading(time->uncertainty_us / us_per_s) : reading();
}

reading clock_drift(recording_status const& status) {
    auto const time = newest_time(status);
    return time && time->clock_drift_ppm ? reading(*time->clock_drift_ppm) : reading();
}

template <delivery_check::quantity which>
reading requested_value(recording_status const& status) {
    return status.delivery[which].requested;
}

template <delivery_check::quantity which>
reading actual_value(recording_status const& status) {
    return status.delivery[which].actual;
}

template <delivery_check::quantity which>
reading differs(recording_status const& status) {
    auto const& value = status.delivery[which];
    return value.requested && value.actual ? reading(value.differs ? 1 : 0) : reading();
}

std::vector<definition> delivery_definitions() {
    using check = delivery_check;
    return {
        {"mediagrabber_frame_rate_requested_hertz",
         MetricType::Gauge,
         "Configured frame rate; absent if none is configured.",
         {{"", "", requested_value<check::frame_rate>}}},
        {"mediagrabber_frame_rate_actual_hertz",
         MetricType::Gauge,
         "Frame rate that the camera delivers, measured over at least 5 s; before that, as the plug-in reports it.",
         {{"", "", actual_value<check::frame_rate>}}},
        {"mediagrabber_region_requested_pixels",
         MetricType::Gauge,
         "Configured region; a value that is not configured is absent.",
         {{"value", "width", requested_value<check::width>},
          {"value", "height", requested_value<check::height>},
          {"value", "offset_x", requested_value<check::offset_x>},
          {"value", "offset_y", requested_value<check::offset_y>}}},
        {"mediagrabber_region_actual_pixels",
         MetricType::Gauge,
         "Region that the camera delivers; a value that is not known is absent.",
         {{"value", "width", actual_value<check::width>},
          {"value", "height", actual_value<check::height>},
          {"value", "offset_x", actual_value<check::offset_x>},
          {"value", "offset_y", actual_value<check::offset_y>}}},
        {"mediagrabber_requested_value_differs",
         MetricType::Gauge,
         "1 if the camera delivers another value than the configured one, else 0; a rate differs by more than 2 %.",
         {{"value", "frame_rate", differs<check::frame_rate>},
          {"value", "width", differs<check::width>},
          {"value", "height", differs<check::height>},
          {"value", "offset_x", differs<check::offset_x>},
          {"value", "offset_y", differs<check::offset_y>}}},
    };
}

std::vector<definition> frame_definitions() {
    using status = recording_status const&;
    return {
        {"mediagrabber_frames_received_total",
         MetricType::Counter,
         "Good frames that the plug-in fetched from the camera.",
         {{"", "", [](status s) { return reading(s.good_frames); }}}},
        {"mediagrabber_frames_saved_total",
         MetricType::Counter,
         "Frames that every configured output has stored; a pre-trigger buffer counts as storage.",
         {{"", "", [](status s) { return reading(s.figures.saved); }}}},
        {"mediagrabber_frames_dropped_total",
         MetricType::Counter,
         "Frames dropped by the host. queue_full: the export queue was full; write_error: an output could not store "
         "them.",
         {{"cause", "queue_full", [](status s) { return reading(s.figures.dropped_queue_full); }},
          {"cause", "write_error", [](status s) { return reading(s.figures.dropped_write_error); }}}},
        {"mediagrabber_empty_fetches_total",
         MetricType::Counter,
         "Fetches without a frame, time-outs included.",
         {{"", "", [](status s) { return reading(s.figures.empty_fetches); }}}},
        {"mediagrabber_written_bytes_total",
         MetricType::Counter,
         "Bytes written to image files and the frame index.",
         {{"", "", [](status s) { return reading(s.figures.bytes); }}}},
        {"mediagrabber_packets_resend_requested_total",
         MetricType::Counter,
         "Packets named in resend requests; a packet requested twice counts twice.",
         {{"", "", [](status s) { return reading(s.log_counts.packets_resend_requested); }}}},
        {"mediagrabber_packets_resent_total",
         MetricType::Counter,
         "Distinct packets that arrived after a resend request for them.",
         {{"", "", [](status s) { return reading(s.log_counts.packets_resent); }}}},
        {"mediagrabber_packets_lost_total",
         MetricType::Counter,
         "Packets that never arrived.",
         {{"", "", [](status s) { return reading(s.log_counts.packets_lost); }}}},
        {"mediagrabber_packets_dropped_by_socket_total",
         MetricType::Counter,
         "Packets dropped because the socket receive buffer was full.",
         {{"", "", [](status s) { return reading(s.log_counts.packets_dropped_by_socket); }}}},
        {"mediagrabber_drop_reports_total",
         MetricType::Counter,
         "Reports of dropped frames by the plug-in.",
         {{"", "", [](status s) { return reading(s.log_counts.drop_reports); }}}},
        {"mediagrabber_budgets_exceeded_total",
         MetricType::Counter,
         "Steps of the plug-in's loop that took longer than a frame period.",
         {{"", "", [](status s) { return reading(s.log_counts.budgets_exceeded); }}}},
        {"mediagrabber_ring_overtaken_frames_total",
         MetricType::Counter,
         "Frames that readers of the shared-memory ring missed, as they report.",
         {{"", "", [](status s) { return reading(s.ring_overtaken); }}}},
        {"mediagrabber_ring_readers",
         MetricType::Gauge,
         "Programs connected to the shared-memory ring.",
         {{"", "", [](status s) { return reading(s.ring_readers); }}}},
    };
}

std::vector<definition> state_definitions() {
    using status = recording_status const&;
    return {
        {"mediagrabber_capturing",
         MetricType::Gauge,
         "1 from the start of capture to the end of the plug-in's loop, else 0.",
         {{"", "", [](status s) { return reading(s.capturing ? 1 : 0); }}}},
        {"mediagrabber_uptime_seconds",
         MetricType::Gauge,
         "Time since the recording started.",
         {{"", "", [](status s) { return reading(s.uptime_s); }}}},
        {"mediagrabber_last_frame_age_seconds",
         MetricType::Gauge,
         "Time since the last good frame; before the first, since the recording started.",
         {{"", "", [](status s) { return reading(s.seconds_since_frame.value_or(s.uptime_s)); }}}},
        {"mediagrabber_frame_period_seconds",
         MetricType::Gauge,
         "Active frame period; absent while not known.",
         {{"", "", [](status s) { return s.period_us == 0 ? reading() : reading(s.period_us / us_per_s); }}}},
        {"mediagrabber_camera_temperature_celsius",
         MetricType::Gauge,
         "Camera temperature at the latest frame; absent if the camera does not report it.",
         {{"", "", [](status s) { return of_newest(s, &frame_record::temperature_c); }}}},
        {"mediagrabber_gain_decibels",
         MetricType::Gauge,
         "Gain of the latest frame.",
         {{"", "", [](status s) { return of_newest(s, &frame_record::gain_db); }}}},
        {"mediagrabber_exposure_seconds",
         MetricType::Gauge,
         "Exposure time of the latest frame.",
         {{"", "", [](status s) { return of_newest(s, &frame_record::exposure_us, 1 / us_per_s); }}}},
        {"mediagrabber_time_uncertainty_seconds",
         MetricType::Gauge,
         "How far off the exposure time of the latest frame may be, without a reference or PTP about a constant delay;"
         " absent if the camera sends no timestamps.",
         {{"", "", [](status s) { return time_uncertainty(s); }}}},
        {"mediagrabber_camera_clock_drift_ppm",
         MetricType::Gauge,
         "How much faster the camera clock runs than this machine's, parts per million; absent while not known.",
         {{"", "", [](status s) { return clock_drift(s); }}}},
        {"mediagrabber_output_free_bytes",
         MetricType::Gauge,
         "Space available to this user on the file system of the recording.",
         {{"", "", [](status s) { return s.free_bytes ? reading(*s.free_bytes) : reading(); }}}},
        {"mediagrabber_mqtt_messages_sent_total",
         MetricType::Counter,
         "Messages sent to the broker; absent, like the two below, if no broker is configured.",
         {{"", "", [](status s) { return s.broker ? reading(s.broker->sent) : reading(); }}}},
        {"mediagrabber_mqtt_messages_dropped_total",
         MetricType::Counter,
         "Messages dropped before they reached the broker.",
         {{"", "", [](status s) { return s.broker ? reading(s.broker->dropped) : reading(); }}}},
        {"mediagrabber_mqtt_connected",
         MetricType::Gauge,
         "1 while connected to the broker, else 0.",
         {{"", "", [](status s) { return s.broker ? reading(s.broker->connected ? 1 : 0) : reading(); }}}},
        {"mediagrabber_process_cpu_seconds_total",
         MetricType::Counter,
         "CPU time of this process, user and system, all threads.",
         {{"", "", [](status) { return reading(cpu_time()); }}}},
    };
}

std::vector<definition> const& definitions() {
    static auto const all = [] {
        auto found = frame_definitions();
        for (auto group : {delivery_definitions(), state_definitions()}) {
            std::move(group.begin(), group.end(), std::back_inserter(found));
        }
        return found;
    }();
    return all;
}

// These are not read from a status, so they have no entry in definitions().
constexpr char camera_info_name[] = "mediagrabber_camera_info";
constexpr char camera_info_help[] = "Always 1; the labels identify the camera as the plug-in reported it at its start.";
constexpr char interval_name[] = "mediagrabber_frame_interval_error_seconds";
constexpr char interval_help[] =
    "Absolute deviation of the interval between frames from the frame period; missing frames are taken into account.";
constexpr char handover_name[] = "mediagrabber_handover_delay_seconds";
constexpr char handover_help[] =
    "Time from a frame's timestamp until the plug-in handed the frame over; negative values count as 0.";
constexpr char announcement_name[] = "mediagrabber_announcement_error_seconds";
constexpr char announcement_help[] = "Absolute deviation of frame timestamps from the timestamps announced for them.";

/// Bucket boundaries, seconds: from the resolution of the timestamps to the longest plausible delay, three per decade.
prometheus::Histogram::BucketBoundaries bounds() {
    return {1e-6, 2e-6, 5e-6, 1e-5, 2e-5, 5e-5, 1e-4, 2e-4, 5e-4, 1e-3,
            2e-3, 5e-3, 1e-2, 2e-2, 5e-2, 1e-1, 2e-1, 5e-1, 1.0};
}

/// Replaces bytes that are not valid UTF-8, which the exposition format requires; labels come from cameras.
std::string as_utf8(std::string const& text) {
    using nlohmann::json;
    return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
}

std::string camera_property(recording_status const& status, std::string_view word) {
    auto const found = std::find_if(status.camera.begin(), status.camera.end(), [&](auto const& property) {
        return property.label.find(word) != std::string::npos;
    });
    return found == status.camera.end() ? std::string() : as_utf8(found->value);
}

using labels = std::vector<ClientMetric::Label>;

/// The labels of every metric.
labels labels_of(recording_status const& status) {
    return {{instance_label, std::to_string(status.instance)}, {name_label, as_utf8(status.name)}};
}

ClientMetric labelled(labels const& of_recording) {
    ClientMetric metric;
    metric.label = of_recording;
    return metric;
}

MetricFamily camera_info(recording_status const& status, labels const& of_recording) {
    MetricFamily family{.name = camera_info_name, .help = camera_info_help, .type = MetricType::Gauge, .metric = {}};
    if (!status.camera.empty()) {
        auto metric = labelled(of_recording);
        metric.label.push_back({"model", camera_property(status, "Model")});
        metric.label.push_back({"serial", camera_property(status, "Serial")});
        metric.gauge.value = 1;
        family.metric.push_back(std::move(metric));
    }
    return family;
}

MetricFamily histogram(char const* name, char const* help, prometheus::Histogram const& from,
                       labels const& of_recording) {
    auto metric = from.Collect();
    metric.label.insert(metric.label.end(), of_recording.begin(), of_recording.end());
    return {.name = name, .help = help, .type = MetricType::Histogram, .metric = {std::move(metric)}};
}

char const* type_name(MetricType type) {
    return type == MetricType::Counter ? "counter" : "gauge";
}

std::string reference_row(std::string const& name, std::string const& type, std::string const& labels,
                          std::string const& help) {
    return "| `" + name + "` | " + type + " | " + labels + " | " + help + " |\n";
}

std::string labels_of(definition const& metric) {
    std::string text;
    for (auto const& one : metric.figures) {
        if (*one.label != '\0') {
            text += text.empty() ? std::string("`") + one.label + "`: " : ", ";
            text += one.label_value;
        }
    }
    return text;
}

}  // namespace

metrics::metrics() : interval_error_(bounds()), handover_delay_(bounds()), announcement_error_(bounds()) {}

std::optional<double> interval_error_s(frame_record const& before, frame_record const& now, std::uint32_t period_us) {
    bool const counted = before.counter && now.counter;
    if (period_us == 0 || (counted && *now.counter <= *before.counter) || now.timestamp_us <= before.timestamp_us) {
        return std::nullopt;
    }
    auto const periods = counted ? std::uint64_t{*now.counter - *before.counter} : now.number - before.number;
    auto const interval = static_cast<double>(now.timestamp_us - before.timestamp_us);
    return std::abs(interval - static_cast<double>(periods) * period_us) / us_per_s;
}

/// Must not allocate: it runs on the exporter's thread for every frame.
void metrics::on_frame(frame_lease const& frame) noexcept {
    auto const& record = frame.record();
    auto const period_us = period_us_ == nullptr ? 0 : period_us_->load();
    if (auto const error = last_ ? interval_error_s(*last_, record, period_us) : std::nullopt) {
        interval_error_.Observe(*error);
    }
    auto const delay_us = std::max<std::int64_t>(handover_delay_us(record), 0);
    handover_delay_.Observe(static_cast<double>(delay_us) / us_per_s);
    if (auto const error_us = announcement_error_us(record)) {
        announcement_error_.Observe(std::abs(static_cast<double>(*error_us)) / us_per_s);
    }
    last_ = record;
}

std::string metrics::text(recording_status const& status) const {
    auto const of_recording = labels_of(status);
    std::vector<MetricFamily> families{camera_info(status, of_recording)};
    std::lock_guard const lock(mutex_);
    std::size_t counter = 0;
    for (auto const& metric : definitions()) {
        MetricFamily family{.name = metric.name, .help = metric.help, .type = metric.type, .metric = {}};
        for (auto const& one : metric.figures) {
            highest_.resize(std::max(highest_.size(), ++counter));
            auto const value = one.value(status);
            if (!value) {
                continue;
            }
            auto client = labelled(of_recording);
            if (*one.label != '\0') {
                client.label.push_back({one.label, one.label_value});
            }
            auto& highest = highest_[counter - 1];
            highest = std::max(highest, *value);
            (metric.type == MetricType::Counter ? client.counter.value : client.gauge.value) =
                metric.type == MetricType::Counter ? highest : *value;
            family.metric.push_back(std::move(client));
        }
        families.push_back(std::move(family));
    }
    families.push_back(histogram(interval_name, interval_help, interval_error_, of_recording));
    families.push_back(histogram(handover_name, handover_help, handover_delay_, of_recording));
    families.push_back(histogram(announcement_name, announcement_help, announcement_error_, of_recording));
    std::erase_if(families, [](auto const& family) { return family.metric.empty(); });
    return prometheus::TextSerializer().Serialize(families);
}

std::string metrics_reference() {
    std::string table =
        "| metric | type | labels besides `name` and `instance_number` | meaning |\n"
        "|---|---|---|---|\n";
    table += reference_row(camera_info_name, "gauge", "`model`, `serial`", camera_info_help);
    for (auto const& metric : definitions()) {
        table += reference_row(metric.name, type_name(metric.type), labels_of(metric), metric.help);
    }
    table += reference_row(interval_name, "histogram", "", interval_help);
    table += reference_row(handover_name, "histogram", "", handover_help);
    return table + reference_row(announcement_name, "histogram", "", announcement_help);
}

}  // namespace mediagrabber
