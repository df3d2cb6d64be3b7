// SPDX-License-Identifier: MIT
#include "status/stdio_capture.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace mediagrabber {

namespace {

constexpr std::size_t max_line = 65'536;  ///< bytes; a longer line is handled in pieces

/// Leaves out a stream that another thread has locked: an unresponsive plug-in may hold the lock for ever.
void flush_streams() {
    for (FILE* const stream : {stdout, stderr}) {
        if (ftrylockfile(stream) == 0) {
            std::fflush(stream);
            funlockfile(stream);
        }
    }
}

}  // namespace

stdio_capture::stdio_capture(int stream, line_handler on_line)
    : stream_(stream),
      on_line_(std::move(on_line)),
      original_(fcntl(stream, F_DUPFD_CLOEXEC, 0)),
      end_(eventfd(0, EFD_CLOEXEC)),
      writer_(original_.get()) {
    std::array<int, 2> ends{};
    flush_streams();
    if (!original_ || !end_ || pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot capture the log");
    }
    pipe_ = file_handle(ends[0]);
    file_handle const input(ends[1]);
    if (dup2(input.get(), stream_) < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot capture the log");
    }
    thread_ = std::thread([this] { run(); });
}

stdio_capture::~stdio_capture() {
    flush_streams();
    dup2(original_.get(), stream_);
    eventfd_write(end_.get(), 1);
    thread_.join();
}

/// At the end, handles what is in the pipe.
void stdio_capture::run() {
    std::array<pollfd, 2> watched{
        {{.fd = pipe_.get(), .events = POLLIN, .revents = 0}, {.fd = end_.get(), .events = POLLIN, .revents = 0}}};
    while (watched[1].revents == 0) {
        if (poll(watched.data(), watched.size(), -1) > 0 && watched[0].revents != 0 && !read_once()) {
            break;
        }
    }
    while (poll(watched.data(), 1, 0) > 0 && read_once()) {
    }
    if (!partial_.empty() && on_line_(partial_)) {
        writer_.write_line(partial_);
    }
}

/// Called when the pipe is readable. \return whether it still has writers
bool stdio_capture::read_once() {
    std::array<char, 4096> part{};
    ssize_t const got = read(pipe_.get(), part.data(), part.size());
    take({part.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))});
    return got > 0 || (got < 0 && errno == EINTR);
}

void stdio_capture::take(std::string_view text) {
    partial_ += text;
    std::size_t first = 0;
    for (auto end = partial_.find('\n'); end != partial_.npos; end = partial_.find('\n', first)) {
        std::string_view const line(partial_.data() + first, end - first);
        if (on_line_(line)) {
            writer_.write_line({partial_.data() + first, end - first + 1});
        }
        first = end + 1;
    }
    partial_.erase(0, first);
    if (partial_.size() > max_line) {
        if (on_line_(partial_)) {
            writer_.write_line(partial_);
        }
        partial_.clear();
    }
}

}  // namespace mediagrabber
