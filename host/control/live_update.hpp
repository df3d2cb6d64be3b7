// SPDX-License-Identifier: MIT
#pragma once

#include "config/configuration_store.hpp"
#include "control/control_message.hpp"
#include "plugin/signal_latch.hpp"
#include "plugin/update_confirmation.hpp"

namespace mediagrabber {

/// Applies the settings of a request to the running plug-in: stages them, waits until a frame has arrived with them,
/// and compares the requested values with those of the camera. May be called from any thread but the plug-in's. \throws
/// setting_refused if a setting is not valid; nothing is changed then
change_answer change_while_running(change_request const& wanted, configuration_store& configurations,
                                   update_confirmation& confirmation, signal_latch& signals);

/// Compares requested values with those that the camera reports.
/// \param requested  the active configuration, with the settings
change_answer compare_with_camera(std::vector<setting> const& settings, configuration const& requested,
                                  update_confirmation::camera_values const& found);

}  // namespace mediagrabber
