// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "image/pixel_packing.hpp"

/// Limits of the simulated sensor: region, exposure, gain and frame rate. The numbers are camsim's own choice, in the
/// range of cameras with such a sensor.
namespace camsim::sensor {

inline constexpr std::uint32_t min_side = 16;
inline constexpr std::uint32_t width_step = 8;   ///< of Width and OffsetX, in pixels
inline constexpr std::uint32_t height_step = 2;  ///< of Height and OffsetY; keeps the phase of a Bayer pattern

inline constexpr double min_exposure_us = 10.0;
inline constexpr double max_exposure_us = 1e6;
inline constexpr double min_frame_rate = 0.5;  ///< Hz

/// Linear factors. AnalogAll goes up to 24 dB, DigitalAll up to 12 dB.
inline constexpr double min_gain = 1.0;
inline constexpr std::array max_gains{16.0, 4.0};

/// From the end of one exposure to the start of the next.
inline constexpr double pause_between_exposures_us = 20.0;

/// \return the maximum frame rate of a region of `height` lines, in Hz; lines are read out one after the other
constexpr double max_frame_rate(std::uint32_t height) {
    constexpr double line_time_us = 1.75;
    constexpr double overhead_us = 40.0;
    return 1e6 / (height * line_time_us + overhead_us);
}

/// \return the time from one exposure to the next. A frame is exposed while its predecessor is read out, so only an
/// exposure longer than the requested period extends it.
constexpr double frame_period_us(double frame_rate, double exposure_us) {
    double const requested = 1e6 / frame_rate;
    double const needed = exposure_us + pause_between_exposures_us;
    return requested > needed ? requested : needed;
}

/// \return the longest exposure that does not reduce the frame rate
constexpr double max_exposure_at(double frame_rate) {
    return 1e6 / frame_rate - pause_between_exposures_us;
}

constexpr bool on_sensor(region const& area, std::uint32_t sensor_width, std::uint32_t sensor_height) {
    return std::uint64_t{area.offset_x} + area.width <= sensor_width &&
           std::uint64_t{area.offset_y} + area.height <= sensor_height;
}

}  // namespace camsim::sensor
