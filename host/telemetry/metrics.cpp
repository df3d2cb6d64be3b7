#include "telemetry/metrics.hpp"

#include <prometheus/text_serializer.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "live/frame_history.hpp"

namespace mediagrabber {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using reading = std::optional<double>;

constexpr double us_per_s = 1e6;
constexpr char instance_label[] = "instance_number";

/// One value of a metric, and the label that tells it from the metric's others.
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

double processor_time() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

reading free_space(std::string const& directory) {
    std::error_code error;
    auto const space = std::filesystem::space(directory, error);
    return error ? reading() : static_cast<double>(space.available);
}

/// Something of the newest frame, in its base unit.
template <typename member>
reading of_newest(recording_status const& status, std::optional<member> frame_record::*value, double factor = 1.0) {
    return status.newest && (*status.newest).*value ? reading(double{*((*status.newest).*value)} * factor) : reading();
}

std::vector<definition> frame_definitions() {
    using status = recording_status const&;
    return {
        {"mediagrabber_frames_received_total",
         MetricType::Counter,
         "Good frames that the plug-in fetched from the camera.",
         {{"", "", [](status s) { return reading(s.good_frames); }}}},
        {"mediagrabber_frames_total",
         MetricType::Counter,
         "Frames by what became of them: kept on disk; overrun, lost because as many as possible were waiting;"
         " not_written, lost because they could not be written.",
         {{"outcome", "kept", [](status s) { return reading(s.figures.kept); }},
          {"outcome", "overrun", [](status s) { return reading(s.figures.overrun); }},
          {"outcome", "not_written", [](status s) { return reading(s.figures.not_written); }}}},
        {"mediagrabber_empty_fetches_total",
         MetricType::Counter,
         "Fetches without a usable frame, time-outs included.",
         {{"", "", [](status s) { return reading(s.figures.empty_fetches); }}}},
        {"mediagrabber_written_bytes_total",
         MetricType::Counter,
         "Bytes of files and journal.",
         {{"", "", [](status s) { return reading(s.figures.bytes); }}}},
        {"mediagrabber_packets_asked_again_total",
         MetricType::Counter,
         "Packets that were missing and asked for again, as the plug-in told in its log.",
         {{"", "", [](status s) { return reading(s.said.packets_asked_again); }}}},
        {"mediagrabber_packets_missing_total",
         MetricType::Counter,
         "Packets that never came, as the plug-in told in its log.",
         {{"", "", [](status s) { return reading(s.said.packets_missing); }}}},
        {"mediagrabber_drops_told_total",
         MetricType::Counter,
         "Times that the plug-in told of dropped frames.",
         {{"", "", [](status s) { return reading(s.said.drops_told); }}}},
        {"mediagrabber_budgets_exceeded_total",
         MetricType::Counter,
         "Times that a step of the plug-in's loop took longer than a frame period.",
         {{"", "", [](status s) { return reading(s.said.budgets_exceeded); }}}},
        {"mediagrabber_ring_overtaken_frames_total",
         MetricType::Counter,
         "Frames that were gone from memory when programs had read them, as those tell.",
         {{"", "", [](status s) { return reading(s.ring_overtaken); }}}},
        {"mediagrabber_ring_readers",
         MetricType::Gauge,
         "Programs that read frames from memory now.",
         {{"", "", [](status s) { return reading(s.ring_readers); }}}},
    };
}

std::vector<definition> state_definitions() {
    using status = recording_status const&;
    return {
        {"mediagrabber_capturing",
         MetricType::Gauge,
         "1 between the beginning of capture and the end of the plug-in's loop, else 0.",
         {{"", "", [](status s) { return reading(s.capturing ? 1 : 0); }}}},
        {"mediagrabber_running_seconds",
         MetricType::Gauge,
         "Time since the beginning of the recording.",
         {{"", "", [](status s) { return reading(s.running_s); }}}},
        {"mediagrabber_last_frame_age_seconds",
         MetricType::Gauge,
         "Time since the last good frame; since the beginning of the recording where none has come.",
         {{"", "", [](status s) { return reading(s.seconds_since_frame.value_or(s.running_s)); }}}},
        {"mediagrabber_frame_period_seconds",
         MetricType::Gauge,
         "Frame period in force; absent while not known.",
         {{"", "", [](status s) { return s.period_us == 0 ? reading() : reading(s.period_us / us_per_s); }}}},
        {"mediagrabber_camera_temperature_celsius",
         MetricType::Gauge,
         "Temperature of the camera with the newest frame; absent where it can't be read.",
         {{"", "", [](status s) { return of_newest(s, &frame_record::temperature_c); }}}},
        {"mediagrabber_gain_decibels",
         MetricType::Gauge,
         "Gain of the newest frame.",
         {{"", "", [](status s) { return of_newest(s, &frame_record::gain_db); }}}},
        {"mediagrabber_exposure_seconds",
         MetricType::Gauge,
         "Exposure time of the newest frame.",
         {{"", "", [](status s) { return of_newest(s, &frame_record::exposure_us, 1 / us_per_s); }}}},
        {"mediagrabber_output_free_bytes",
         MetricType::Gauge,
         "Room for this user on the file system that the recording goes to.",
         {{"", "", [](status s) { return free_space(s.directory); }}}},
        {"mediagrabber_messages_sent_total",
         MetricType::Counter,
         "Messages that went to the broker; absent, as the two below, where none is configured.",
         {{"", "", [](status s) { return s.broker ? reading(s.broker->sent) : reading(); }}}},
        {"mediagrabber_messages_dropped_total",
         MetricType::Counter,
         "Messages that were given up before they reached the broker.",
         {{"", "", [](status s) { return s.broker ? reading(s.broker->dropped) : reading(); }}}},
        {"mediagrabber_broker_connected",
         MetricType::Gauge,
         "1 while the broker lets this program send messages, else 0.",
         {{"", "", [](status s) { return s.broker ? reading(s.broker->connected ? 1 : 0) : reading(); }}}},
        {"mediagrabber_processor_seconds_total",
         MetricType::Counter,
         "Processor time of this process, of all its threads and of the kernel for it.",
         {{"", "", [](status) { return reading(processor_time()); }}}},
    };
}

std::vector<definition> const& definitions() {
    static auto const all = [] {
        auto found = frame_definitions();
        auto states = state_definitions();
        std::move(states.begin(), states.end(), std::back_inserter(found));
        return found;
    }();
    return all;
}

// The others have no value that is read at one moment.
constexpr char camera_info_name[] = "mediagrabber_camera_info";
constexpr char camera_info_help[] = "Always 1; the labels are the camera's, as the plug-in reported it when it began.";
constexpr char interval_name[] = "mediagrabber_frame_interval_error_seconds";
constexpr char interval_help[] =
    "How far intervals between frames are from the period, either way; frames that are missing are allowed for.";
constexpr char handover_name[] = "mediagrabber_handover_delay_seconds";
constexpr char handover_help[] =
    "From a frame's timestamp to when the plug-in gave it out of its hands; less than nothing counts as nothing.";
constexpr char announcement_name[] = "mediagrabber_announcement_error_seconds";
constexpr char announcement_help[] =
    "How far frames' timestamps are from those that were announced for them, either way.";

/// Upper ends, seconds: microseconds to a second, three a decade.
prometheus::Histogram::BucketBoundaries bounds() {
    return {1e-6, 2e-6, 5e-6, 1e-5, 2e-5, 5e-5, 1e-4, 2e-4, 5e-4, 1e-3,
            2e-3, 5e-3, 1e-2, 2e-2, 5e-2, 1e-1, 2e-1, 5e-1, 1.0};
}

/// What is no UTF-8 becomes the replacement character: labels come from cameras.
std::string in_utf8(std::string const& text) {
    using nlohmann::json;
    return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
}

std::string camera_property(recording_status const& status, std::string_view word) {
    auto const found = std::find_if(status.camera.begin(), status.camera.end(), [&](auto const& property) {
        return property.label.find(word) != std::string::npos;
    });
    return found == status.camera.end() ? std::string() : in_utf8(found->value);
}

ClientMetric labelled(std::string const& instance) {
    ClientMetric metric;
    metric.label.push_back({instance_label, instance});
    return metric;
}

MetricFamily camera_info(recording_status const& status, std::string const& instance) {
    MetricFamily family{.name = camera_info_name, .help = camera_info_help, .type = MetricType::Gauge, .metric = {}};
    if (!status.camera.empty()) {
        auto metric = labelled(instance);
        metric.label.push_back({"model", camera_property(status, "Model")});
        metric.label.push_back({"serial", camera_property(status, "Serial")});
        metric.gauge.value = 1;
        family.metric.push_back(std::move(metric));
    }
    return family;
}

MetricFamily histogram(char const* name, char const* help, prometheus::Histogram const& from,
                       std::string const& instance) {
    auto metric = from.Collect();
    metric.label.push_back({instance_label, instance});
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

/// Nothing is allocated here.
void metrics::see(frame_lease const& frame) noexcept {
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
    auto const instance = std::to_string(status.instance);
    std::vector<MetricFamily> families{camera_info(status, instance)};
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
            auto client = labelled(instance);
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
    families.push_back(histogram(interval_name, interval_help, interval_error_, instance));
    families.push_back(histogram(handover_name, handover_help, handover_delay_, instance));
    families.push_back(histogram(announcement_name, announcement_help, announcement_error_, instance));
    std::erase_if(families, [](auto const& family) { return family.metric.empty(); });
    return prometheus::TextSerializer().Serialize(families);
}

std::string metrics_reference() {
    std::string table =
        "| metric | type | labels beside `instance_number` | meaning |\n"
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
