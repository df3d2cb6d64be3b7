#include "frame_renderer.hpp"

#include <algorithm>
#include <stdexcept>

namespace camsim {

namespace {

constexpr std::int16_t saturation = 4095;
/// Scaled light and noise stay so far inside 16 bits that their sum with the black level cannot overflow.
constexpr double largest_signal = 8191.0;
constexpr double largest_noise = 8191.0;

std::uint32_t luminance(light const& colour) {
    return (2U * colour.red + 5U * colour.green + colour.blue) / 8U;
}

/// The mosaic RG/GB: even lines R G R G, odd lines G B G B.
std::uint16_t mosaic(light const& colour, std::uint32_t x, std::uint32_t line_parity) {
    bool const even_column = x % 2 == 0;
    if (line_parity == 0) {
        return even_column ? colour.red : colour.green;
    }
    return even_column ? colour.green : colour.blue;
}

/// The innermost loop. 16-bit arithmetic throughout, so that a compiler fills its vectors with as many pixels as they
/// hold.
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
      line_(scene.sensor_width) {
    build_light_tables();
    scale_tables();
}

/// Chooses the frame that the following lines belong to.
/// \throws std::invalid_argument when its region does not lie on the sensor
void frame_renderer::prepare(frame_settings const& frame) {
    if (std::uint64_t{frame.area.offset_x} + frame.area.width > scene_.sensor_width ||
        std::uint64_t{frame.area.offset_y} + frame.area.height > scene_.sensor_height) {
        throw std::invalid_argument("the frame's region does not lie on the sensor");
    }
    bool const colour = frame.format == pixel_format::bayer_rg8;
    bool const new_curves = frame.bent_by != frame_.bent_by || colour != colour_;
    bool const rescale = frame.exposure_us != frame_.exposure_us || frame.gain != frame_.gain || colour != colour_;
    frame_ = frame;
    if (colour != colour_) {
        colour_ = colour;
        build_light_tables();
    }
    if (rescale) {
        scale_tables();
    }
    if (new_curves) {
        build_curves();
    }
}

/// Every pattern is laid out one period longer than the sensor, so that a line reads it from any displacement on
/// without wrapping.
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
                light_values[x] = colour_ ? mosaic(colour, x, parity) : static_cast<std::uint16_t>(luminance(colour));
            }
        }
    }
}

void frame_renderer::scale_tables() {
    double const factor = scene_.illumination * frame_.exposure_us / reference_exposure_us * frame_.gain;
    for (light_table& table : tables_) {
        for (std::size_t parity = 0; parity < 2; ++parity) {
            std::ranges::transform(table.light[parity], table.signal[parity].begin(), [factor](std::uint16_t value) {
                return static_cast<std::int16_t>(std::min(value * factor + 0.5, largest_signal));
            });
        }
    }
    double const deviation = scene_.noise * frame_.gain / noise_sample_deviation;
    std::ranges::transform(noise_samples_, noise_.begin(), [deviation](std::int16_t sample) {
        return static_cast<std::int16_t>(std::clamp(sample * deviation, -largest_noise, largest_noise));
    });
}

void frame_renderer::build_curves() {
    curves_.clear();
    std::size_t const channels = colour_ ? lut_channels : 1;
    if (frame_.bent_by.lut) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            curves_.push_back(curve_of(frame_.bent_by.lut->channels[channel]));
        }
    } else if (frame_.bent_by.gamma) {
        curves_.assign(channels, curve_of(*frame_.bent_by.gamma));
    }
}

/// Bends the line in work, each pixel by the curve of its colour.
void frame_renderer::bend_line(std::uint32_t sensor_line) {
    if (curves_.empty()) {
        return;
    }
    constexpr auto red = static_cast<std::size_t>(lut_channel::red);
    constexpr auto green = static_cast<std::size_t>(lut_channel::green);
    constexpr auto blue = static_cast<std::size_t>(lut_channel::blue);
    bool const red_line = sensor_line % 2 == 0;
    tone_curve const& even = curves_[!colour_ || red_line ? red : green];
    tone_curve const& odd = !colour_ ? curves_[red] : curves_[red_line ? green : blue];
    for (std::size_t x = 0; x + 1 < frame_.area.width; x += 2) {
        line_[x] = even[line_[x]];
        line_[x + 1] = odd[line_[x + 1]];
    }
}

/// Computes the 12-bit values of the region's share of a sensor line: the band's pattern, with the object in front of
/// it.
void frame_renderer::expose_line(std::uint32_t sensor_line) {
    std::uint32_t const left = frame_.area.offset_x;
    std::uint32_t const right = left + frame_.area.width;
    std::size_t const parity = sensor_line % 2;
    auto const black = static_cast<std::int16_t>(scene_.black_level);
    std::int16_t const* const noise = noise_.data() + noise_offset(scene_.seed, frame_.frame_number, sensor_line);
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

/// \param first_line,line_count lines of the region, counted from its top
/// \param out receives line_count * line_bytes(width, format) bytes
void frame_renderer::render_lines(std::uint32_t first_line, std::uint32_t line_count, std::span<std::byte> out) {
    std::size_t const bytes = line_bytes(frame_.area.width, frame_.format);
    for (std::uint32_t line = 0; line < line_count; ++line) {
        pack_line(line_values(first_line + line), frame_.format, out.subspan(line * bytes, bytes));
    }
}

/// \param line of the region, counted from its top
/// \return the 12-bit values of its pixels, valid until the next line is computed
std::span<std::uint16_t const> frame_renderer::line_values(std::uint32_t line) {
    expose_line(frame_.area.offset_y + line);
    bend_line(frame_.area.offset_y + line);
    return std::span(line_).first(frame_.area.width);
}

/// The frame's exact bytes, in one call; who renders many frames of a scene keeps a frame_renderer instead.
/// \param out exactly frame_bytes() of the description's region and format
/// \throws std::invalid_argument when `out` has another size, or the region does not lie on the sensor
void render_frame(frame_description const& description, std::span<std::byte> out) {
    if (out.size() != frame_bytes(description.frame.area, description.frame.format)) {
        throw std::invalid_argument("the memory for a rendered frame has not the frame's size");
    }
    frame_renderer renderer(description.scene);
    renderer.prepare(description.frame);
    renderer.render_lines(0, description.frame.area.height, out);
}

}  // namespace camsim
