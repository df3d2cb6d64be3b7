// SPDX-License-Identifier: MIT
#include "web/api_handlers.hpp"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "config/renamed_keys.hpp"
#include "status/status_message.hpp"

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr std::uint64_t bin_us = 1'000'000;  ///< one point of the charts per second
constexpr double max_wait_s = 10.0;          ///< for a change: below the time-outs of browsers and proxies

/// The configuration keys that the page may change. Keys that name files are excluded, because clients of the page must
/// not reach files of this machine.
constexpr std::array changeable{
    "gain.auto",      "gain.db",      "exposure.auto",     "exposure.time_us", "timing.frame_rate_hz",
    "tone.enable",    "tone.gamma",   "image.width",       "image.height",     "image.offset_x",
    "image.offset_y", "image.format", "image.rotation_deg"};

/// Replaces bytes that are not valid UTF-8, which texts of a plug-in or a camera may contain.
std::string text_of(json const& message) {
    return message.dump(-1, ' ', false, json::error_handler_t::replace);
}

char const* name_of(tone_curve::kind kind) {
    switch (kind) {
        case tone_curve::kind::calculated:
            return "calculated";
        case tone_curve::kind::table:
            return "table";
        case tone_curve::kind::gamma:
            return "gamma";
        case tone_curve::kind::none:
            break;
    }
    return "none";
}

char const* name_of(log_buffer::level level) {
    switch (level) {
        case log_buffer::level::error:
            return "error";
        case log_buffer::level::warning:
            return "warning";
        case log_buffer::level::debug:
            return "debug";
        case log_buffer::level::info:
            break;
    }
    return "info";
}

json histogram_of(preview::image const* shown) {
    if (shown == nullptr) {
        return nullptr;
    }
    auto const& histogram = shown->histogram;
    return {{"frame", shown->record.number}, {"bits", shown->record.format->significant_bits},
            {"counts", histogram.counts},    {"pixels", histogram.pixels},
            {"black", histogram.black},      {"white", histogram.white},
            {"mean", histogram.mean}};
}

/// The tone curve, sampled once per bin of the histogram.
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

/// Minimum, mean and maximum of a series.
class value_range {
public:
    void add(double value) {
        min_ = count_ == 0 ? value : std::min(min_, value);
        max_ = count_ == 0 ? value : std::max(max_, value);
        sum_ += value;
        ++count_;
    }
    json as_json() const { return count_ == 0 ? json(nullptr) : json{min_, sum_ / static_cast<double>(count_), max_}; }

private:
    double min_ = 0.0;
    double max_ = 0.0;
    double sum_ = 0.0;
    std::uint64_t count_ = 0;
};

/// The frames of one second.
struct time_bin {
    std::uint64_t begin_us = 0;
    std::uint64_t last_frame = 0;
    std::uint64_t frames = 0;
    std::uint64_t missing = 0;  ///< numbers of frames that were dropped
    value_range interval;       ///< microseconds, like those below
    value_range error;
    value_range delay;

    json as_json() const {
        return {{"t_us", begin_us},
                {"last", last_frame},
                {"frames", frames},
                {"missing", missing},
                {"interval", interval.as_json()},
                {"error", error.as_json()},
                {"delay", delay.as_json()}};
    }
};

/// \param before  the previous frame, or null
void add(time_bin& to, frame_record const& one, frame_record const* before) {
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
        throw setting_refused(exit_status::usage, "invalid request: expected a JSON object");
    }
    return message;
}

void refuse_unknown(json const& message, std::initializer_list<std::string_view> known) {
    for (auto const& [name, value] : message.items()) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw setting_refused(exit_status::usage, "invalid request: unknown member \"" + name + "\"");
        }
    }
}

}  // namespace

std::string status_response(recording_status const& status, tone_curve::snapshot const& tone,
                            preview::image const* shown) {
    auto message = status_message(status);
    message["histogram"] = histogram_of(shown);
    message["tone"] = curve_of(tone);
    return text_of(message);
}

std::string history_response(std::vector<frame_record> const& records, std::uint64_t after, std::size_t max_seconds) {
    std::vector<time_bin> bins;
    frame_record const* before = nullptr;
    for (auto const& one : records) {
        if (one.number > after) {
            auto const begin = one.timestamp_us / bin_us * bin_us;
            if (bins.empty() || bins.back().begin_us != begin) {
                bins.emplace_back().begin_us = begin;
            }
            add(bins.back(), one, before);
        }
        before = &one;
    }
    auto list = json::array();
    for (std::size_t i = bins.size() - std::min(max_seconds, bins.size()); i < bins.size(); ++i) {
        list.push_back(bins[i].as_json());
    }
    return text_of({{"bin_us", bin_us}, {"bins", std::move(list)}});
}

std::string log_response(std::vector<log_buffer::line> const& lines) {
    auto list = json::array();
    for (auto const& one : lines) {
        list.push_back(
            {{"number", one.number}, {"time_us", one.time_us}, {"level", name_of(one.severity)}, {"text", one.text}});
    }
    return text_of({{"lines", std::move(list)}});
}

change_request read_page_request(std::string const& body) {
    refuse_unknown(parsed_object(body), {"set", "timeout_s", "restart"});
    auto request = read_request(body);
    for (auto const& one : request.settings) {
        if (std::find(changeable.begin(), changeable.end(), one.path) == changeable.end()) {
            std::string known;
            for (auto const* const path : changeable) {
                known += std::string(known.empty() ? "" : ", ") + path;
            }
            throw setting_refused(exit_status::usage,
                                  renaming_of_key(one.path).value_or(
                                      one.path + ": cannot be changed from the page, expected one of " + known));
        }
    }
    request.timeout_s = std::min(request.timeout_s, max_wait_s);
    return request;
}

bool read_lut_request(std::string const& body) {
    auto const message = parsed_object(body);
    refuse_unknown(message, {"12_bits"});
    if (!message.contains("12_bits") || !message["12_bits"].is_boolean()) {
        throw setting_refused(exit_status::usage, "invalid request: expected true or false in \"12_bits\"");
    }
    return message["12_bits"].get<bool>();
}

void read_empty_request(std::string const& body) {
    refuse_unknown(parsed_object(body), {});
}

}  // namespace mediagrabber
