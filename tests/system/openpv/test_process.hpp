// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// A program that a test starts.

#include <string>
#include <vector>

#include <sys/types.h>

/// Runs from construction to destruction, and ends when the test process ends.
class test_process {
public:
    /// \param arguments the program, searched in PATH, and its arguments
    explicit test_process(std::vector<std::string> const& arguments);
    test_process(test_process const&) = delete;
    test_process& operator=(test_process const&) = delete;
    ~test_process();

    pid_t id() const { return pid_; }
    void kill();    ///< with SIGKILL
    void freeze();  ///< with SIGSTOP
    void thaw();
    int wait();  ///< \return its exit code, -1 when a signal ended it

private:
    pid_t pid_ = -1;
};

/// Path of this program, which has other modes; see main.cpp.
std::string own_program();
