// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "base/exit_status.hpp"
#include "cli/control_client.hpp"

namespace mediagrabber {

struct query_options {
    recording_address recording;
    bool json = false;
    std::vector<std::string> keys;  ///< of `get`
};

/// `mediagrabber status`: what a recording does, as the live page shows it.
/// \throws std::exception with a message for the user
exit_status status_command(query_options const& options, std::ostream& out, std::ostream& errors);

/// `mediagrabber get`: the configured values of keys of a recording, and the camera's where it reports them.
/// \throws std::exception with a message for the user
exit_status get_command(query_options const& options, std::ostream& out, std::ostream& errors);

/// `mediagrabber list`: the recordings of this user and the services on this machine, one line for each. All are asked
/// at the same time, so that one that does not answer delays the command by a second and no more.
/// \return exit_status::timed_out if a recording does not answer
exit_status list_command(bool json, std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
