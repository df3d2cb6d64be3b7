// SPDX-License-Identifier: MIT
#include "overview/recording_summary.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr std::size_t max_text = 200;  ///< bytes

std::string text_or_nothing(json const& value) {
    return value.is_null() ? std::string() : shown_text(value.get<std::string>());
}

/// \throws json::type_error for a negative number or one with a fraction
std::uint64_t count_in(json const& counts, char const* name) {
    return counts.at(name).get_ref<json::number_unsigned_t const&>();
}

recording_summary summary_of(json const& status) {
    auto const& counts = status.at("counts");
    auto const& rate = status.at("rates").at("frames_per_s");
    return {.name = shown_text(status.at("name").get<std::string>()),
            .state = shown_text(status.at("state").get<std::string>()),
            .waiting_reason = text_or_nothing(status.at("waiting_reason")),
            .saved = count_in(counts, "saved"),
            .wanted = count_in(counts, "wanted"),
            .dropped_queue_full = count_in(counts, "dropped_queue_full"),
            .dropped_write_error = count_in(counts, "dropped_write_error"),
            .packets_lost = count_in(counts, "packets_lost"),
            .empty_fetches = count_in(counts, "empty_fetches"),
            .frames_per_s = rate.is_null() ? std::nullopt : std::optional(rate.get<double>()),
            .uptime_s = status.at("uptime_s").get<double>()};
}

}  // namespace

std::string shown_text(std::string text) {
    if (text.size() > max_text) {
        text.resize(max_text);
        text += "...";
    }
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < ' ' || c == '\x7F'; }, ' ');
    return text;
}

recording_summary read_summary(std::string_view text) {
    try {
        return summary_of(json::parse(text));
    } catch (json::exception const&) {
        throw std::runtime_error("the answer is not the status of a recording");
    }
}

json json_of(recording_summary const& summary) {
    return {{"name", summary.name},
            {"state", summary.state},
            {"waiting_reason", summary.waiting_reason},
            {"saved", summary.saved},
            {"wanted", summary.wanted},
            {"dropped_queue_full", summary.dropped_queue_full},
            {"dropped_write_error", summary.dropped_write_error},
            {"packets_lost", summary.packets_lost},
            {"empty_fetches", summary.empty_fetches},
            {"frames_per_s", summary.frames_per_s ? json(*summary.frames_per_s) : json(nullptr)},
            {"uptime_s", summary.uptime_s}};
}

}  // namespace mediagrabber
