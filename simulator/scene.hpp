#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace camsim {

/// `chart` has bright and dark, edges and colours. `dim` is dark and flat: its light spans some hundred 12-bit values,
/// of which an 8-bit picture shows half a dozen.
enum class scene_kind : std::uint8_t { chart, dim };

/// What the camera looks at and how its sensor sees it. With a frame's number, exposure, gain, region and format these
/// numbers give every byte of the frame.
struct scene_settings {
    std::uint64_t seed = 1;              ///< of the noise
    std::uint32_t sensor_width = 2464;   ///< pixels, a multiple of 8
    std::uint32_t sensor_height = 2056;  ///< pixels, a multiple of 2
    std::uint32_t black_level = 64;      ///< 12-bit digital numbers, added to every pixel
    double noise = 4.0;         ///< standard deviation in 12-bit digital numbers at gain 1; the gain amplifies it
    double illumination = 1.0;  ///< factor on the chart's light
    scene_kind kind = scene_kind::chart;

    friend bool operator==(scene_settings const&, scene_settings const&) = default;
};

/// A colour's light, in 12-bit digital numbers that it gives at reference_exposure_us and gain 1.
struct light {
    std::uint16_t red;
    std::uint16_t green;
    std::uint16_t blue;
};

/// Exposure at which the chart's light is its digital number, in microseconds.
inline constexpr double reference_exposure_us = 1000.0;

/// The moving test chart: horizontal bands, each with a pattern along x that repeats and drifts sideways from frame to
/// frame at its own speed, and a square that bounces over all of them. Displacements are even numbers of pixels, so
/// that a mosaic's phase moves with the sensor and not with the chart.
namespace chart {

inline constexpr std::uint32_t band_count = 6;
inline constexpr std::uint32_t band_height = 32;  ///< sensor lines
inline constexpr std::uint32_t period = 1024;     ///< pixels after which every pattern repeats

/// The light of pattern `band` at `x` (0 to period - 1).
light pattern(scene_kind kind, std::uint32_t band, std::uint32_t x);

/// Where in its pattern the line `y` of frame `frame` begins: 0 to period - 1, even.
std::uint32_t displacement(std::uint64_t frame, std::uint32_t y);

/// Which pattern line `y` shows.
constexpr std::uint32_t band_of(std::uint32_t y) {
    return y / band_height % band_count;
}

struct square {
    std::uint32_t left;
    std::uint32_t top;
    std::uint32_t side;
};

/// The moving object in frame `frame`, inside the sensor, in front of the bands.
square object(scene_settings const& scene, std::uint64_t frame);
light object_light(scene_kind kind);

}  // namespace chart

/// Normally distributed numbers with standard deviation 256, the same on every machine; noise_period + `extra` of them.
std::vector<std::int16_t> noise_samples(std::uint64_t seed, std::size_t extra);
inline constexpr std::size_t noise_period = 8192;
inline constexpr double noise_sample_deviation = 256.0;

/// Where line `y` of frame `frame` begins in the noise samples: 0 to noise_period - 1.
std::size_t noise_offset(std::uint64_t seed, std::uint64_t frame, std::uint32_t y);

}  // namespace camsim
