#pragma once

#include <functional>
#include <string>

#include "control_message.hpp"

namespace mediagrabber {

/// What can be asked of a recording that is running; from any thread. Each waits until the camera has followed, or
/// gives up, and answers with what the camera has then.
struct recording_controls {
    /// Values; those that need another run of the plug-in, too. \throws setting_refused
    std::function<change_answer(change_request const&)> change;
    std::function<change_answer()> reload;
    /// Calculates a look-up table from the picture; `in_12_bits`: from a 12-bit one.
    std::function<change_answer(bool in_12_bits)> calculate_table;
    /// Returns at once.
    std::function<change_answer()> stop;
};

}  // namespace mediagrabber
