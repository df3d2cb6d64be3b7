// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace mediagrabber {

/// Thrown for a command line or a configuration text that will be refused again each time: exit_status::usage.
class usage_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Thrown for what this machine refuses at present and a later attempt may get, for example memory, a socket or space
/// on a disk: exit_status::unavailable.
class unavailable_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace mediagrabber
