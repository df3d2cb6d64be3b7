// SPDX-License-Identifier: MIT
#include "clock/frame_clock.hpp"

#include <sys/timex.h>
#include <time.h>

#include <cmath>

namespace mediagrabber {

namespace {

constexpr double us_per_s = 1e6;
constexpr double ns_per_us = 1e3;
constexpr double interrupted_us = 5.0;  ///< longer than three readings of a clock
constexpr int max_readings = 4;
constexpr double ptp_limit_us = 1e6;
constexpr int usual_tai_offset_s = 37;  ///< since 2017

double read_us(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * us_per_s + static_cast<double>(now.tv_nsec) / ns_per_us;
}

/// The kernel knows the difference between TAI and UTC if a time service has set it.
double tai_offset_us() {
    timex state{};
    adjtimex(&state);
    return (state.tai != 0 ? state.tai : usual_tai_offset_s) * us_per_s;
}

/// The time of day of a PTP clock's ticks.
std::optional<double> ptp_time_us(std::uint64_t ticks, double day_us) {
    double const shown = static_cast<double>(ticks) / ns_per_us;
    if (std::abs(shown - day_us) < ptp_limit_us) {
        return shown;
    }
    constexpr double max_tai_offset_us = 60.0 * us_per_s;
    if (shown < day_us || shown > day_us + max_tai_offset_us) {
        return std::nullopt;
    }
    double const utc = shown - tai_offset_us();
    return std::abs(utc - day_us) < ptp_limit_us ? std::optional(utc) : std::nullopt;
}

}  // namespace

char const* name_of(time_source source) {
    switch (source) {
        case time_source::reference:
            return "reference";
        case time_source::ptp:
            return "ptp";
        case time_source::arrivals:
            break;
    }
    return "arrivals";
}

frame_clock::host_time frame_clock::now() {
    host_time best;
    double shortest = HUGE_VAL;
    for (int i = 0; i < max_readings && shortest > interrupted_us; ++i) {
        double const before = read_us(CLOCK_MONOTONIC);
        double const day = read_us(CLOCK_REALTIME);
        double const after = read_us(CLOCK_MONOTONIC);
        if (after - before < shortest) {
            shortest = after - before;
            best = {.monotonic_us = (before + after) / 2.0, .day_us = day};
        }
    }
    return best;
}

void frame_clock::set_tick_frequency(double tick_hz) {
    if (tick_hz != tick_hz_) {
        tick_hz_ = tick_hz;
        model_ = clock_model(tick_hz);
        reference_.reset();
    }
}

void frame_clock::set_reference(std::optional<measured_clock> const& reference, host_time const& now) {
    if (reference == reference_) {
        return;
    }
    reference_ = reference;
    if (!reference) {
        model_.set_reference(std::nullopt);
        return;
    }
    model_.set_reference(
        clock_reference{.ticks = reference->ticks,
                        .host_us = static_cast<double>(reference->time_us) - now.day_us + now.monotonic_us,
                        .uncertainty_us = static_cast<double>(reference->uncertainty_us)});
}

exposure_time frame_clock::time_of(std::uint64_t ticks, double arrived_us, double exposure_us,
                                   host_time const& now) const {
    auto const modelled = model_.estimate(ticks, arrived_us - exposure_us);
    double const since_then = now.monotonic_us - modelled.host_us;
    exposure_time result{.time_us = static_cast<std::uint64_t>(std::llround(now.day_us - since_then)),
                         .uncertainty_us = modelled.uncertainty_us,
                         .source = modelled.absolute ? time_source::reference : time_source::arrivals,
                         .clock_drift_ppm = {}};
    if (auto const drift = model_.drift_ppm()) {
        result.clock_drift_ppm = static_cast<float>(*drift);
    }
    double const arrived_day_us = now.day_us - (now.monotonic_us - arrived_us);
    if (auto const ptp = ptp_time_us(ticks, arrived_day_us)) {
        // Arrivals show the sum of the delay and the error of this machine's clock. The delay is not negative, so
        // neither exceeds the sum.
        result.uncertainty_us += std::abs(now.day_us - since_then - *ptp);
        result.time_us = static_cast<std::uint64_t>(std::llround(*ptp));
        result.source = time_source::ptp;
    }
    result.uncertainty_us = std::ceil(result.uncertainty_us);
    return result;
}

}  // namespace mediagrabber
