// SPDX-License-Identifier: MIT
#include "status/status_message.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

namespace mediagrabber {

namespace {

using nlohmann::json;

constexpr double bytes_per_megabyte = 1e6;
constexpr double bytes_per_gigabyte = 1e9;

template <typename value>
json or_null(std::optional<value> const& known) {
    return known ? json(*known) : json(nullptr);
}

char const* name_of(auto_mode mode) {
    switch (mode) {
        case auto_mode::off:
            return "Off";
        case auto_mode::continuous:
            return "Continuous";
        case auto_mode::unchanged:
            break;
    }
    return "unchanged";
}

json time_of(std::optional<exposure_time> const& exposed) {
    if (!exposed) {
        return nullptr;
    }
    return {{"time_us", exposed->time_us},
            {"uncertainty_us", exposed->uncertainty_us},
            {"source", name_of(exposed->source)},
            {"clock_drift_ppm", or_null(exposed->clock_drift_ppm)}};
}

json newest_of(std::optional<frame_record> const& newest) {
    if (!newest) {
        return nullptr;
    }
    return {{"frame", newest->number},
            {"timestamp_us", newest->timestamp_us},
            {"time", time_of(newest->exposed)},
            {"gain_db", or_null(newest->gain_db)},
            {"exposure_us", or_null(newest->exposure_us)},
            {"temperature_c", or_null(newest->temperature_c)},
            {"width", newest->width},
            {"height", newest->height},
            {"pixel_format", newest->format->name},
            {"bits", newest->format->significant_bits}};
}

json counts_of(recording_status const& status) {
    auto const& figures = status.figures;
    auto const& logged = status.log_counts;
    return {{"wanted", figures.wanted},
            {"handed_over", figures.handed_over},
            {"saved", figures.saved},
            {"bytes", figures.bytes},
            {"dropped_queue_full", figures.dropped_queue_full},
            {"dropped_write_error", figures.dropped_write_error},
            {"empty_fetches", figures.empty_fetches},
            {"drop_reports", logged.drop_reports},
            {"budgets_exceeded", logged.budgets_exceeded},
            {"packets_resend_requested", logged.packets_resend_requested},
            {"packets_resent", logged.packets_resent},
            {"packets_lost", logged.packets_lost},
            {"packets_dropped_by_socket", logged.packets_dropped_by_socket},
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

/// Configured values that the camera does not report with each frame.
json configured(configuration const* values) {
    if (values == nullptr) {
        return nullptr;
    }
    return {{"gain_auto", name_of(values->gain.automatic)},
            {"exposure_auto", name_of(values->exposure.automatic)},
            {"tone", values->tone.enable},
            {"gamma", or_null(values->tone.gamma)},
            {"frame_rate_hz", or_null(values->timing.frame_rate_hz)},
            {"offset_x", or_null(values->image.offset_x)},
            {"offset_y", or_null(values->image.offset_y)},
            {"width", or_null(values->image.width)},
            {"height", or_null(values->image.height)},
            {"files", values->output.format != output_format::none}};
}

json delivery_of(recording_status const& status) {
    auto list = json::array();
    for (auto const& one : status.delivery) {
        list.push_back({{"key", one.key},
                        {"requested", or_null(one.requested)},
                        {"actual", or_null(one.actual)},
                        {"differs", one.differs}});
    }
    return list;
}

/// Measured over the latest windows.
std::optional<double> frame_rate_of(recording_status const& status) {
    return status.delivery[delivery_check::frame_rate].actual;
}

/// Average since the first frame.
std::optional<double> bytes_per_s(progress_figures const& figures) {
    return figures.seconds > 0.0 ? std::optional(static_cast<double>(figures.bytes) / figures.seconds) : std::nullopt;
}

json rates_of(recording_status const& status) {
    return {{"frames_per_s", or_null(frame_rate_of(status))}, {"bytes_per_s", or_null(bytes_per_s(status.figures))}};
}

std::string property(recording_status const& status, std::string_view word) {
    auto const found =
        std::ranges::find_if(status.camera, [&](auto const& one) { return one.label.find(word) != std::string::npos; });
    return found == status.camera.end() ? std::string() : found->value;
}

std::string state_line(recording_state const& state) {
    return state.reason.empty() ? state.name() : fmt::format("{}: {}", state.name(), state.reason);
}

std::string camera_line(recording_status const& status) {
    std::string const model = property(status, "Model");
    std::string const serial = property(status, "Serial");
    if (model.empty() && serial.empty()) {
        return "not reported yet";
    }
    return serial.empty() ? model : fmt::format("{}, serial number {}", model, serial);
}

std::string frames_line(progress_figures const& figures) {
    return fmt::format("{}{} saved, dropped: {} (queue full), {} (write errors); {} fetches without a frame",
                       figures.saved, figures.wanted == 0 ? "" : fmt::format("/{}", figures.wanted),
                       figures.dropped_queue_full, figures.dropped_write_error, figures.empty_fetches);
}

std::string rates_line(recording_status const& status) {
    auto const rate = frame_rate_of(status);
    auto const requested = status.delivery[delivery_check::frame_rate].requested;
    auto const bytes = bytes_per_s(status.figures);
    return fmt::format("{} frames/s{}, {} MB/s written", rate ? fmt::format("{:.2f}", *rate) : "-",
                       requested ? fmt::format(" ({:.6g} requested)", *requested) : "",
                       bytes ? fmt::format("{:.1f}", *bytes / bytes_per_megabyte) : "-");
}

std::string packets_line(log_buffer::counts const& counts) {
    return fmt::format("{} lost, {} resent, {} resend requested, {} dropped: socket receive buffer full",
                       counts.packets_lost, counts.packets_resent, counts.packets_resend_requested,
                       counts.packets_dropped_by_socket);
}

std::string output_line(recording_status const& status) {
    auto const free = status.free_bytes;
    return fmt::format("{}, {} GB free", status.directory,
                       free ? fmt::format("{:.1f}", static_cast<double>(*free) / bytes_per_gigabyte) : "-");
}

std::string clock_line(recording_status const& status) {
    auto const exposed = status.newest ? status.newest->exposed : std::nullopt;
    if (!exposed) {
        return "-";
    }
    auto const drift = exposed->clock_drift_ppm;
    return fmt::format("exposures known to {:.0f} us{} ({}), camera clock {} ppm", exposed->uncertainty_us,
                       exposed->source == time_source::arrivals ? " about a constant delay" : "",
                       name_of(exposed->source), drift ? fmt::format("{:+.2f}", *drift) : "-");
}

std::string duration(double seconds) {
    constexpr std::uint64_t s_per_hour = 3600;
    constexpr std::uint64_t s_per_minute = 60;
    auto const whole = static_cast<std::uint64_t>(std::max(0.0, seconds));
    return fmt::format("{} h {} min {} s", whole / s_per_hour, whole % s_per_hour / s_per_minute, whole % s_per_minute);
}

}  // namespace

json status_message(recording_status const& status) {
    return {{"name", status.name},
            {"state", status.state.name()},
            {"waiting_reason", status.state.reason.empty() ? json(nullptr) : json(status.state.reason)},
            {"uptime_s", status.uptime_s},
            {"capturing", status.capturing},
            {"period_us", status.period_us},
            {"seconds_since_frame", or_null(status.seconds_since_frame)},
            {"good_frames", status.good_frames},
            {"counts", counts_of(status)},
            {"rates", rates_of(status)},
            {"newest", newest_of(status.newest)},
            {"configured", configured(status.active.get())},
            {"delivery", delivery_of(status)},
            {"camera", camera_of(status)},
            {"plugin", status.plugin_version},
            {"version", MEDIAGRABBER_VERSION},
            {"directory", status.directory},
            {"page", status.page.empty() ? json(nullptr) : json(status.page)},
            {"free_bytes", or_null(status.free_bytes)},
            {"instance", status.instance}};
}

std::vector<std::string> status_lines(recording_status const& status) {
    return {fmt::format("name      {}", status.name),
            fmt::format("state     {}", state_line(status.state)),
            fmt::format("camera    {}", camera_line(status)),
            fmt::format("frames    {}", frames_line(status.figures)),
            fmt::format("rates     {}", rates_line(status)),
            fmt::format("packets   {}", packets_line(status.log_counts)),
            fmt::format("clock     {}", clock_line(status)),
            fmt::format("output    {}", output_line(status)),
            fmt::format("uptime    {}", duration(status.uptime_s)),
            fmt::format("versions  mediagrabber {}, plug-in {}", MEDIAGRABBER_VERSION, status.plugin_version)};
}

}  // namespace mediagrabber
