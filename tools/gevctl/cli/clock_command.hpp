// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// `gevctl clock`.

#include <iosfwd>
#include <string>

#include "report/failure.hpp"

namespace gevctl {

struct clock_options {
    std::string camera;
    double seconds = 2.0;  ///< of one measurement
    bool watch = false;
    bool json = false;
    bool reference = false;  ///< as a line for the configuration of mediagrabber
};
/// Compares the camera's clock with this machine's real-time clock.
exit_status clock_command(clock_options const& options, std::ostream& out);

}  // namespace gevctl
