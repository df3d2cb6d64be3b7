// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "base/unix_listener.hpp"
#include "control/control_message.hpp"

namespace mediagrabber {

/// Serves the control socket: accepts connections one after the other on its own thread, reads one request from each,
/// and sends one answer.
///
/// Only processes of the same user, of root or of a group can connect (see unix_listener). A request blocks the
/// following ones until it is answered, so that changes are applied in order.
class control_server {
public:
    using answerer = std::function<change_answer(change_request const&)>;

    /// Creates the socket; clients wait for open().
    /// \param group  whose members may connect
    /// \throws std::runtime_error with a message for the user if the socket cannot be created at `path`
    control_server(std::filesystem::path const& path, std::optional<gid_t> group);
    /// Waits for a running `answer` to return; the owner must cancel what it waits for.
    ~control_server();
    control_server(control_server const&) = delete;
    control_server& operator=(control_server const&) = delete;

    /// Starts to serve clients. Call it at most once.
    /// \param answer  called for each request on the server's thread
    void open(answerer answer);

    std::filesystem::path const& path() const { return listener_.path(); }

private:
    void run();
    void serve(file_handle const& connection) const;
    std::string answer_to(std::string const& line) const;

    unix_listener listener_;
    answerer answer_;
    file_handle const end_;  ///< an eventfd; readable: the thread ends
    std::jthread thread_;
};

}  // namespace mediagrabber
