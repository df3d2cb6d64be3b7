// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "base/unix_listener.hpp"
#include "control/control_message.hpp"

namespace mediagrabber {

/// Serves the control socket: reads one request from each connection on its own thread, and sends one answer. Clients
/// that do not complete their request do not delay others.
///
/// Only processes of the same user, of root or of a group can connect (see unix_listener). Changes wait for each other
/// on a second thread, so that they are applied in order; other requests are answered at once, also while a change
/// waits for a frame.
class control_server {
public:
    using answerer = std::function<change_answer(change_request const&)>;

    /// Creates the socket; clients wait for open().
    /// \param group  whose members may connect
    /// \throws std::runtime_error with a message for the user if the socket cannot be created at `path`
    control_server(std::filesystem::path const& path, std::optional<gid_t> group);
    /// Waits until all changes are answered; the owner must cancel what they wait for.
    ~control_server();
    control_server(control_server const&) = delete;
    control_server& operator=(control_server const&) = delete;

    /// Starts to serve clients. Call it at most once.
    /// \param answer  called for each request on one of the two threads, for changes always on the same one
    void open(answerer answer);

    std::filesystem::path const& path() const { return listener_.path(); }

private:
    /// A change that waits for its turn.
    struct waiting_change {
        file_handle connection;
        change_request request;
    };
    /// A client whose request is not complete.
    struct client {
        file_handle connection;
        std::string request;
        std::chrono::steady_clock::time_point deadline;
    };
    /// Positions in the list of watched descriptors.
    enum watched_index : std::size_t { ending, listening, first_client };

    void run();
    bool wait_for_event(std::vector<client> const& clients, std::vector<pollfd>& watched) const;
    bool is_waiting(client& one, bool readable, std::chrono::steady_clock::time_point now);
    std::string serve_line(std::string const& line, file_handle& connection);
    bool enqueue(file_handle& connection, change_request const& request);
    void apply_changes(std::stop_token const& stop);
    std::string answer_to(change_request const& request) const;

    unix_listener listener_;
    answerer answer_;
    file_handle const end_;  ///< an eventfd; readable: the thread ends
    std::mutex mutex_;       ///< guards waiting_
    std::condition_variable_any changed_;
    std::deque<waiting_change> waiting_;
    std::jthread changes_;
    std::jthread thread_;  ///< ends before the other one, which it gives work
};

}  // namespace mediagrabber
