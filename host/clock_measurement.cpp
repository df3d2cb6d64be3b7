#include "clock_measurement.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace mediagrabber {

namespace {

constexpr double nanoseconds = 1e9;
constexpr double microseconds = 1e6;
constexpr double largest_correction_ns = 1e8;  ///< that can be configured

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

/// A frame can't leave before its exposure has ended, so an exposure that changes is no delay.
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

/// 0 would be another mode: frames are then stamped with host time.
long correction_to_configure(double correction_ns) {
    long const rounded = std::lround(correction_ns);
    return rounded == 0 ? 1 : rounded;
}

}  // namespace

clock_measurement measure_clock(std::vector<frame_times> const& frames, std::optional<double> tick_hz) {
    if (frames.empty()) {
        throw std::runtime_error("no frame came with a timestamp of the camera");
    }
    auto const frequency = frequency_of(frames, tick_hz);
    clock_measurement measurement{.clock = estimate_clock(samples_of(frames, frequency.hz)), .tick_hz = frequency.hz};
    if (std::abs(measurement.clock.correction_ns) > largest_correction_ns) {
        throw std::runtime_error("the clocks seem to differ by " +
                                 std::to_string(std::lround(measurement.clock.correction_ns)) +
                                 " ns/s, which no clock does: is the camera's tick frequency " +
                                 std::to_string(std::lround(frequency.hz)) + "?");
    }
    measurement.clock.uncertainty_ns =
        std::hypot(measurement.clock.uncertainty_ns, frequency.relative_uncertainty * nanoseconds);
    return measurement;
}

std::string configuration_text(clock_measurement const& measurement) {
    std::array<char, 512> text{};
    auto const& clock = measurement.clock;
    std::snprintf(text.data(), text.size(),
                  "# %zu frames in %.1f s; half of them at most %.2f ms later than the quickest; %.10g ticks a second\n"
                  "# uncertainty %.0f ns/s (95 %%)\n"
                  "timing.clock_correction = %ld\n",
                  clock.frames, clock.span_s, clock.delay_spread_us / 1e3, measurement.tick_hz,
                  std::ceil(clock.uncertainty_ns), correction_to_configure(clock.correction_ns));
    return text.data();
}

}  // namespace mediagrabber
