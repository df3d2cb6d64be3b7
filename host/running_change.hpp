#pragma once

#include "change_confirmation.hpp"
#include "configuration_store.hpp"
#include "control_message.hpp"
#include "signal_latch.hpp"

namespace mediagrabber {

/// Has the settings of a request applied by the plug-in that is running, waits until a frame has come since, and says
/// what the camera has made of them. \throws setting_refused
change_answer change_while_running(change_request const& wanted, configuration_store& configurations,
                                   change_confirmation& confirmation, signal_latch& signals);

/// What to say of settings that are in force, by what the camera has.
change_answer judge(std::vector<setting> const& settings, configuration const& asked,
                    change_confirmation::camera_values const& found);

}  // namespace mediagrabber
