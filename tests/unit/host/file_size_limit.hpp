// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

#include <csignal>

/// While it lives, no file of this process grows beyond some bytes, as on a disk that is full: the kernel writes what
/// fits and refuses the remaining bytes. Standard output may be a file, too: assert only after the limit has ended.
class file_size_limit {
public:
    explicit file_size_limit(rlim_t bytes) : signal_before_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit const limit{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~file_size_limit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signal_before_);
    }
    file_size_limit(file_size_limit const&) = delete;
    file_size_limit& operator=(file_size_limit const&) = delete;

private:
    rlimit before_{};
    sighandler_t const signal_before_;
};
