// SPDX-License-Identifier: MIT
#include "image/frame_renderer.hpp"

#include <algorithm>
#include <stdexcept>

namespace camsim {

namespace {

constexpr std::int16_t saturation = 4095;
/// Limits of scaled light and noise: their sum with the black level (up to 1023) fits in 16 bits.
constexpr double max_signal = 8191.0;
constexpr double max_noise = 8191.0;

std::uint32_t luminance(light const& colour) {
    return (2U * colour.red + 5U * colour.green + colour.blue) / 8U;
}

/// The colour that the Bayer pattern RG/GB passes at a pixel.
std::uint16_t bayer_value(light const& colour, std::uint32_t x, std::uint32_t line_parity) {
    bool const even_column = x % 2 == 0;
    if (line_parity == 0) {
        return even_column ? colour.red : colour.green;
    }
    return even_column ? colour.green : colour.blue;
}

/// The innermost loop. It uses 16-bit arithmetic only, so that the compiler vectorises it with as many pixels as
/// possible.
void expose(std::int16_t const* signal, std::int16_t const* noise, std::int16_t black, std::span<std::uint16_t> out) {
    for (std::size_t index = 0; index < out.size(); ++index) {
        auto value = static_cast<std::int16_t>(signal[index] + noise[index] + black);
        value = value < 0 ? std::int16_t{0} : value;
        value = value > saturation ? saturation : value;
        out[index] = static_cast<std::uint16_t>(value);
    }
}

}  // namespace

frame_renderer::frame_renderer(scene_settings const& scene)
    : scene_(scene),
      tables_(chart::band_count + 1),
      noise_samples_(noise_samples(scene.seed, scene.sensor_width)),
      noise_(noise_samples_.size()),
      line_(scene.sensor_width),
      image_signal_(scene.images != nullptr ? scene.sensor_width : 0) {
    build_light_tables();
    scale_tables();
}

void frame_renderer::prepare(frame_settings const& frame) {
    if (std::uint64_t{frame.area.offset_x} + frame.area.width > scene_.sensor_width ||
        std::uint64_t{frame.area.offset_y} + frame.area.height > scene_.sensor_height) {
        throw std::invalid_argument("the frame's region is not inside the sensor");
    }
    cfa const filters = cfa_of(frame.format);
    bool const new_curves = frame.applied_tone != frame_.applied_tone || filters != filters_;
    bool const rescale = frame.exposure_us != frame_.exposure_us || frame.gain != frame_.gain || filters != filters_;
    frame_ = frame;
    if (filters != filters_) {
        filters_ = filters;
        build_light_tables();
    }
    if (rescale) {
        scale_tables();
    }
    if (new_curves) {
        build_curves();
    }
}

/// Each pattern is one period longer than the sensor, so that a line reads it from any displacement without wrapping.
void frame_renderer::build_light_tables() {
    for (std::uint32_t index = 0; index < tables_.size(); ++index) {
        bool const is_object = index == chart::band_count;
        for (std::uint32_t parity = 0; parity < 2; ++parity) {
            std::vector<std::uint16_t>& light_values = tables_[index].light[parity];
            light_values.resize(scene_.sensor_width + chart::period);
            tables_[index].signal[parity].resize(light_values.size());
            for (std::uint32_t x = 0; x < light_values.size(); ++x) {
                light const colour = is_object ? chart::object_light(scene_.kind)
                                               : chart::pattern(scene_.kind, index, x % chart::period);
                light_values[x] = filters_ == cfa::bayer_rg ? bayer_value(colour, x, parity)
                                                            : static_cast<std::uint16_t>(luminance(colour));
            }
        }
    }
}

double frame_renderer::signal_factor() const {
    return scene_.illumination * frame_.exposure_us / reference_exposure_us * frame_.gain;
}

void frame_renderer::scale_tables() {
    double const factor = signal_factor();
    for (light_table& table : tables_) {
        for (std::size_t parity = 0; parity < 2; ++parity) {
            std::ranges::transform(table.light[parity], table.signal[parity].begin(), [factor](std::uint16_t value) {
                return static_cast<std::int16_t>(std::min(value * factor + 0.5, max_signal));
            });
        }
    }
    double const deviation = scene_.noise * frame_.gain / noise_sample_deviation;
    std::ranges::transform(noise_samples_, noise_.begin(), [deviation](std::int16_t sample) {
        return static_cast<std::int16_t>(std::clamp(sample * deviation, -max_noise, max_noise));
    });
}

void frame_renderer::build_curves() {
    curves_.clear();
    std::size_t const channels = filters_ == cfa::bayer_rg ? lut_channels : 1;
    if (frame_.applied_tone.lut) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            curves_.push_back(curve_of(frame_.applied_tone.lut->channels[channel]));
        }
    } else if (frame_.applied_tone.gamma) {
        curves_.assign(channels, curve_of(*frame_.applied_tone.gamma));
    }
}

