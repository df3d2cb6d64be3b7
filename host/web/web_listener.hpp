// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "base/accept_pause.hpp"
#include "base/file_handle.hpp"
#include "config/web_address.hpp"

namespace mediagrabber {

/// Accepts TCP connections on a thread of its own. serve() and stop() belong to the owner's thread.
class web_listener {
public:
    /// Called on the thread of the listener. Must not block.
    struct server {
        /// \param remote  the client's numeric address
        std::function<void(file_handle connection, std::string const& remote)> add;
        /// Called at least every 100 ms while it returns true: there are clients.
        std::function<bool()> end_overdue;
    };

    /// Starts to listen; connections wait for serve().
    /// \throws std::runtime_error  with a message for the operator
    explicit web_listener(web_address const& at);
    ~web_listener();
    web_listener(web_listener const&) = delete;
    web_listener& operator=(web_listener const&) = delete;

    /// \return the address, with the port that the system chose for port 0
    web_address const& at() const { return at_; }

    /// Starts the thread. Call it at most once.
    void serve(server clients);
    /// Ends the thread and closes the listening socket: later clients get "connection refused" at once.
    void stop();

private:
    void run();
    void accept_one();

    web_address at_;
    file_handle listening_;
    file_handle const end_;  ///< eventfd, readable when the thread must end
    server clients_;
    accept_pause pause_{"live page"};
    std::jthread thread_;
};

}  // namespace mediagrabber
