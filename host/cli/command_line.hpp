// SPDX-License-Identifier: MIT
#pragma once

#include <ostream>

#include "base/exit_status.hpp"

namespace mediagrabber {

/// Parses a command line and executes its command. No exception leaves it: errors are printed.
/// \param out     receives results, and the help that was requested
/// \param errors  receives error messages
/// \return the exit status of the process
exit_status run_command_line(int argc, char const* const* argv, std::ostream& out, std::ostream& errors);

}  // namespace mediagrabber
