#pragma once

#include <sys/types.h>

#include <filesystem>

#include "file_handle.hpp"

namespace mediagrabber {

/// A Unix socket of mode 0600 at a path, from which it is gone when its owner goes. What a process that has died has
/// left there is replaced; one that somebody listens to is not.
class control_listener {
public:
    /// \throws std::runtime_error with a message for the operator
    explicit control_listener(std::filesystem::path path);
    ~control_listener();
    control_listener(control_listener const&) = delete;
    control_listener& operator=(control_listener const&) = delete;

    std::filesystem::path const& path() const { return path_; }
    int descriptor() const { return socket_.get(); }
    /// \return a connection of this user or of root; empty when there is none
    file_handle accept() const;

private:
    std::filesystem::path const path_;
    file_handle socket_;
    dev_t device_ = 0;  ///< of the path that was made
    ino_t inode_ = 0;
};

}  // namespace mediagrabber
