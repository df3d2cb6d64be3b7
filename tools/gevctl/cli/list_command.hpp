// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// `gevctl list`.

#include <iosfwd>
#include <string>

#include "report/failure.hpp"

namespace gevctl {

struct list_options {
    std::string interface;
    bool json = false;
};

/// Lists the cameras, and the command that would reach each camera that this machine cannot reach.
exit_status list_command(list_options const& options, std::ostream& out);

}  // namespace gevctl
