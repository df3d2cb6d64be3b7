// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "base/file_descriptor.hpp"
#include "faults/active_faults.hpp"
#include "faults/fault_timeline.hpp"

namespace camsim {

/// Executes a request from the control socket.
/// \param line one line of TOML, without the line end
/// \param features names of the camera's features
/// \param set_line1 sets the level of the input line
/// \return one line of TOML: `fault = NUMBER` for a start, `hits = COUNT` for a stop, `faults = [...]` for a list,
/// `line1 = BOOLEAN` for a new level, or `error = "..."`
std::string handle_control_request(std::string const& line, fault_timeline& timeline, active_faults const& faults,
                                   std::vector<std::string> const& features,
                                   std::function<void(bool)> const& set_line1);

/// The control socket: a Unix stream socket of mode 0600 that answers each line with one line.
///
/// The socket exists and is served by a thread of its own from construction to destruction, which removes it. Any
/// number of clients may be connected; a client that sends a longer line than max_request_bytes, or does not read its
/// response, is disconnected.
class control_socket {
public:
    using handler = std::function<std::string(std::string const&)>;

    /// Creates the socket. A socket file that no process listens on is replaced.
    /// \param handle called by the socket's thread for each line; must be callable until destruction
    /// \throws std::runtime_error if the socket cannot be created
    control_socket(std::filesystem::path path, handler handle);
    ~control_socket();
    control_socket(control_socket const&) = delete;
    control_socket& operator=(control_socket const&) = delete;

    /// A request with every parameter has less than 200 bytes; one page leaves ample reserve.
    static constexpr std::size_t max_request_bytes = 4096;

private:
    struct connection {
        file_descriptor socket;
        std::string received{};  ///< an incomplete line
    };

    void run(std::stop_token const& stop);
    void accept_one();
    bool serve(connection& one);

    std::filesystem::path const path_;
    handler const handle_;
    file_descriptor listener_;
    file_descriptor wake_;
    std::list<connection> connections_;
    std::jthread thread_;
};

}  // namespace camsim
