// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace mediagrabber {

/// What a recording does at one moment, in one word, and why it waits.
struct recording_state {
    enum class kind : std::uint8_t {
        starting,   ///< no frame has arrived yet, and no attempt has failed
        recording,  ///< frames arrive
        buffering,  ///< frames arrive in the pre-trigger buffer
        waiting,    ///< frames have stopped arriving, or the camera cannot be used
        stopping,   ///< a stop was requested
    };
    kind what = kind::starting;
    std::string reason;  ///< of waiting; empty in other states

    /// "recording"
    char const* name() const;
};

/// What the state follows from.
struct recording_activity {
    bool stop_requested = false;
    bool has_pretrigger = false;
    char const* failure = "";  ///< why the last run of the plug-in ended; empty if a frame has arrived since
    std::optional<double> seconds_since_frame = {};
    std::uint32_t period_us = 0;  ///< 0: not known
};

recording_state state_of(recording_activity const& activity);

}  // namespace mediagrabber
