// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Command line of gevctl.

#include <iosfwd>

#include "report/failure.hpp"

namespace gevctl {

/// Runs the command that the command line names. Failures are printed to `errors`.
exit_status run_command_line(int argc, char const* const* argv, std::ostream& out, std::ostream& errors);

}  // namespace gevctl
