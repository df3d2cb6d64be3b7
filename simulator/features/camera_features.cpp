// SPDX-License-Identifier: MIT
#include "features/camera_features.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace camsim {

std::vector<feature> camera_features(camera_state& state) {
    std::vector<feature> all;
    for (auto* const category :
         {device_features, image_format_features, acquisition_features, analog_features, level_features, lut_features,
          line_features, chunk_features, transport_layer_features, user_set_features}) {
        std::vector<feature> features = category(state);
        std::ranges::move(features, std::back_inserter(all));
    }
    std::vector<feature> reduced = apply(state.options.feature_set, std::move(all));
    state.initial = state.settings();
    return reduced;
}

}  // namespace camsim
