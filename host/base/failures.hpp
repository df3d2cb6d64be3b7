// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace mediagrabber {

/// Thrown for a command line or a configuration text that will be refused again each time: exit_status::usage.
class usage_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Thrown for a failure that may pass until a later attempt, for example missing memory, a socket in use or no space
/// on a disk: exit_status::unavailable.
class unavailable_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace mediagrabber
