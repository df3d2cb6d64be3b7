// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>

#include "base/exit_status.hpp"

namespace mediagrabber {

/// `mediagrabber list`: the recordings of this user and the services on this machine, one line for each. All are asked
/// at the same time, so that one that does not answer delays the command by a second and no more.
/// \return exit_status::timed_out if a recording does not answer
exit_status list_command(bool json, std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