/// Applies the tone curve of its colour to each pixel of the current line.
void frame_renderer::apply_tone(std::uint32_t sensor_line) {
    if (curves_.empty()) {
        return;
    }
    constexpr auto red = static_cast<std::size_t>(lut_channel::red);
    constexpr auto green = static_cast<std::size_t>(lut_channel::green);
    constexpr auto blue = static_cast<std::size_t>(lut_channel::blue);
    bool const monochrome = filters_ == cfa::none;
    bool const red_line = sensor_line % 2 == 0;
    tone_curve const& even = curves_[monochrome || red_line ? red : green];
    tone_curve const& odd = monochrome ? curves_[red] : curves_[red_line ? green : blue];
    for (std::size_t x = 0; x + 1 < frame_.area.width; x += 2) {
        line_[x] = even[line_[x]];
        line_[x + 1] = odd[line_[x + 1]];
    }
}

/// Computes the 12-bit values of a sensor line inside the region: the band's pattern with the object in front of it.
void frame_renderer::expose_line(std::uint32_t sensor_line) {
    std::uint32_t const left = frame_.area.offset_x;
    std::uint32_t const right = left + frame_.area.width;
    std::size_t const parity = sensor_line % 2;
    auto const black = static_cast<std::int16_t>(scene_.black_level);
    std::int16_t const* const noise = noise_.data() + noise_offset(scene_.seed, frame_.frame_number, sensor_line);
    if (scene_.images != nullptr) {
        expose_image_line(sensor_line, noise);
        return;
    }
    std::int16_t const* const band = tables_[chart::band_of(sensor_line)].signal[parity].data() +
                                     chart::displacement(frame_.frame_number, sensor_line);
    std::int16_t const* const object = tables_[chart::band_count].signal[parity].data();
    auto const expose_columns = [&](std::int16_t const* signal, std::uint32_t from, std::uint32_t to) {
        if (from < to) {
            expose(signal + from, noise + from, black, std::span(line_).subspan(from - left, to - from));
        }
    };

    chart::square const square = chart::object(scene_, frame_.frame_number);
    if (sensor_line < square.top || sensor_line >= square.top + square.side) {
        expose_columns(band, left, right);
        return;
    }
    std::uint32_t const object_left = std::clamp(square.left, left, right);
    std::uint32_t const object_right = std::clamp(square.left + square.side, left, right);
    expose_columns(band, left, object_left);
    expose_columns(object, object_left, object_right);
    expose_columns(band, object_right, right);
}

void frame_renderer::expose_image_line(std::uint32_t sensor_line, std::int16_t const* noise) {
    image_set const& images = *scene_.images;
    std::size_t const index = frame_.frame_number % images.count();
    std::size_t const samples = images.samples_per_pixel(index);
    auto const line = images.line(index, sensor_line);
    double const factor = signal_factor();
    for (std::uint32_t column = 0; column < frame_.area.width; ++column) {
        std::uint32_t const x = frame_.area.offset_x + column;
        std::uint16_t const* const pixel = &line[x * samples];
        light const colour{pixel[0], pixel[samples / 2], pixel[samples - 1]};
        std::uint32_t const value =
            filters_ == cfa::bayer_rg ? bayer_value(colour, x, sensor_line % 2) : luminance(colour);
        image_signal_[column] = static_cast<std::int16_t>(std::min(value * factor + 0.5, max_signal));
    }
    expose(image_signal_.data(), noise + frame_.area.offset_x, static_cast<std::int16_t>(scene_.black_level),
           std::span(line_).first(frame_.area.width));
}

void frame_renderer::render_lines(std::uint32_t first_line, std::uint32_t line_count, std::span<std::byte> out) {
    std::size_t const bytes = line_bytes(frame_.area.width, frame_.format);
    for (std::uint32_t line = 0; line < line_count; ++line) {
        pack_line(line_values(first_line + line), frame_.format, out.subspan(line * bytes, bytes));
    }
}

std::span<std::uint16_t const> frame_renderer::line_values(std::uint32_t line) {
    expose_line(frame_.area.offset_y + line);
    apply_tone(frame_.area.offset_y + line);
    return std::span(line_).first(frame_.area.width);
}

void render_frame(frame_description const& description, std::span<std::byte> out) {
    if (out.size() != frame_bytes(description.frame.area, description.frame.format)) {
        throw std::invalid_argument("the buffer for a rendered frame does not have the frame's size");
    }
    frame_renderer renderer(description.scene);
    renderer.prepare(description.frame);
    renderer.render_lines(0, description.frame.area.height, out);
}

}  // namespace camsim
