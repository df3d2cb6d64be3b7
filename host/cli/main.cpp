// SPDX-License-Identifier: MIT
#include <cstdio>
#include <iostream>

#include "cli/command_line.hpp"

int main(int argc, char** argv) {
    // The plug-in logs to standard output. Line buffering passes each line on at once, also through a pipe.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return static_cast<int>(mediagrabber::run_command_line(argc, argv, std::cout, std::cerr));
}
