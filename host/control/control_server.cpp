// SPDX-License-Identifier: MIT
#include "control/control_server.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "base/message_line.hpp"

namespace mediagrabber {

namespace {

/// For a client that does not complete its request, or does not receive the answer.
constexpr std::chrono::milliseconds client_timeout{500};
constexpr std::size_t max_clients =
    64;  ///< that send a request at the same time; further ones wait in the kernel's queue
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
    std::vector<client> clients;
    std::vector<pollfd> watched;
    while (wait_for_event(clients, watched)) {
        auto const now = std::chrono::steady_clock::now();
        for (std::size_t i = clients.size(); i-- > 0;) {
            if (!is_waiting(clients[i], watched[first_client + i].revents != 0, now)) {
                clients.erase(clients.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
        if (watched[listening].revents != 0) {
            if (auto connection = listener_.accept()) {
                timeval const send_timeout{.tv_sec = 0, .tv_usec = std::chrono::microseconds(client_timeout).count()};
                setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
                clients.push_back(
                    {.connection = std::move(connection), .request = {}, .deadline = now + client_timeout});
            }
        }
    }
}

/// Waits until a client connects or sends, or has reached its deadline.
/// \param watched  replaced by the descriptors, in the order of watched_index
/// \return whether the server goes on
bool control_server::wait_for_event(std::vector<client> const& clients, std::vector<pollfd>& watched) const {
    int const listener = clients.size() < max_clients ? listener_.descriptor() : -1;
    watched.assign(
        {{.fd = end_.get(), .events = POLLIN, .revents = 0}, {.fd = listener, .events = POLLIN, .revents = 0}});
    for (auto const& one : clients) {
        watched.push_back({.fd = one.connection.get(), .events = POLLIN, .revents = 0});
    }
    int timeout_ms = -1;
    if (!clients.empty()) {  // the oldest client is the first one
        auto const remaining = clients.front().deadline - std::chrono::steady_clock::now();
        timeout_ms = static_cast<int>(
            std::max<std::int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(remaining).count()));
    }
    poll(watched.data(), watched.size(), timeout_ms);
    return watched[ending].revents == 0;
}

/// Receives from a client, and serves it when its request is complete.
/// \return whether the request is still incomplete
bool control_server::is_waiting(client& one, bool readable, std::chrono::steady_clock::time_point now) {
    auto const state = readable ? receive_line(one.connection, one.request, max_message) : line_state::incomplete;
    if (state == line_state::complete) {
        auto const answer = serve_line(one.request, one.connection);
        if (!answer.empty()) {
            write_all(one.connection, answer);
        }
    }
    return state == line_state::incomplete && now < one.deadline;
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
