#include "web/page_answers.hpp"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr std::uint64_t stretch_us = 1'000'000;
constexpr double longest_wait_s = 10.0;  ///< for a change, by a page

/// What can be asked of the page. Keys that name files are not among them: who looks at a page has no business with
/// this machine's files.
constexpr std::array changeable{"gain.mode",         "gain.db",        "exposure.mode",  "exposure.time_us",
                                "timing.frame_rate", "tone.enable",    "tone.gamma",     "image.width",
                                "image.height",      "image.offset_x", "image.offset_y", "image.format",
                                "image.rotate"};

/// Texts of a plug-in or a camera may be no UTF-8.
std::string text_of(json const& message) {
    return message.dump(-1, ' ', false, json::error_handler_t::replace);
}

template <typename value>
json or_null(std::optional<value> const& told) {
    return told ? json(*told) : json(nullptr);
}

char const* name_of(tone_curve::kind kind) {
    switch (kind) {
        case tone_curve::kind::calculated:
            return "calculated";
        case tone_curve::kind::table:
            return "table";
        case tone_curve::kind::gamma:
            return "gamma";
        default:
            return "none";
    }
}

char const* name_of(control_mode mode) {
    switch (mode) {
        case control_mode::manual:
            return "manual";
        case control_mode::automatic:
            return "auto";
        default:
            return "untouched";
    }
}

char const* name_of(log_memory::level level) {
    switch (level) {
        case log_memory::level::error:
            return "error";
        case log_memory::level::warning:
            return "warning";
        case log_memory::level::debug:
            return "debug";
        default:
            return "info";
    }
}

json newest_of(std::optional<frame_record> const& newest) {
    if (!newest) {
        return nullptr;
    }
    return {{"frame", newest->number},
            {"timestamp_us", newest->timestamp_us},
            {"gain_db", or_null(newest->gain_db)},
            {"exposure_us", or_null(newest->exposure_us)},
            {"temperature_c", or_null(newest->temperature_c)},
            {"width", newest->width},
            {"height", newest->height},
            {"format", newest->format->codec},
            {"bits", newest->format->significant_bits}};
}

json counts_of(recording_status const& status) {
    auto const& figures = status.figures;
    return {{"wanted", figures.wanted},
            {"handed_over", figures.handed_over},
            {"kept", figures.kept},
            {"bytes", figures.bytes},
            {"overrun", figures.overrun},
            {"not_written", figures.not_written},
            {"empty_fetches", figures.empty_fetches},
            {"drops_told", status.said.drops_told},
            {"budgets_exceeded", status.said.budgets_exceeded},
            {"packets_asked_again", status.said.packets_asked_again},
            {"packets_missing", status.said.packets_missing},
            {"ring_readers", status.ring_readers},
            {"ring_overtaken", status.ring_overtaken}};
}

json camera_of(recording_status const& status) {
    auto properties = json::array();
    for (auto const& one : status.camera) {
        properties.push_back({one.label, one.value});
    }
    return properties;
}

/// What is configured, where the camera does not tell it with each frame.
json configured(configuration const* values) {
    if (values == nullptr) {
        return nullptr;
    }
    return {{"gain_mode", name_of(values->gain_mode)},
            {"exposure_mode", name_of(values->exposure_mode)},
            {"tone", values->tone_enabled},
            {"gamma", or_null(values->gamma)},
            {"frame_rate", or_null(values->frame_rate)},
            {"offset_x", or_null(values->offset_x)},
            {"offset_y", or_null(values->offset_y)},
            {"width", or_null(values->width)},
            {"height", or_null(values->height)},
            {"files", values->output != output_format::none}};
}

json histogram_of(live_picture::picture const* shown) {
    if (shown == nullptr) {
        return nullptr;
    }
    auto const& histogram = shown->histogram;
    return {{"frame", shown->record.number}, {"bits", shown->record.format->significant_bits},
            {"counts", histogram.counts},    {"pixels", histogram.pixels},
            {"black", histogram.black},      {"white", histogram.white},
            {"mean", histogram.mean}};
}

/// The curve at so many points as the histogram has bins.
json curve_of(tone_curve::snapshot const& tone) {
    auto points = json::array();
    auto const size = tone.values.size();
    for (std::size_t i = 0; i < value_histogram::bins && size != 0; ++i) {
        auto const at = size == 1 ? 0 : i * (size - 1) / (value_histogram::bins - 1);
        points.push_back(tone.values[at]);
    }
    return {{"kind", name_of(tone.what)},
            {"gamma", tone.what == tone_curve::kind::gamma ? json(tone.gamma) : json(nullptr)},
            {"calculations", tone.calculations},
            {"values", std::move(points)}};
}

