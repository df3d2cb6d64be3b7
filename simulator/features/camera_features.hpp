// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "device/camera_state.hpp"
#include "genicam/feature.hpp"

namespace camsim {

/// The features of a camera, by category (SFNC). Their functions act on `state`; callers hold its mutex, and `state`
/// must outlive them.
std::vector<feature> device_features(camera_state& state);
std::vector<feature> image_format_features(camera_state& state);
std::vector<feature> acquisition_features(camera_state& state);
std::vector<feature> analog_features(camera_state& state);
std::vector<feature> level_features(camera_state& state);
std::vector<feature> line_features(camera_state& state);
std::vector<feature> lut_features(camera_state& state);
std::vector<feature> chunk_features(camera_state& state);
std::vector<feature> transport_layer_features(camera_state& state);
std::vector<feature> user_set_features(camera_state& state);

/// All features, in the order of the GenICam XML, reduced by the options. Entries that the options remove are replaced
/// in `state`, too; the settings that result are the state's initial ones. \throws std::invalid_argument if the options
/// name a feature or entry that the camera does not have
std::vector<feature> camera_features(camera_state& state);

}  // namespace camsim
