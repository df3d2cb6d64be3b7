// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "base/exit_status.hpp"
#include "base/unix_socket.hpp"
#include "control/control_client.hpp"

namespace mediagrabber {

struct query_options {
    recording_address recording;
    bool json = false;
    std::vector<std::string> keys;  ///< of `get`
};

/// What a control socket of this machine answers.
struct found_recording {
    found_control_socket socket;
    nlohmann::json status = {};  ///< as /status.json of the page
    std::string error = {};      ///< empty: `status` is valid
    bool dead = false;           ///< no process listens

    /// "mediagrabber\@NAME", or the path of the control socket
    std::string place() const {
        return socket.service.empty() ? socket.path.string() : "mediagrabber@" + socket.service;
    }
};

/// The recordings of this user and the services on this machine. All are asked at the same time, so that one that does
/// not answer delays the call by a second and no more.
std::vector<found_recording> find_recordings();

/// `mediagrabber status`: what a recording does, as the live page shows it.
/// \throws std::exception with a message for the user
exit_status status_command(query_options const& options, std::ostream& out, std::ostream& errors);

/// `mediagrabber get`: the configured values of keys of a recording, and the camera's where it reports them.
/// \throws std::exception with a message for the user
exit_status get_command(query_options const& options, std::ostream& out, std::ostream& errors);

/// `mediagrabber list`: the recordings of this user and the services on this machine, one line for each.
/// \return exit_status::timed_out if a recording does not answer
exit_status list_command(bool json, std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
