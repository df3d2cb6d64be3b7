// SPDX-License-Identifier: MIT
#include "test_process.hpp"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int SANITIZER_STATUS = 99;  // as in tests/system/run_test.py

}  // namespace

test_process::test_process(std::vector<std::string> const& arguments) {
    std::vector<char*> pointers;
    for (std::string const& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execvp(pointers.front(), pointers.data());
        std::perror(pointers.front());
        std::_Exit(EXIT_FAILURE);
    }
}

test_process::~test_process() {
    kill();
}

void test_process::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        wait();
    }
}

void test_process::freeze() {
    ::kill(pid_, SIGSTOP);
}
void test_process::thaw() {
    ::kill(pid_, SIGCONT);
}

int test_process::wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    int const exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    EXPECT_NE(exit_status, SANITIZER_STATUS) << "a sanitizer ended the process, see its report";
    return exit_status;
}

std::string own_program() {
    std::array<char, 4096> path{};
    ssize_t const length = readlink("/proc/self/exe", path.data(), path.size() - 1);
    return {path.data(), static_cast<std::size_t>(length > 0 ? length : 0)};
}
