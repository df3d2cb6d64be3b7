// SPDX-License-Identifier: MIT
#pragma once

#include "device/camera_state.hpp"
#include "faults/active_faults.hpp"

/// The faults of the camera domain.
namespace camsim {

/// Whether the camera has power: fault power_cycle is not active.
bool has_power(active_faults const& faults);

/// Sets in `state` what faults freeze, timestamp_jump, timestamp_wrap and overheating change, or resets it if they are
/// not active.
/// Callers hold the state's mutex, and notify `changed` afterwards.
void apply_camera_faults(active_faults const& faults, camera_state& state);

}  // namespace camsim
