// SPDX-License-Identifier: MIT
#include "clock/clock_measurement.hpp"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

namespace mediagrabber {

namespace {

constexpr double nanoseconds = 1e9;
constexpr double microseconds = 1e6;
constexpr double max_correction_ns = 1e8;  ///< of timing.clock_correction_ppb

tick_frequency frequency_of(std::vector<frame_times> const& frames, std::optional<double> tick_hz) {
    if (tick_hz) {
        return {.hz = *tick_hz, .relative_uncertainty = 0.0};
    }
    std::vector<announced_ticks> published;
    published.reserve(frames.size());
    for (frame_times const& one : frames) {
        published.push_back({.ticks = one.ticks, .announced_us = one.announced_us});
    }
    return find_tick_frequency(published);
}

/// A frame leaves the camera after its exposure; subtracting it keeps a changing exposure time out of the delay.
std::vector<clock_sample> samples_of(std::vector<frame_times> const& frames, double tick_hz) {
    using host_time = std::chrono::duration<double, std::micro>;
    std::vector<clock_sample> samples;
    samples.reserve(frames.size());
    for (frame_times const& one : frames) {
        auto const ticks = static_cast<double>(static_cast<std::int64_t>(one.ticks - frames.front().ticks));
        samples.push_back({.camera_us = ticks / tick_hz * microseconds,
                           .host_us = host_time(one.arrived - frames.front().arrived).count() - one.exposure_us});
    }
    return samples;
}

/// 0 would select another mode, timestamps of the host clock.
long correction_to_configure(double correction_ns) {
    long const rounded = std::lround(correction_ns);
    return rounded == 0 ? 1 : rounded;
}

}  // namespace

clock_measurement measure_clock(std::vector<frame_times> const& frames, std::optional<double> tick_hz) {
    if (frames.empty()) {
        throw std::runtime_error("no frame had a camera timestamp");
    }
    auto const frequency = frequency_of(frames, tick_hz);
    clock_measurement measurement{.clock = estimate_clock(samples_of(frames, frequency.hz)), .tick_hz = frequency.hz};
    if (std::abs(measurement.clock.correction_ns) > max_correction_ns) {
        throw std::runtime_error(
            fmt::format("the clocks differ by {} ns/s, more than any clock: is the camera's tick"
                        " frequency {} Hz?",
                        std::lround(measurement.clock.correction_ns), std::lround(frequency.hz)));
    }
    measurement.clock.uncertainty_ns =
        std::hypot(measurement.clock.uncertainty_ns, frequency.relative_uncertainty * nanoseconds);
    return measurement;
}

std::string configuration_text(clock_measurement const& measurement) {
    auto const& clock = measurement.clock;
    return fmt::format(
        "# {} frames in {:.1f} s; median delay {:.2f} ms above the minimum; {:.10g} ticks per second\n"
        "# uncertainty {:.0f} ns/s (95 %)\n"
        "timing.clock_correction_ppb = {}\n",
        clock.frames, clock.span_s, clock.delay_spread_us / 1e3, measurement.tick_hz, std::ceil(clock.uncertainty_ns),
        correction_to_configure(clock.correction_ns));
}

}  // namespace mediagrabber
