// SPDX-License-Identifier: MIT
#include "base/accept_pause.hpp"

#include <fmt/format.h>
#include <poll.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "base/host_log.hpp"

namespace mediagrabber {

namespace {

constexpr int pause_ms = 50;  ///< short for a client, and 20 attempts a second cost nothing

}  // namespace

void accept_pause::after(int error, int interrupt) {
    if (error != EMFILE && error != ENFILE && error != ENOBUFS && error != ENOMEM) {
        return;
    }
    if (!std::exchange(reported_, true)) {
        log_warning(fmt::format("{}: clients must wait: {}; raise the limit of open files (LimitNOFILE=, ulimit -n)",
                                name_, std::generic_category().message(error)));
    }
    pollfd watched{.fd = interrupt, .events = POLLIN, .revents = 0};
    poll(&watched, 1, pause_ms);
}

}  // namespace mediagrabber
