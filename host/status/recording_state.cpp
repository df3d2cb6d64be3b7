// SPDX-License-Identifier: MIT
#include "status/recording_state.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace mediagrabber {

namespace {

constexpr double us_per_s = 1e6;
/// Longer than the plug-in waits for a single frame at usual rates, and short for an operator.
constexpr double min_silence_s = 5.0;
constexpr double max_silent_periods = 3.0;

/// Seconds without a frame after which a recording counts as waiting.
double max_silence_s(std::uint32_t period_us) {
    return std::max(min_silence_s, max_silent_periods * period_us / us_per_s);
}

}  // namespace

char const* recording_state::name() const {
    switch (what) {
        case kind::starting:
            return "starting";
        case kind::recording:
            return "recording";
        case kind::buffering:
            return "buffering";
        case kind::waiting:
            return "waiting";
        case kind::stopping:
            return "stopping";
    }
    return "";
}

recording_state state_of(recording_activity const& activity) {
    using enum recording_state::kind;
    if (activity.stop_requested) {
        return {.what = stopping, .reason = {}};
    }
    if (*activity.failure != '\0') {
        return {.what = waiting, .reason = activity.failure};
    }
    if (!activity.seconds_since_frame) {
        return {.what = starting, .reason = {}};
    }
    double const silence_s = *activity.seconds_since_frame;
    if (silence_s > max_silence_s(activity.period_us)) {
        return {.what = waiting, .reason = fmt::format("no frame has arrived for {:.0f} s", silence_s)};
    }
    return {.what = activity.has_pretrigger ? buffering : recording, .reason = {}};
}

}  // namespace mediagrabber
