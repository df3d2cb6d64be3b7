// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "base/exit_status.hpp"
#include "control/control_client.hpp"

namespace mediagrabber {

struct signal_options {
    std::vector<std::string> words;  ///< PID REQUEST, or REQUEST alone with `recording`
    recording_address recording;     ///< used if it is given
    std::string event;               ///< of a trigger; empty: none
};

/// `mediagrabber signal`: sends a request to a recording, as a signal or over its control socket. Unlike `kill`, it
/// first verifies that the process is a mediagrabber that is recording; the signal would terminate most other
/// processes. \throws std::exception with a message for the user
exit_status signal_command(signal_options const& options, std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
