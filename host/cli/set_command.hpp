// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "base/exit_status.hpp"
#include "control/control_client.hpp"

namespace mediagrabber {

struct set_options {
    recording_address recording;
    double timeout_s = 5.0;
    bool restart = false;               ///< permit changes that restart acquisition
    std::vector<std::string> settings;  ///< KEY=VALUE
};

/// `mediagrabber set`: changes values of a running mediagrabber. Returns when a frame has confirmed them.
/// \throws std::exception with a message for the user
exit_status set_command(set_options const& options, std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
