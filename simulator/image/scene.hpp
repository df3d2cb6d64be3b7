// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "image/image_set.hpp"

namespace camsim {

/// `chart` has bright and dark areas, edges and colours. `dim` is dark and has little contrast: its light spans about a
/// hundred 12-bit values, which an 8-bit image reduces to half a dozen.
enum class scene_kind : std::uint8_t { chart, dim };

/// The scene in front of the camera and the properties of its sensor. Together with frame_settings these determine
/// every byte of a frame.
struct scene_settings {
    std::uint64_t seed = 1;              ///< noise seed
    std::uint32_t sensor_width = 2464;   ///< pixels, a multiple of 8
    std::uint32_t sensor_height = 2056;  ///< pixels, a multiple of 2
    std::uint32_t black_level = 64;      ///< 12-bit digital numbers, added to every pixel
    double noise = 4.0;         ///< standard deviation in 12-bit digital numbers at gain 1; the gain amplifies it
    double illumination = 1.0;  ///< factor on the chart's light
    scene_kind kind = scene_kind::chart;
    /// Exposed in a loop instead of the chart; may be null. Their size is at least the sensor's.
    std::shared_ptr<image_set const> images{};

    friend bool operator==(scene_settings const&, scene_settings const&) = default;
};

/// Light of a colour: the 12-bit digital numbers that it gives at reference_exposure_us and gain 1.
struct light {
    std::uint16_t red;
    std::uint16_t green;
    std::uint16_t blue;
};

/// Exposure time in microseconds at which light equals its digital number; the default exposure.
inline constexpr double reference_exposure_us = 1000.0;

/// The moving test chart: horizontal bands, each with a periodic pattern that moves sideways at its own speed, and a
/// square that bounces over all of them. Displacements are even numbers of pixels, so they keep the phase of a Bayer
/// pattern.
namespace chart {

inline constexpr std::uint32_t band_count = 6;
inline constexpr std::uint32_t band_height = 32;  ///< sensor lines
inline constexpr std::uint32_t period = 1024;     ///< pixels after which every pattern repeats

/// The light of pattern `band` at `x` (0 to period - 1).
light pattern(scene_kind kind, std::uint32_t band, std::uint32_t x);

/// Position in its pattern at which line `y` of frame `frame` starts: 0 to period - 1, even.
std::uint32_t displacement(std::uint64_t frame, std::uint32_t y);

/// The band that line `y` belongs to.
constexpr std::uint32_t band_of(std::uint32_t y) {
    return y / band_height % band_count;
}

/// A square on the sensor, in pixels.
struct square {
    std::uint32_t left;
    std::uint32_t top;
    std::uint32_t side;
};

/// The moving square in frame `frame`; it is always inside the sensor.
square object(scene_settings const& scene, std::uint64_t frame);
light object_light(scene_kind kind);

}  // namespace chart

/// \return noise_period + `extra` normally distributed numbers with standard deviation 256, the same on every machine
std::vector<std::int16_t> noise_samples(std::uint64_t seed, std::size_t extra);
inline constexpr std::size_t noise_period = 8192;
inline constexpr double noise_sample_deviation = 256.0;

/// Index of the noise sample of the first pixel of line `y` of frame `frame`: 0 to noise_period - 1.
std::size_t noise_offset(std::uint64_t seed, std::uint64_t frame, std::uint32_t y);

}  // namespace camsim
