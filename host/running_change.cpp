#include "running_change.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>

namespace mediagrabber {

namespace {

// Cameras round: gain to hundredths of a factor, exposure to lines, the frame period to microseconds.
constexpr double gain_tolerance_db = 0.1;
constexpr double relative_tolerance = 0.01;
constexpr double exposure_tolerance_us = 1.0;
constexpr double microseconds_a_second = 1e6;

/// A value that was asked for, and what the camera has instead.
struct comparison {
    double asked = 0.0;
    std::optional<double> found;
    double tolerance = 0.0;
};

std::optional<double> told(std::uint32_t pixels) {
    return pixels == 0 ? std::nullopt : std::optional(static_cast<double>(pixels));
}

/// Empty for a value that the plug-in does not report.
std::optional<comparison> compare(std::string const& path, configuration const& asked,
                                  change_confirmation::camera_values const& found) {
    if (path == "gain.db") {
        return comparison{.asked = *asked.gain_db, .found = found.gain_db, .tolerance = gain_tolerance_db};
    }
    if (path == "exposure.time_us") {
        double const time = *asked.exposure_time_us;
        return comparison{.asked = time,
                          .found = found.exposure_us,
                          .tolerance = std::max(exposure_tolerance_us, relative_tolerance * time)};
    }
    if (path == "timing.frame_rate") {
        comparison rate{.asked = *asked.frame_rate, .found = {}, .tolerance = relative_tolerance * *asked.frame_rate};
        if (found.period_us != 0) {
            rate.found = microseconds_a_second / found.period_us;
        }
        return rate;
    }
    if (path == "image.width") {
        return comparison{.asked = static_cast<double>(*asked.width), .found = told(found.width), .tolerance = 0.0};
    }
    if (path == "image.height") {
        return comparison{.asked = static_cast<double>(*asked.height), .found = told(found.height), .tolerance = 0.0};
    }
    return std::nullopt;
}

std::string spell(double value) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.6g", value);
    return text.data();
}

std::string seconds(double value) {
    return spell(value) + " s";
}

}  // namespace

change_answer judge(std::vector<setting> const& settings, configuration const& asked,
                    change_confirmation::camera_values const& found) {
    change_answer answer;
    for (auto const& one : settings) {
        auto const compared = compare(one.path, asked, found);
        if (!compared) {
            answer.lines.push_back(one.path + " = " + one.value + ", applied; what the camera has is not reported");
        } else if (!compared->found) {
            answer.status = exit_status::not_taken;
            answer.lines.push_back(one.path + ": asked for " + one.value + ", what the camera has can't be read");
        } else if (std::abs(*compared->found - compared->asked) > compared->tolerance) {
            answer.status = exit_status::not_taken;
            answer.lines.push_back(one.path + ": asked for " + one.value + ", the camera has " +
                                   spell(*compared->found));
        } else {
            answer.lines.push_back(one.path + " = " + spell(*compared->found));
        }
    }
    return answer;
}

change_answer change_while_running(change_request const& wanted, configuration_store& configurations,
                                   change_confirmation& confirmation, signal_latch& signals) {
    bool const small = needed_for(wanted.settings) == change_effect::small_change;
    configuration asked;
    auto const number = configurations.offer_change(
        small ? configuration_store::way::small_change : configuration_store::way::reconfiguration,
        [&](configuration& next) {
            apply_settings(wanted.settings, next,
                           wanted.another_run ? change_effect::new_run : change_effect::reconfiguration);
            asked = next;
        });
    if (!small) {
        signals.raise(request::reload);
    }
    auto const outcome = confirmation.wait_for(number, std::chrono::duration<double>(wanted.timeout_s));
    if (!outcome.values) {
        return {.status = exit_status::timed_out,
                .lines = {outcome.taken
                              ? "applied, but no frame came within " + seconds(wanted.timeout_s) + " to confirm it"
                              : "not applied within " + seconds(wanted.timeout_s) +
                                    ": no frames arrive; it will be applied with the next one"}};
    }
    return judge(wanted.settings, asked, *outcome.values);
}

}  // namespace mediagrabber
