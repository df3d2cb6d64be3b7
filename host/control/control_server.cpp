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
constexpr std::size_t max_waiting = 64;  ///< changes; more than clients that take turns

}  // namespace

control_server::control_server(std::filesystem::path const& path, std::optional<gid_t> group)
    : listener_("control socket", path, SOCK_STREAM, group), end_(eventfd(0, EFD_CLOEXEC)) {}

void control_server::open(answerer answer) {
    answer_ = std::move(answer);
    changes_ = std::jthread([this](std::stop_token const& stop) { apply_changes(stop); });
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
            if (auto connection = listener_.accept()) {
                serve(std::move(connection));
            }
        }
    }
}

void control_server::serve(file_handle connection) {
    timeval const send_timeout{.tv_sec = 0, .tv_usec = std::chrono::microseconds(client_timeout).count()};
    setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
    auto const line = read_line(connection, max_message, std::chrono::steady_clock::now() + client_timeout, end_.get());
    auto const answer = line ? serve_line(*line, connection) : std::string();
    if (!answer.empty()) {
        write_all(connection, answer);
    }
}

/// \return the answer; empty if the other thread answers
std::string control_server::serve_line(std::string const& line, file_handle& connection) {
    try {
        auto const request = read_request(line);
        if (!request.is_change()) {
            return answer_to(request);
        }
        return enqueue(connection, request)
                   ? std::string()
                   : written(change_answer{.status = exit_status::timed_out,
                                           .lines = {"too many changes wait for frames; try again later"}});
    } catch (setting_refused const& refused) {
        return written(change_answer{.status = refused.status(), .lines = {refused.what()}});
    }
}

bool control_server::enqueue(file_handle& connection, change_request const& request) {
    std::lock_guard const lock(mutex_);
    bool const fits = waiting_.size() < max_waiting;
    if (fits) {
        waiting_.push_back({.connection = std::move(connection), .request = request});
        changed_.notify_one();
    }
    return fits;
}

/// At the end, answers what waits.
void control_server::apply_changes(std::stop_token const& stop) {
    std::unique_lock lock(mutex_);
    while (changed_.wait(lock, stop, [this] { return !waiting_.empty(); })) {
        auto const next = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        write_all(next.connection, answer_to(next.request));
        lock.lock();
    }
}

std::string control_server::answer_to(change_request const& request) const {
    try {
        return written(answer_(request));
    } catch (setting_refused const& refused) {
        return written(change_answer{.status = refused.status(), .lines = {refused.what()}});
    } catch (std::exception const& error) {
        return written(change_answer{.status = exit_status::run_failed, .lines = {error.what()}});
    }
}

}  // namespace mediagrabber
