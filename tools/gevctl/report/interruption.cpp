// SPDX-License-Identifier: MIT
#include "report/interruption.hpp"

#include <signal.h>

#include <cstring>
#include <string>

#include "report/failure.hpp"

namespace gevctl {

namespace {

volatile sig_atomic_t first_signal = 0;

extern "C" void record(int signal) {
    if (first_signal == 0) {
        first_signal = signal;
    }
}

}  // namespace

void catch_signals() {
    static bool installed = false;
    if (installed) {
        return;
    }
    installed = true;
    for (int const signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction present {};
        sigaction(signal, nullptr, &present);
        if (present.sa_handler == SIG_IGN) {
            continue;
        }
        struct sigaction action {};
        action.sa_handler = record;
        sigemptyset(&action.sa_mask);
        // Each further write to a closed pipe raises SIGPIPE again, also while control is released.
        action.sa_flags = SA_RESTART | (signal == SIGPIPE ? 0 : static_cast<int>(SA_RESETHAND));
        sigaction(signal, &action, nullptr);
    }
}

int caught_signal() {
    return first_signal;
}

void check_interruption() {
    if (int const signal = first_signal; signal != 0) {
        throw failure(exit_status::interrupted, std::string("ended by a signal (") + strsignal(signal) + ")");
    }
}

}  // namespace gevctl
