// SPDX-License-Identifier: MIT
#include "image/scene.hpp"

#include <algorithm>
#include <array>

namespace camsim {

namespace {

/// The finalizer of SplitMix64: every bit of the result depends on every bit of `value`.
std::uint64_t scramble(std::uint64_t value) {
    value += 0x9E37'79B9'7F4A'7C15U;
    value = (value ^ value >> 30U) * 0xBF58'476D'1CE4'E5B9U;
    value = (value ^ value >> 27U) * 0x94D0'49BB'1331'11EBU;
    return value ^ value >> 31U;
}

/// A position that moves from 0 to `range` and back.
std::uint32_t bounce(std::uint64_t step, std::uint32_t range) {
    if (range == 0) {
        return 0;
    }
    std::uint64_t const phase = step % (2ULL * range);
    return static_cast<std::uint32_t>(phase <= range ? phase : 2ULL * range - phase);
}

constexpr light grey(std::uint32_t level) {
    auto const value = static_cast<std::uint16_t>(level);
    return {value, value, value};
}

/// A gradient: red rises, blue falls, green rises and falls.
light ramp(std::uint32_t x) {
    std::uint32_t const rising = 3600 * x / chart::period;
    std::uint32_t const half = x < chart::period / 2 ? x : chart::period - x;
    return {static_cast<std::uint16_t>(rising), static_cast<std::uint16_t>(7200 * half / chart::period),
            static_cast<std::uint16_t>(3600 - rising)};
}

/// White, yellow, cyan, green, magenta, red, blue, black.
light colour_bars(std::uint32_t x) {
    constexpr std::uint16_t on = 3200;
    std::uint32_t const bar = x / (chart::period / 8);
    auto const channel = [bar](std::uint32_t bit) { return (bar & bit) == 0 ? on : std::uint16_t{0}; };
    return {channel(2), channel(4), channel(1)};
}

light edges(std::uint32_t x) {
    return grey(x / 64 % 2 == 0 ? 200 : 3400);
}

light grey_steps(std::uint32_t x) {
    return grey(x / (chart::period / 16) * 240);
}

/// Line pairs 2, 4, 8 and 16 pixels wide, a quarter of the period each.
light line_pairs(std::uint32_t x) {
    std::uint32_t const width = 2U << (x / (chart::period / 4));
    return grey(x / width % 2 == 0 ? 600 : 3000);
}

/// Bright and dark without edges.
light wave(std::uint32_t x) {
    std::uint32_t const half = x < chart::period / 2 ? x : chart::period - x;
    return {static_cast<std::uint16_t>(400 + 5 * half), static_cast<std::uint16_t>(400 + 6 * half),
            static_cast<std::uint16_t>(400 + 4 * half)};
}

/// Bright and dark without edges and with little contrast.
light dim_wave(std::uint32_t x) {
    std::uint32_t const half = x < chart::period / 2 ? x : chart::period - x;
    return {static_cast<std::uint16_t>(24 + 96 * half / (chart::period / 2)),
            static_cast<std::uint16_t>(24 + 88 * half / (chart::period / 2)),
            static_cast<std::uint16_t>(24 + 80 * half / (chart::period / 2))};
}

}  // namespace

namespace chart {

light pattern(scene_kind kind, std::uint32_t band, std::uint32_t x) {
    if (kind == scene_kind::dim) {
        return dim_wave(x);
    }
    switch (band) {
        case 0:
            return ramp(x);
        case 1:
            return colour_bars(x);
        case 2:
            return edges(x);
        case 3:
            return grey_steps(x);
        case 4:
            return line_pairs(x);
        default:
            return wave(x);
    }
}

std::uint32_t displacement(std::uint64_t frame, std::uint32_t y) {
    // Pixels per frame to the left; period - n moves n to the right. The edges are also slanted, by 2 pixels in 8
    // lines.
    constexpr std::array<std::uint32_t, band_count> speed{2, 4, period - 2, 6, 2, period - 4};
    std::uint32_t const band = band_of(y);
    std::uint64_t const lean = band == 2 ? 2ULL * (y % band_height / 8) : 0;
    return static_cast<std::uint32_t>((frame % period * speed[band] + lean) % period);
}

square object(scene_settings const& scene, std::uint64_t frame) {
    std::uint32_t const side = std::min({std::max(16U, std::min(scene.sensor_width, scene.sensor_height) / 8 / 2 * 2),
                                         scene.sensor_width, scene.sensor_height});
    std::uint32_t const columns = (scene.sensor_width - side) / 2;
    return {2 * bounce(frame * 4, columns), bounce(frame * 6, scene.sensor_height - side), side};
}

light object_light(scene_kind kind) {
    return kind == scene_kind::dim ? light{80, 70, 50} : light{3800, 1400, 500};
}

}  // namespace chart

/// A sum of 12 uniform numbers is nearly normal and, unlike library functions, identical on every machine.
std::vector<std::int16_t> noise_samples(std::uint64_t seed, std::size_t extra) {
    constexpr int uniform_numbers = 12;  // their sum has variance 1 in units of their range
    constexpr std::int32_t range = 256;
    std::vector<std::int16_t> samples(noise_period + extra);
    for (std::size_t index = 0; index < samples.size(); ++index) {
        std::int32_t sum = -uniform_numbers * range / 2;
        std::uint64_t bits = 0;
        for (int number = 0; number < uniform_numbers; ++number) {
            bits = number % 8 == 0 ? scramble(seed ^ scramble(2 * index + static_cast<std::uint64_t>(number / 8)))
                                   : bits >> 8U;
            sum += static_cast<std::int32_t>(bits & 0xFFU);
        }
        samples[index] = static_cast<std::int16_t>(sum + uniform_numbers / 2);
    }
    return samples;
}

std::size_t noise_offset(std::uint64_t seed, std::uint64_t frame, std::uint32_t y) {
    return scramble(seed + scramble(frame << 20U ^ y)) % noise_period;
}

}  // namespace camsim
