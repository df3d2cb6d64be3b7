// SPDX-License-Identifier: MIT
#include <algorithm>

#include "device/sensor.hpp"
#include "features/camera_features.hpp"

namespace camsim {

namespace {

/// Reduces the frame rate if a region with more lines takes longer to read out.
void limit_frame_rate(camera_state& state) {
    state.image.frame_rate = std::min(state.image.frame_rate, sensor::max_frame_rate(state.image.area.height));
}

feature sensor_side(std::string name, std::string tooltip, std::uint32_t pixels) {
    return {.name = std::move(name),
            .category = "ImageFormatControl",
            .tooltip = std::move(tooltip),
            .unit = "px",
            .visible_to = visibility::expert,
            .access = access_mode::read_only,
            .kind = integer_kind{.get = [pixels] { return std::int64_t{pixels}; }}};
}

/// Size and offset in one direction: two features that share limits.
struct direction {
    std::string size_name;
    std::string offset_name;
    std::uint32_t sensor_side;
    std::uint32_t step;
    std::uint32_t& size;
    std::uint32_t& offset;
};

limit<std::int64_t> max_size(camera_state const& state, direction const& along) {
    if (!state.options.dependent_limits) {
        return std::int64_t{along.sensor_side};
    }
    return [side = along.sensor_side, &offset = along.offset] { return std::int64_t{side} - offset; };
}

limit<std::int64_t> max_offset(camera_state const& state, direction const& along) {
    if (!state.options.dependent_limits) {
        return std::int64_t{along.sensor_side} - sensor::min_side;
    }
    return [side = along.sensor_side, &size = along.size] { return std::int64_t{side} - size; };
}

feature size_feature(camera_state& state, direction const& along) {
    return {
        .name = along.size_name,
        .category = "ImageFormatControl",
        .tooltip = along.size_name + " of the region of interest",
        .unit = "px",
        .locked_while_acquiring = true,
        .invalidated_by = state.options.dependent_limits ? std::vector{along.offset_name} : std::vector<std::string>{},
        .kind = integer_kind{.get = [&size = along.size] { return std::int64_t{size}; },
                             .set =
                                 [&state, &size = along.size](std::int64_t value) {
                                     size = static_cast<std::uint32_t>(value);
                                     limit_frame_rate(state);
                                     return gvcp::status::success;
                                 },
                             .minimum = std::int64_t{sensor::min_side},
                             .maximum = max_size(state, along),
                             .increment = along.step}};
}

feature offset_feature(camera_state& state, direction const& along) {
    return {
        .name = along.offset_name,
        .category = "ImageFormatControl",
        .tooltip = along.offset_name + " of the region of interest",
        .unit = "px",
        .locked_while_acquiring = true,
        .invalidated_by = state.options.dependent_limits ? std::vector{along.size_name} : std::vector<std::string>{},
        .kind = integer_kind{.get = [&offset = along.offset] { return std::int64_t{offset}; },
                             .set =
                                 [&offset = along.offset](std::int64_t value) {
                                     offset = static_cast<std::uint32_t>(value);
                                     return gvcp::status::success;
                                 },
                             .maximum = max_offset(state, along),
                             .increment = along.step}};
}

feature pixel_format_feature(camera_state& state) {
    std::vector<enumeration_entry> entries;
    entries.reserve(pixel_formats.size());
    for (named_pixel_format const& one : pixel_formats) {
        entries.push_back({std::string(one.name), static_cast<std::int64_t>(one.format)});
    }
    return {.name = "PixelFormat",
            .category = "ImageFormatControl",
            .tooltip = "Format of the pixels on the wire",
            .locked_while_acquiring = true,
            .kind = enumeration_kind{.get = [&state] { return static_cast<std::int64_t>(state.image.format); },
                                     .set =
                                         [&state](std::int64_t value) {
                                             state.image.format = static_cast<pixel_format>(value);
                                             return gvcp::status::success;
                                         },
                                     .entries = std::move(entries)}};
}

}  // namespace

std::vector<feature> image_format_features(camera_state& state) {
    region& area = state.image.area;
    scene_settings const& scene = state.options.scene;
    direction const across{"Width", "OffsetX", scene.sensor_width, sensor::width_step, area.width, area.offset_x};
    direction const down{"Height", "OffsetY", scene.sensor_height, sensor::height_step, area.height, area.offset_y};
    std::vector<feature> features;
    features.push_back(sensor_side("SensorWidth", "Width of the sensor", scene.sensor_width));
    features.push_back(sensor_side("SensorHeight", "Height of the sensor", scene.sensor_height));
    features.push_back(sensor_side("WidthMax", "Maximum width", scene.sensor_width));
    features.push_back(sensor_side("HeightMax", "Maximum height", scene.sensor_height));
    features.push_back(size_feature(state, across));
    features.push_back(size_feature(state, down));
    features.push_back(offset_feature(state, across));
    features.push_back(offset_feature(state, down));
    features.push_back(pixel_format_feature(state));
    return features;
}

}  // namespace camsim
