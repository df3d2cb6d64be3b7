// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// `gevctl action`.

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

#include "gvcp/gvcp_message.hpp"
#include "report/failure.hpp"

namespace gevctl {

struct action_options {
    openpv::gvcp::action_keys keys;
    std::optional<std::uint64_t> time;  ///< of the cameras' timestamp counters; null: at once
    std::string interface;
    bool json = false;
};
/// Broadcasts an action command and prints the acknowledges.
exit_status action_command(action_options const& options, std::ostream& out);

}  // namespace gevctl
