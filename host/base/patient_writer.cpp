// SPDX-License-Identifier: MIT
#include "base/patient_writer.hpp"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <string>

namespace mediagrabber {

namespace {

using clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds line_patience{200};  ///< a reader on a busy machine needs less
constexpr std::size_t max_part = 4096;                   ///< PIPE_BUF: a pipe that poll() reports as writable takes it

bool is_writable(int descriptor, int timeout_ms) {
    pollfd watched{.fd = descriptor, .events = POLLOUT, .revents = 0};
    return poll(&watched, 1, timeout_ms) > 0;
}

/// Threads share a pipe that is both standard output and standard error. The mutex keeps a second one from filling it
/// between poll() and write().
ssize_t write_if_possible(int descriptor, std::string_view part) {
    static std::mutex mutex;
    std::lock_guard const lock(mutex);
    if (!is_writable(descriptor, 0)) {
        errno = EAGAIN;
        return -1;
    }
    ssize_t const sent = send(descriptor, part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent < 0 && errno == ENOTSOCK ? write(descriptor, part.data(), part.size()) : sent;
}

}  // namespace

bool write_patiently(int descriptor, std::string_view text, std::chrono::milliseconds patience) {
    auto const until = clock::now() + patience;
    while (!text.empty()) {
        ssize_t const put = write_if_possible(descriptor, text.substr(0, max_part));
        if (put > 0) {
            text.remove_prefix(static_cast<std::size_t>(put));
        } else if (put == 0 || (errno != EINTR && errno != EAGAIN)) {
            return true;  // the other end is closed
        } else if (errno == EAGAIN) {
            auto const left = std::chrono::ceil<std::chrono::milliseconds>(until - clock::now()).count();
            if (left <= 0 || !is_writable(descriptor, static_cast<int>(left))) {
                return false;
            }
        }
    }
    return true;
}

void patient_writer::write_line(std::string_view line) {
    if (dropped_ > 0) {
        auto const remark = fmt::format("mediagrabber: {} lines dropped here: the output was not read\n", dropped_);
        if (!write_patiently(descriptor_, remark, std::chrono::milliseconds(0))) {
            ++dropped_;
            return;
        }
        dropped_ = 0;
    }
    if (!write_patiently(descriptor_, line, line_patience)) {
        dropped_ = 1;
    }
}

}  // namespace mediagrabber
