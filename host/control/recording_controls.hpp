// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include "control/control_message.hpp"

namespace mediagrabber {

/// The requests that a running recording accepts, from any thread. Except for `stop`, each blocks until a frame
/// confirms the effect or its timeout expires, and returns the values that the camera has then.
struct recording_controls {
    /// Changes values; may restart acquisition. \throws setting_refused
    std::function<change_answer(change_request const&)> change;
    std::function<change_answer()> reload;
    /// Calculates a histogram-equalised LUT. \param in_12_bits  measure a 12-bit image for it
    std::function<change_answer(bool in_12_bits)> calculate_lut;
    /// Returns at once.
    std::function<change_answer()> stop;
};

}  // namespace mediagrabber
