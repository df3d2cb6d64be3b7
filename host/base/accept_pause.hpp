// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace mediagrabber {

/// Slows down a thread that cannot accept a connection because descriptors or memory are exhausted. The connection
/// stays in the kernel's queue, so that the listening socket stays readable: without a pause the thread would use a
/// whole processor. Used by one thread.
class accept_pause {
public:
    /// \param name  of the listening socket, used in the message
    explicit accept_pause(std::string name) : name_(std::move(name)) {}

    /// Logs the first failure of a series and pauses. Without effect after other errors.
    /// \param error      errno of a failed accept()
    /// \param interrupt  a descriptor that ends the pause when it is readable; -1: none
    void after(int error, int interrupt = -1);
    /// A connection was accepted: ends a series.
    void succeeded() { reported_ = false; }

private:
    std::string const name_;
    bool reported_ = false;
};

}  // namespace mediagrabber
