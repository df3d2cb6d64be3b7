#pragma once

#include <sys/types.h>

#include <ostream>
#include <string>
#include <vector>

#include "exit_status.hpp"

namespace mediagrabber {

/// A request that `mediagrabber signal` can send, by its name.
struct named_signal {
    std::string name;
    int number;
};

/// "stop", "reload", "lut", "lut12", "keep"
std::vector<named_signal> const& named_signals();

/// `mediagrabber signal`: sends a recording a signal. Unlike `kill` it makes sure that the process is a mediagrabber
/// that is recording, which takes the signal as a request; another process it would end.
exit_status signal_command(pid_t process, std::string const& name, std::ostream& complaints);

}  // namespace mediagrabber
