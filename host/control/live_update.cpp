// SPDX-License-Identifier: MIT
#include "control/live_update.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace mediagrabber {

namespace {

// Cameras round: the gain to hundredths of a factor, the exposure time to sensor lines, the frame period to
// microseconds.
constexpr double gain_tolerance_db = 0.1;
constexpr double relative_tolerance = 0.01;
constexpr double exposure_tolerance_us = 1.0;
constexpr double us_per_s = 1e6;

/// A requested value, and that of the camera.
struct comparison {
    double requested = 0.0;
    std::optional<double> found;
    double tolerance = 0.0;
};

std::optional<double> reported(std::uint32_t pixels) {
    return pixels == 0 ? std::nullopt : std::optional(static_cast<double>(pixels));
}

/// Empty for a key that the plug-in does not report.
std::optional<comparison> compare(std::string const& path, configuration const& requested,
                                  update_confirmation::camera_values const& found) {
    if (path == "gain.db") {
        return comparison{.requested = *requested.gain.db, .found = found.gain_db, .tolerance = gain_tolerance_db};
    }
    if (path == "exposure.time_us") {
        double const time = *requested.exposure.time_us;
        return comparison{.requested = time,
                          .found = found.exposure_us,
                          .tolerance = std::max(exposure_tolerance_us, relative_tolerance * time)};
    }
    if (path == "timing.frame_rate_hz") {
        comparison rate{.requested = *requested.timing.frame_rate_hz,
                        .found = {},
                        .tolerance = relative_tolerance * *requested.timing.frame_rate_hz};
        if (found.period_us != 0) {
            rate.found = us_per_s / found.period_us;
        }
        return rate;
    }
    if (path == "image.width") {
        return comparison{
            .requested = static_cast<double>(*requested.image.width), .found = reported(found.width), .tolerance = 0.0};
    }
    if (path == "image.height") {
        return comparison{.requested = static_cast<double>(*requested.image.height),
                          .found = reported(found.height),
                          .tolerance = 0.0};
    }
    return std::nullopt;
}

}  // namespace

change_answer compare_with_camera(std::vector<setting> const& settings, configuration const& requested,
                                  update_confirmation::camera_values const& found) {
    change_answer answer;
    for (auto const& one : settings) {
        auto const compared = compare(one.path, requested, found);
        if (!compared) {
            answer.lines.push_back(
                fmt::format("{} = {}, applied; the camera does not report this value", one.path, one.value));
        } else if (!compared->found) {
            answer.status = exit_status::value_differs;
            answer.lines.push_back(
                fmt::format("{}: requested {}, but the camera's value cannot be read", one.path, one.value));
        } else if (std::abs(*compared->found - compared->requested) > compared->tolerance) {
            answer.status = exit_status::value_differs;
            answer.lines.push_back(
                fmt::format("{}: requested {}, but the camera has {:.6g}", one.path, one.value, *compared->found));
        } else {
            answer.lines.push_back(fmt::format("{} = {:.6g}", one.path, *compared->found));
        }
    }
    return answer;
}

change_answer change_while_running(change_request const& wanted, configuration_store& configurations,
                                   update_confirmation& confirmation, signal_latch& signals) {
    bool const live = needed_for(wanted.settings) == change_effect::live_update;
    configuration requested;
    auto const number = configurations.stage_change(
        live ? configuration_store::way::live_update : configuration_store::way::reconfiguration,
        [&](configuration& next) {
            apply_settings(wanted.settings, next,
                           wanted.restart ? change_effect::restart : change_effect::reconfiguration);
            requested = next;
        });
    if (!live) {
        signals.raise(signal_code::reload);
    }
    auto const outcome = confirmation.wait_for(number, std::chrono::duration<double>(wanted.timeout_s));
    if (!outcome.values) {
        return {
            .status = exit_status::timed_out,
            .lines = {outcome.activated
                          ? fmt::format("applied, but no frame arrived within {:.6g} s to confirm it", wanted.timeout_s)
                          : fmt::format("not applied within {:.6g} s: no frames arrive; it will be applied with the"
                                        " next frame",
                                        wanted.timeout_s)}};
    }
    return compare_with_camera(wanted.settings, requested, *outcome.values);
}

}  // namespace mediagrabber
