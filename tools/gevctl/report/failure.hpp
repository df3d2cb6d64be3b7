// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Why a command failed.

#include <stdexcept>
#include <string>

namespace gevctl {

/// Exit statuses of the program.
enum class exit_status {
    success = 0,
    differs = 1,        ///< the camera, or the other file, has other values
    usage = 2,          ///< the command line, a file, a name or a value is invalid
    no_camera = 3,      ///< no such camera, or several
    controlled = 4,     ///< another program has control
    refused = 5,        ///< the camera refused, or cannot do it in its current state
    lost = 6,           ///< the camera does not respond
    incomplete = 7,     ///< something could not be read or compared, and what could does not differ
    output = 8,         ///< the output could not be written
    interrupted = 128,  ///< a signal ended the command; `main` raises it again
};

/// A failure with a message for the user: what is wrong, where, what to do.
class failure : public std::runtime_error {
public:
    failure(exit_status status, std::string const& message) : std::runtime_error(message), status_(status) {}
    exit_status status() const { return status_; }

private:
    exit_status status_;
};

}  // namespace gevctl
