// SPDX-License-Identifier: MIT
#include "device/camera_faults.hpp"

namespace camsim {

bool has_power(active_faults const& faults) {
    return !faults.find(fault_kind::power_cycle);
}

void apply_camera_faults(active_faults const& faults, camera_state& state) {
    auto const freeze = faults.find(fault_kind::freeze);
    auto const jump = faults.find(fault_kind::timestamp_jump);
    auto const wrap = faults.find(fault_kind::timestamp_wrap);
    auto const heat = faults.find(fault_kind::overheating);
    state.stream_frozen = freeze.has_value();
    state.control_unresponsive = freeze && freeze->flag("control");
    state.overheated_celsius = heat ? std::optional(heat->number("celsius")) : std::nullopt;
    state.clock.set_counter_error({.offset_s = jump ? jump->number("offset_s") : 0.0,
                                   .bits = wrap ? static_cast<unsigned>(wrap->number("bits")) : 64U});
}

}  // namespace camsim
