#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "file_handle.hpp"

namespace mediagrabber {

/// A Unix socket of mode 0600 at a path, from which it is gone when its owner goes. What a process that has died has
/// left there is replaced; one that somebody listens to is not.
class unix_listener {
public:
    /// \param name  what to call it to the operator, "control socket"
    /// \param type  SOCK_STREAM or SOCK_SEQPACKET
    /// \throws std::runtime_error with a message for the operator
    unix_listener(std::string name, std::filesystem::path path, int type);
    ~unix_listener();
    unix_listener(unix_listener const&) = delete;
    unix_listener& operator=(unix_listener const&) = delete;

    std::filesystem::path const& path() const { return path_; }
    int descriptor() const { return socket_.get(); }
    /// \return a connection of this user or of root; empty when there is none
    file_handle accept() const;

private:
    [[noreturn]] void fail(std::string const& why) const;
    [[noreturn]] void fail() const;
    void remove_dead_socket() const;

    std::string const name_;
    std::filesystem::path const path_;
    int const type_;
    file_handle socket_;
    dev_t device_ = 0;  ///< of the path that was made
    ino_t inode_ = 0;
};

}  // namespace mediagrabber
