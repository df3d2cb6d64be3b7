// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <span>
#include <string>

#include "doctor/diagnosis.hpp"

namespace mediagrabber {

/// Files for /etc that make the recommended settings at each boot: a drop-in of sysctl.d, and a systemd unit for all
/// other commands. Nothing is written; the operator reviews and installs them.
///
/// \return the contents by path relative to /etc; empty if there is nothing to set
std::map<std::string, std::string> fix_plan(std::span<finding const> findings);

}  // namespace mediagrabber
