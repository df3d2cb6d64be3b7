#include "control_server.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <utility>

#include "message_line.hpp"

namespace mediagrabber {

namespace {

constexpr std::chrono::seconds patience{2};  ///< with somebody who connects and sends or takes nothing

}  // namespace

control_server::control_server(std::filesystem::path const& path, answerer answer)
    : listener_("control socket", path, SOCK_STREAM), answer_(std::move(answer)), end_(eventfd(0, EFD_CLOEXEC)), thread_([this] { run(); }) {}

control_server::~control_server() {
    eventfd_write(end_.get(), 1);
    thread_.join();
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
    timeval const write_patience{.tv_sec = patience.count(), .tv_usec = 0};
    setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &write_patience, sizeof write_patience);
    auto const line = read_line(connection, longest_message, std::chrono::steady_clock::now() + patience, end_.get());
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
