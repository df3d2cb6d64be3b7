// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "config/configuration.hpp"
#include "control/control_message.hpp"
#include "plugin/delivery_check.hpp"
#include "plugin/update_confirmation.hpp"

namespace mediagrabber {

/// What is known about the camera's values.
struct known_values {
    update_confirmation::camera_values latest;  ///< of the latest frame
    delivery_check::all_values delivery{};      ///< region and frame rate
};

/// The configured values of keys, and the camera's where it reports them: the answer of `mediagrabber get`. "line"
/// stands for all [[line]] tables. \param active  configuration \throws setting_refused if a key does not exist
change_answer read_values(std::vector<std::string> const& keys, configuration const& active,
                          known_values const& camera);

}  // namespace mediagrabber
