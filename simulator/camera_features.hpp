#pragma once

#include <vector>

#include "camera_state.hpp"
#include "feature.hpp"

namespace camsim {

/// The features of a camera, by category; their functions act on `state`, whose mutex whoever calls them holds.
std::vector<feature> device_features(camera_state& state);
std::vector<feature> image_format_features(camera_state& state);
std::vector<feature> acquisition_features(camera_state& state);
std::vector<feature> analog_features(camera_state& state);
std::vector<feature> level_features(camera_state& state);
std::vector<feature> line_features(camera_state& state);
std::vector<feature> lut_features(camera_state& state);
std::vector<feature> chunk_features(camera_state& state);
std::vector<feature> transport_layer_features(camera_state& state);

/// All that the camera has, in the order in which the description lists them.
/// \throws std::invalid_argument when the options refuse something that there is not
std::vector<feature> camera_features(camera_state& state);

}  // namespace camsim
