// SPDX-License-Identifier: MIT
#include "base/message_line.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

namespace mediagrabber {

namespace {

using clock = std::chrono::steady_clock;

/// \return whether `descriptor` became readable before the deadline and without an interrupt
bool readable(int descriptor, int interrupt, clock::time_point until) {
    using std::chrono::milliseconds;
    std::array<pollfd, 2> watched{
        {{.fd = descriptor, .events = POLLIN, .revents = 0}, {.fd = interrupt, .events = POLLIN, .revents = 0}}};
    while (true) {
        auto const left = std::chrono::ceil<milliseconds>(until - clock::now()).count();
        int const ready = poll(watched.data(), watched.size(), static_cast<int>(std::clamp<long>(left, 0, 1'000'000)));
        if (ready > 0) {
            return watched[0].revents != 0 && watched[1].revents == 0;
        }
        if (left <= 0) {
            return false;
        }
    }
}

}  // namespace

line_state receive_line(file_handle const& connection, std::string& line, std::size_t max_bytes) {
    std::array<char, 4096> part{};
    ssize_t const got = recv(connection.get(), part.data(), part.size(), MSG_DONTWAIT);
    if (got <= 0) {
        return line_state::failed;
    }
    line.append(part.data(), static_cast<std::size_t>(got));
    auto const end = line.find('\n');
    if (end != line.npos && end <= max_bytes) {
        line.resize(end);
        return line_state::complete;
    }
    return line.size() <= max_bytes ? line_state::incomplete : line_state::failed;
}

std::optional<std::string> read_line(file_handle const& connection, std::size_t max_bytes, clock::time_point until,
                                     int interrupt) {
    std::string line;
    auto state = line_state::incomplete;
    while (state == line_state::incomplete && readable(connection.get(), interrupt, until)) {
        state = receive_line(connection, line, max_bytes);
    }
    return state == line_state::complete ? std::optional(line) : std::nullopt;
}

bool write_all(file_handle const& connection, std::string const& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        ssize_t const done = send(connection.get(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (done <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(done);
    }
    return true;
}

}  // namespace mediagrabber
