#include "web/connection_stream.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <utility>

namespace mediagrabber {

namespace {

constexpr std::chrono::milliseconds patience_at_the_end{200};

}  // namespace

connection_stream::connection_stream(file_handle const& connection, std::string remote, limits_of_one const& limits)
    : connection_(connection),
      remote_(std::move(remote)),
      limits_(limits),
      read_until_(clock::now() + limits.to_send),
      bytes_left_(limits.bytes) {}

bool connection_stream::ready(short events, clock::time_point until) const {
    while (true) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(until - clock::now()).count();
        pollfd watched{.fd = connection_.get(), .events = events, .revents = 0};
        int const found = left <= 0 ? 0 : poll(&watched, 1, static_cast<int>(left));
        if (found >= 0 || errno != EINTR) {
            return found > 0;
        }
    }
}

bool connection_stream::is_readable() const {
    return bytes_left_ != 0 && ready(POLLIN, read_until_);
}

bool connection_stream::is_writable() const {
    return ready(POLLOUT, write_until_ == clock::time_point() ? clock::now() + limits_.to_take : write_until_);
}

ssize_t connection_stream::read(char* to, std::size_t size) {
    if (!is_readable()) {
        return -1;
    }
    auto const got = recv(connection_.get(), to, std::min(size, bytes_left_), 0);
    bytes_left_ -= static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    return got;
}

ssize_t connection_stream::write(char const* from, std::size_t size) {
    if (write_until_ == clock::time_point()) {
        write_until_ = clock::now() + limits_.to_take;
    }
    if (!ready(POLLOUT, write_until_)) {
        return -1;
    }
    return send(connection_.get(), from, size, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void connection_stream::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip = remote_;
    port = 0;
}

void connection_stream::get_local_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

void connection_stream::finish() {
    shutdown(connection_.get(), SHUT_WR);
    std::array<char, 4096> rest{};
    auto const until = clock::now() + patience_at_the_end;
    for (std::size_t taken = 0; taken < limits_.bytes && ready(POLLIN, until);) {
        auto const got = recv(connection_.get(), rest.data(), rest.size(), MSG_DONTWAIT);
        if (got <= 0) {
            return;
        }
        taken += static_cast<std::size_t>(got);
    }
}

}  // namespace mediagrabber
