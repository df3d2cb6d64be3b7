// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>

#include "base/exit_status.hpp"
#include "control/control_message.hpp"

namespace mediagrabber {

/// Which recording a command addresses. At most one member has a value; otherwise the default socket is used.
struct recording_address {
    std::filesystem::path socket;  ///< control socket
    std::string service;           ///< NAME of mediagrabber\@NAME
    std::uint32_t instance = 0;    ///< log.instance of a recording with the default socket
};

/// \throws setting_refused  if the service is not running, or this user has no runtime directory
std::filesystem::path control_socket_of(recording_address const& address);

/// Sends a request to a recording and prints the answer.
/// \param out  receives the answer if it is a success, otherwise `errors` does
/// \return the status of the answer
exit_status send_request(std::filesystem::path const& socket, change_request const& request, std::ostream& out,
                         std::ostream& errors);

}  // namespace mediagrabber
