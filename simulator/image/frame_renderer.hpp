// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "image/pfnc.hpp"
#include "image/pixel_packing.hpp"
#include "image/scene.hpp"
#include "image/tone.hpp"

namespace camsim {

/// The settings that determine the bytes of a frame, apart from the scene.
struct frame_settings {
    std::uint64_t frame_number = 0;  ///< counts exposures since power-up, dropped frames included
    double exposure_us = 1000.0;
    double gain = 1.0;  ///< linear factor, product of all gains
    region area;
    pixel_format format = pixel_format::mono8;
    tone applied_tone{};
};

/// The complete description of a frame: the scene from the first line of a truth file, the settings from another line.
struct frame_description {
    scene_settings scene;
    frame_settings frame;
};

/// Renders frames of a scene, line by line, without allocating memory per line.
///
/// The 12-bit value of a pixel is black level + light * illumination * exposure / reference exposure * gain
/// + noise * gain, limited to 0 to 4095. The frame's tone is applied to it, then the pixel format is encoded. Light and
/// noise are tables that are scaled when exposure or gain change, so a pixel costs two additions and two comparisons.
/// The light of an image is scaled for each frame.
///
/// The result depends on the settings only: the same frame has the same bytes in any run on any machine. Used by one
/// thread; each thread that renders has a renderer of its own.
class frame_renderer {
public:
    explicit frame_renderer(scene_settings const& scene);

    /// Selects the frame that following calls refer to.
    /// \throws std::invalid_argument if its region is not inside the sensor
    void prepare(frame_settings const& frame);

    /// \param first_line,line_count lines of the region, counted from its top
    /// \param out receives line_count * line_bytes(width, format) bytes
    void render_lines(std::uint32_t first_line, std::uint32_t line_count, std::span<std::byte> out);

    /// \param line line of the region, counted from its top
    /// \return the 12-bit values of its pixels, valid until the next line is rendered
    std::span<std::uint16_t const> line_values(std::uint32_t line);

    frame_settings const& frame() const { return frame_; }

private:
    /// A band's pattern, or the object, as the sensor's even and odd lines receive it.
    struct light_table {
        std::array<std::vector<std::uint16_t>, 2> light;
        std::array<std::vector<std::int16_t>, 2> signal;  ///< light scaled by exposure and gain
    };

    void build_light_tables();
    double signal_factor() const;  ///< of the light
    void scale_tables();
    void build_curves();
    void expose_line(std::uint32_t sensor_line);
    void expose_image_line(std::uint32_t sensor_line, std::int16_t const* noise);
    void apply_tone(std::uint32_t sensor_line);

    scene_settings scene_;
    frame_settings frame_;
    cfa filters_ = cfa::none;          ///< that the light tables are built for
    std::vector<light_table> tables_;  ///< the chart's bands, then the object
    std::vector<std::int16_t> noise_samples_;
    std::vector<std::int16_t> noise_;         ///< scaled by deviation and gain
    std::vector<tone_curve> curves_;          ///< none, or one for each colour channel
    std::vector<std::uint16_t> line_;         ///< 12-bit values of the current line
    std::vector<std::int16_t> image_signal_;  ///< of a line of the scene's images
};

/// Renders a frame in one call. Programs that render many frames of a scene keep a frame_renderer instead.
/// \param out exactly frame_bytes() of the description's region and format
/// \throws std::invalid_argument if `out` has another size or the region is not inside the sensor
void render_frame(frame_description const& description, std::span<std::byte> out);

}  // namespace camsim
