#pragma once
/// \file
/// A program that a test starts.

#include <string>
#include <vector>

#include <sys/types.h>

/// Runs from construction to destruction. It is ended with the test too, should the test die.
class test_process {
public:
    /// \param arguments the program, looked for in PATH, and its arguments
    explicit test_process(std::vector<std::string> const& arguments);
    test_process(test_process const&) = delete;
    test_process& operator=(test_process const&) = delete;
    ~test_process();

    pid_t id() const { return pid_; }
    void kill();    ///< at once, as by a power cut
    void freeze();  ///< it stays, and does nothing
    void thaw();
    int wait();  ///< \return its exit code, -1 when a signal ended it

private:
    pid_t pid_ = -1;
};

/// This very program, started with other arguments; see main.cpp.
std::string own_program();
