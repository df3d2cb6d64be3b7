#pragma once

#include <array>
#include <cstdint>

#include "pixel_packing.hpp"

/// What the sensor can do: steps and limits of its region, and how fast it reads out.
namespace camsim::sensor {

inline constexpr std::uint32_t smallest_side = 16;
inline constexpr std::uint32_t width_step = 8;   ///< of width and horizontal offset, in pixels
inline constexpr std::uint32_t height_step = 2;  ///< of height and vertical offset; keeps a mosaic's phase

inline constexpr double shortest_exposure_us = 10.0;
inline constexpr double longest_exposure_us = 1e6;
inline constexpr double lowest_frame_rate = 0.5;  ///< Hz

/// Linear factors: 24 dB in front of the converter, 12 dB behind it.
inline constexpr double lowest_gain = 1.0;
inline constexpr std::array highest_gains{16.0, 4.0};

/// Between the end of one exposure and the beginning of the next.
inline constexpr double pause_between_exposures_us = 20.0;

/// Highest frame rate for a region of `height` lines, in Hz: lines are read out one after the other.
constexpr double highest_frame_rate(std::uint32_t height) {
    constexpr double line_time_us = 1.75;
    constexpr double overhead_us = 40.0;
    return 1e6 / (height * line_time_us + overhead_us);
}

/// Time from one exposure to the next. A frame is exposed while the one before is read out, so the period is as asked
/// for unless the exposure takes longer.
constexpr double frame_period_us(double frame_rate, double exposure_us) {
    double const asked = 1e6 / frame_rate;
    double const needed = exposure_us + pause_between_exposures_us;
    return asked > needed ? asked : needed;
}

/// Longest exposure that leaves the frame rate as it is.
constexpr double longest_exposure_at(double frame_rate) {
    return 1e6 / frame_rate - pause_between_exposures_us;
}

constexpr bool on_sensor(region const& area, std::uint32_t sensor_width, std::uint32_t sensor_height) {
    return std::uint64_t{area.offset_x} + area.width <= sensor_width &&
           std::uint64_t{area.offset_y} + area.height <= sensor_height;
}

}  // namespace camsim::sensor
