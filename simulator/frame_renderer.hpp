#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "pixel_format.hpp"
#include "pixel_packing.hpp"
#include "scene.hpp"
#include "tone.hpp"

namespace camsim {

/// Everything that the bytes of a frame depend on, apart from the scene.
struct frame_settings {
    std::uint64_t frame_number = 0;  ///< counts exposures since power-up, skipped ones too
    double exposure_us = 1000.0;
    double gain = 1.0;  ///< linear factor, all gains multiplied
    region area;
    pixel_format format = pixel_format::mono8;
    tone bent_by{};
};

/// A frame, completely: the first line of a truth file and one of its others.
struct frame_description {
    scene_settings scene;
    frame_settings frame;
};

/// Computes frames of one scene, line by line, without allocating.
///
/// A pixel's 12-bit value is black level + light * illumination * exposure / reference exposure * gain + noise * gain,
/// held between 0 and 4095. The frame's tone bends it, then the pixel format takes its share of it. Light and noise are
/// tables that are scaled when exposure or gain change, so that a pixel costs two additions and two comparisons.
class frame_renderer {
public:
    explicit frame_renderer(scene_settings const& scene);

    void prepare(frame_settings const& frame);
    void render_lines(std::uint32_t first_line, std::uint32_t line_count, std::span<std::byte> out);

    std::span<std::uint16_t const> line_values(std::uint32_t line);

    frame_settings const& frame() const { return frame_; }

private:
    /// One pattern, or the object, as the sensor's even and odd lines see it.
    struct light_table {
        std::array<std::vector<std::uint16_t>, 2> light;
        std::array<std::vector<std::int16_t>, 2> signal;  ///< light scaled by exposure and gain
    };

    void build_light_tables();
    void scale_tables();
    void build_curves();
    void expose_line(std::uint32_t sensor_line);
    void bend_line(std::uint32_t sensor_line);

    scene_settings scene_;
    frame_settings frame_;
    bool colour_ = false;              ///< the light tables in force are those of the Bayer mosaic
    std::vector<light_table> tables_;  ///< the chart's bands, then the object
    std::vector<std::int16_t> noise_samples_;
    std::vector<std::int16_t> noise_;  ///< scaled by deviation and gain
    std::vector<tone_curve> curves_;   ///< none, or one for each channel that the picture has
    std::vector<std::uint16_t> line_;  ///< 12-bit values of the line in work
};

void render_frame(frame_description const& description, std::span<std::byte> out);

}  // namespace camsim
