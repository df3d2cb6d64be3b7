// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

#include "base/accept_pause.hpp"
#include "base/file_handle.hpp"

namespace mediagrabber {

/// A listening Unix socket. Connections are accepted as soon as its path exists. The destructor removes the path. A
/// socket that a dead process has left at the path is replaced; a socket that is in use is an error.
///
/// Its mode is 0600, and only this user and root can connect. With a group it is 0660, and members of the group can
/// connect, too. Both the file's mode and the credentials of each peer are checked: the mode does not protect a socket
/// whose directory another user can change.
class unix_listener {
public:
    /// \param name   used in messages, "control socket"
    /// \param type   SOCK_STREAM or SOCK_SEQPACKET
    /// \param group  whose members may connect; this process must be a member or root
    /// \throws std::runtime_error with a message for the user
    unix_listener(std::string name, std::filesystem::path path, int type, std::optional<gid_t> group = std::nullopt);
    ~unix_listener();
    unix_listener(unix_listener const&) = delete;
    unix_listener& operator=(unix_listener const&) = delete;

    std::filesystem::path const& path() const { return path_; }
    int descriptor() const { return socket_.get(); }
    /// If no descriptors are left, pauses for a moment, because the connection stays and the socket stays readable.
    /// \return a connection that may be served; empty if there is none
    file_handle accept();

private:
    [[noreturn]] void fail(std::string const& why) const;
    [[noreturn]] void fail() const;
    void remove_dead_socket() const;
    void permit_group(std::filesystem::path const& hidden) const;

    std::string const name_;
    std::filesystem::path const path_;
    int const type_;
    std::optional<gid_t> const group_;
    accept_pause pause_;
    file_handle socket_;
    dev_t device_ = 0;  ///< of the created socket file
    ino_t inode_ = 0;
};

}  // namespace mediagrabber
