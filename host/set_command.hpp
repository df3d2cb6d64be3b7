#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "exit_status.hpp"

namespace mediagrabber {

struct set_options {
    std::filesystem::path socket;  ///< empty: the default one of `instance`
    std::uint32_t instance = 0;
    double timeout_s = 5.0;
    bool another_run = false;           ///< also what needs another run of the plug-in
    std::vector<std::string> settings;  ///< KEY=VALUE
};

/// `mediagrabber set`: changes values of a mediagrabber that is running. Returns when the camera has them.
/// \throws std::exception with a message for the operator
exit_status set_command(set_options const& options, std::ostream& out, std::ostream& complaints);

}  // namespace mediagrabber
