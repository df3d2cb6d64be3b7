#pragma once

#include <optional>

#include "camera_options.hpp"

namespace camsim {

/// What the command line asks for.
struct command_line {
    camera_options options;
    bool print_description = false;
    bool print_faults = false;
};

/// What to do, or the exit status when there is nothing left to do (help shown, or a mistake reported).
struct parsed_command_line {
    std::optional<command_line> request;
    int exit_status = 0;
};

parsed_command_line parse_command_line(int argc, char const* const* argv);

}  // namespace camsim
