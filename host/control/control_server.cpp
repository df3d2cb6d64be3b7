// SPDX-License-Identifier: MIT
#include "control/control_server.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <utility>

#include "base/message_line.hpp"

namespace mediagrabber {

namespace {

/// For a client that connects and neither sends nor receives: it delays other clients by this time.
constexpr std::chrono::milliseconds client_timeout{500};

}  // namespace

control_server::control_server(std::filesystem::path const& path, std::optional<gid_t> group)
    : listener_("control socket", path, SOCK_STREAM, group), end_(eventfd(0, EFD_CLOEXEC)) {}

void control_server::open(answerer answer) {
    answer_ = std::move(answer);
    thread_ = std::jthread([this] { run(); });
}

control_server::~control_server() {
    eventfd_write(end_.get(), 1);
}

void control_server::run() {
    std::array<pollfd, 2> watched{{{.fd = listener_.descriptor(), .events = POLLIN, .revents = 0},
                                   {.fd = end_.get(), .events = POLLIN, .revents = 0}}};
    while (watched[1].revents == 0) {
        if (poll(watched.data(), watched.size(), -1) > 0 && watched[0].revents != 0) {
            if (auto const connection = listener_.accept()) {
                serve(connection);
            }
        }
    }
}

void control_server::serve(file_handle const& connection) const {
    timeval const send_timeout{.tv_sec = 0, .tv_usec = std::chrono::microseconds(client_timeout).count()};
    setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
    auto const line = read_line(connection, max_message, std::chrono::steady_clock::now() + client_timeout, end_.get());
    if (line) {
        write_all(connection, answer_to(*line));
    }
}

std::string control_server::answer_to(std::string const& line) const {
    try {
        return written(answer_(read_request(line)));
    } catch (setting_refused const& refused) {
        return written(change_answer{.status = refused.status(), .lines = {refused.what()}});
    } catch (std::exception const& error) {
        return written(change_answer{.status = exit_status::run_failed, .lines = {error.what()}});
    }
}

}  // namespace mediagrabber
