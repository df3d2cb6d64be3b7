// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <filesystem>
#include <ostream>
#include <string>

#include "base/exit_status.hpp"
#include "base/file_handle.hpp"
#include "control/control_message.hpp"

namespace mediagrabber {

/// Which recording a command addresses. At most one member has a value; otherwise the only one of this user.
struct recording_address {
    std::filesystem::path socket;  ///< control socket
    std::string service;           ///< NAME of mediagrabber\@NAME
    std::string name;              ///< camera.name of a recording with the default socket

    bool is_given() const { return !socket.empty() || !service.empty() || !name.empty(); }
};

/// \throws setting_refused  if the service is not running, this user has no runtime directory, or there is not exactly
///                          one recording to choose
std::filesystem::path control_socket_of(recording_address const& address);

/// Sends a request over a connection and waits for the answer.
/// \param patience  for each of the two, beyond the timeout of a change
/// \throws setting_refused  if there is no answer
change_answer ask(file_handle const& connection, change_request const& request, std::chrono::milliseconds patience);

/// Sends a request to a recording and prints the answer.
/// \param json  print the answer's result instead of its lines
/// \param out   receives the answer if it is a success, otherwise `errors` does
/// \return the status of the answer
exit_status send_request(std::filesystem::path const& socket, change_request const& request, bool json,
                         std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
