// SPDX-License-Identifier: MIT
#include <csignal>
#include <iostream>

#include "cli/gevctl_command_line.hpp"
#include "report/interruption.hpp"

int main(int argc, char** argv) {
    auto const status = gevctl::run_command_line(argc, argv, std::cout, std::cerr);
    if (status != gevctl::exit_status::interrupted) {
        return static_cast<int>(status);
    }
    // The parent is to see that the signal ended the program, as if it had not been caught.
    int const signal = gevctl::caught_signal();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return static_cast<int>(status) + signal;
}
