// SPDX-License-Identifier: MIT
#include "web/web_listener.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace mediagrabber {

namespace {

constexpr int backlog = 64;
constexpr int defer_accept_s = 3;     ///< the kernel holds back connections without data for this long
constexpr int client_check_ms = 100;  ///< the accuracy of the clients' time limits

[[noreturn]] void refuse(web_address const& at, int error) {
    std::string const where = at.bracketed() + ":" + std::to_string(at.port);
    std::string what = "cannot listen for the page at " + where + ": " + std::generic_category().message(error);
    if (error == EADDRINUSE) {
        what += "; another program uses it: choose another port, or 0 for any free port";
    } else if (error == EADDRNOTAVAIL) {
        what += "; use an address of this machine (see `ip addr`), or 127.0.0.1";
    } else if (error == EACCES) {
        what += "; use a port of 1024 or above";
    }
    throw std::runtime_error(what);
}

union any_address {
    sockaddr plain;
    sockaddr_in four;
    sockaddr_in6 six;
    sockaddr_storage storage;
};

socklen_t fill(web_address const& at, any_address& address) {
    address.storage = {};
    if (at.six) {
        address.six.sin6_family = AF_INET6;
        address.six.sin6_port = htons(at.port);
        inet_pton(AF_INET6, at.host.c_str(), &address.six.sin6_addr);
        return sizeof address.six;
    }
    address.four.sin_family = AF_INET;
    address.four.sin_port = htons(at.port);
    inet_pton(AF_INET, at.host.c_str(), &address.four.sin_addr);
    return sizeof address.four;
}

std::string host_of(any_address const& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    bool const six = address.plain.sa_family == AF_INET6;
    void const* const bytes = six ? static_cast<void const*>(&address.six.sin6_addr) : &address.four.sin_addr;
    return inet_ntop(address.plain.sa_family, bytes, text.data(), text.size()) == nullptr ? "" : text.data();
}

file_handle listening_socket(web_address const& at) {
    file_handle made(socket(at.six ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    any_address address{};
    auto const size = fill(at, address);
    int const on = 1;
    if (!made) {
        refuse(at, errno);
    }
    setsockopt(made.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(made.get(), IPPROTO_TCP, TCP_DEFER_ACCEPT, &defer_accept_s, sizeof defer_accept_s);
    if (bind(made.get(), &address.plain, size) != 0 || listen(made.get(), backlog) != 0) {
        refuse(at, errno);
    }
    return made;
}

std::uint16_t port_of(file_handle const& listening) {
    any_address address{};
    socklen_t size = sizeof address;
    getsockname(listening.get(), &address.plain, &size);
    return ntohs(address.plain.sa_family == AF_INET6 ? address.six.sin6_port : address.four.sin_port);
}

}  // namespace

web_listener::web_listener(web_address const& at)
    : at_(at), listening_(listening_socket(at)), end_(eventfd(0, EFD_CLOEXEC)) {
    at_.port = port_of(listening_);
}

web_listener::~web_listener() {
    stop();
}

void web_listener::serve(server clients) {
    clients_ = std::move(clients);
    thread_ = std::jthread([this] { run(); });
}

void web_listener::run() {
    std::array<pollfd, 2> watched{
        {{.fd = listening_.get(), .events = POLLIN, .revents = 0}, {.fd = end_.get(), .events = POLLIN, .revents = 0}}};
    bool any_clients = false;
    while (watched[1].revents == 0) {
        if (poll(watched.data(), watched.size(), any_clients ? client_check_ms : -1) > 0 && watched[0].revents != 0) {
            accept_one();
        }
        any_clients = clients_.end_overdue();
    }
}

void web_listener::accept_one() {
    any_address address{};
    socklen_t size = sizeof address;
    file_handle connection(accept4(listening_.get(), &address.plain, &size, SOCK_CLOEXEC));
    if (!connection) {
        pause_.after(errno, end_.get());
        return;
    }
    pause_.succeeded();
    int const on = 1;
    setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    clients_.add(std::move(connection), host_of(address));
}

void web_listener::stop() {
    eventfd_write(end_.get(), 1);
    if (thread_.joinable()) {
        thread_.join();
    }
    listening_ = file_handle();
}

}  // namespace mediagrabber
