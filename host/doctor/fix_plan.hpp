// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>

#include "doctor/diagnosis.hpp"

namespace mediagrabber {

/// A setting that is made at each boot.
struct persistent_setting {
    std::string file;   ///< relative to /etc
    std::string lines;  ///< for that file, each with its line end
};

/// \return the setting that has at each boot the effect of the finding's command; nothing if the finding has no command
///         whose effect ends with the next boot
std::optional<persistent_setting> persistent_form(finding const& one);

/// Files for /etc that make the recommended settings at each boot: a drop-in of sysctl.d, and a systemd unit for all
/// other commands. Nothing is written; the operator reviews and installs them.
///
/// \return the contents by path relative to /etc; empty if there is nothing to set
std::map<std::string, std::string> fix_plan(std::span<finding const> findings);

}  // namespace mediagrabber