/// The least and the greatest of values, and their mean.
class spread {
public:
    void add(double value) {
        least_ = count_ == 0 ? value : std::min(least_, value);
        greatest_ = count_ == 0 ? value : std::max(greatest_, value);
        sum_ += value;
        ++count_;
    }
    json told() const {
        return count_ == 0 ? json(nullptr) : json{least_, sum_ / static_cast<double>(count_), greatest_};
    }

private:
    double least_ = 0.0;
    double greatest_ = 0.0;
    double sum_ = 0.0;
    std::uint64_t count_ = 0;
};

struct stretch {
    std::uint64_t begin_us = 0;
    std::uint64_t last_frame = 0;
    std::uint64_t frames = 0;
    std::uint64_t missing = 0;  ///< numbers that were handed over and not seen
    spread interval;
    spread error;
    spread delay;

    json told() const {
        return {{"t_us", begin_us},     {"last", last_frame},          {"frames", frames},
                {"missing", missing},   {"interval", interval.told()}, {"error", error.told()},
                {"delay", delay.told()}};
    }
};

/// \param before  the frame before it, or null
void add(stretch& to, frame_record const& one, frame_record const* before) {
    to.last_frame = one.number;
    ++to.frames;
    to.delay.add(static_cast<double>(handover_delay_us(one)));
    if (auto const error = announcement_error_us(one)) {
        to.error.add(static_cast<double>(*error));
    }
    if (before != nullptr && one.number > before->number) {
        to.missing += one.number - before->number - 1;
        to.interval.add(static_cast<double>(one.timestamp_us) - static_cast<double>(before->timestamp_us));
    }
}

json parsed_object(std::string const& body) {
    auto message = json::parse(body, nullptr, false);
    if (!message.is_object()) {
        throw setting_refused(exit_status::usage, "the request is not understood: expected a JSON object");
    }
    return message;
}

void refuse_unknown(json const& message, std::initializer_list<std::string_view> known) {
    for (auto const& [name, value] : message.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw setting_refused(exit_status::usage, "the request is not understood: \"" + name + "\" is unknown");
        }
    }
}

}  // namespace

std::string status_answer(recording_status const& status, tone_curve::snapshot const& tone,
                          live_picture::picture const* shown) {
    return text_of({{"running_s", status.running_s},
                    {"capturing", status.capturing},
                    {"period_us", status.period_us},
                    {"seconds_since_frame", or_null(status.seconds_since_frame)},
                    {"good_frames", status.good_frames},
                    {"counts", counts_of(status)},
                    {"newest", newest_of(status.newest)},
                    {"configured", configured(status.in_force)},
                    {"camera", camera_of(status)},
                    {"plugin", status.plugin_version},
                    {"version", MEDIAGRABBER_VERSION},
                    {"directory", status.directory},
                    {"instance", status.instance},
                    {"histogram", histogram_of(shown)},
                    {"tone", curve_of(tone)}});
}

std::string history_answer(std::vector<frame_record> const& records, std::uint64_t after, std::size_t most) {
    std::vector<stretch> stretches;
    frame_record const* before = nullptr;
    for (auto const& one : records) {
        if (one.number > after) {
            auto const begin = one.timestamp_us / stretch_us * stretch_us;
            if (stretches.empty() || stretches.back().begin_us != begin) {
                stretches.emplace_back().begin_us = begin;
            }
            add(stretches.back(), one, before);
        }
        before = &one;
    }
    auto told = json::array();
    for (std::size_t i = stretches.size() - std::min(most, stretches.size()); i < stretches.size(); ++i) {
        told.push_back(stretches[i].told());
    }
    return text_of({{"stretch_us", stretch_us}, {"stretches", std::move(told)}});
}

std::string log_answer(std::vector<log_memory::line> const& lines) {
    auto told = json::array();
    for (auto const& one : lines) {
        told.push_back(
            {{"number", one.number}, {"time_us", one.time_us}, {"level", name_of(one.severity)}, {"text", one.text}});
    }
    return text_of({{"lines", std::move(told)}});
}

change_request read_page_request(std::string const& body) {
    refuse_unknown(parsed_object(body), {"set", "timeout_s", "another_run"});
    auto request = read_request(body);
    for (auto const& one : request.settings) {
        if (std::find(changeable.begin(), changeable.end(), one.path) == changeable.end()) {
            std::string known;
            for (auto const* const path : changeable) {
                known += std::string(known.empty() ? "" : ", ") + path;
            }
            throw setting_refused(exit_status::usage,
                                  one.path + ": can't be changed from the page, expected one of " + known);
        }
    }
    request.timeout_s = std::min(request.timeout_s, longest_wait_s);
    return request;
}

bool read_table_request(std::string const& body) {
    auto const message = parsed_object(body);
    refuse_unknown(message, {"12_bits"});
    if (!message.contains("12_bits") || !message["12_bits"].is_boolean()) {
        throw setting_refused(exit_status::usage,
                              "the request is not understood: expected true or false in \"12_bits\"");
    }
    return message["12_bits"].get<bool>();
}

void read_empty_request(std::string const& body) {
    refuse_unknown(parsed_object(body), {});
}

}  // namespace mediagrabber
