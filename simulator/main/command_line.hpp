// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "device/camera_options.hpp"

namespace camsim {

/// A valid command line.
struct command_line {
    camera_options options;
    std::uint32_t count = 1;  ///< number of cameras
    bool print_xml = false;
    bool print_faults = false;
};

/// The command line, or the exit status if the program must end because help was printed or an error reported.
struct parsed_command_line {
    std::optional<command_line> request;
    int exit_status = 0;
};

/// Parses the command line and reads the fault file. Prints errors on standard error and help on standard output.
parsed_command_line parse_command_line(int argc, char const* const* argv);

/// The options of each camera. The addresses and the numbers at the end of the serial numbers count up from the first
/// camera's; the names of files and of the control socket end with the address of their camera if there are several.
std::vector<camera_options> cameras_of(command_line const& request);

}  // namespace camsim
