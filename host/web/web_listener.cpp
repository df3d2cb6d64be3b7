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

#include "thread_pace.hpp"

namespace mediagrabber {

namespace {

constexpr int backlog = 64;
constexpr std::size_t most_waiting = 128;  ///< connections without a thread
constexpr int patience_with_idle_s = 3;    ///< connections that send nothing are not even accepted so long
constexpr int pause_ms = 50;               ///< when descriptors have run out

[[noreturn]] void refuse(web_address const& at, int error) {
    std::string const where = at.bracketed() + ":" + std::to_string(at.port);
    std::string what = "the page can't be at " + where + ": " + std::generic_category().message(error);
    if (error == EADDRINUSE) {
        what += "; another program is there, expected another port, or port 0 for any that is free";
    } else if (error == EADDRNOTAVAIL) {
        what += "; expected an address of this machine (`ip addr` lists them), or 127.0.0.1";
    } else if (error == EACCES) {
        what += "; expected a port from 1024 on";
    }
    throw std::runtime_error(what);
}

union any_address {
    sockaddr plain;
    sockaddr_in four;
    sockaddr_in6 six;
    sockaddr_storage room;
};

socklen_t fill(web_address const& at, any_address& address) {
    address.room = {};
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
    setsockopt(made.get(), IPPROTO_TCP, TCP_DEFER_ACCEPT, &patience_with_idle_s, sizeof patience_with_idle_s);
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

void web_listener::serve(std::size_t threads, server const& serve_one) {
    threads_.emplace_back([this] { accept_all(); });
    for (std::size_t i = 0; i < threads; ++i) {
        threads_.emplace_back([this, serve_one] { serve_all(serve_one); });
    }
}

void web_listener::accept_all() {
    std::array<pollfd, 2> watched{
        {{.fd = listening_.get(), .events = POLLIN, .revents = 0}, {.fd = end_.get(), .events = POLLIN, .revents = 0}}};
    while (watched[1].revents == 0) {
        if (poll(watched.data(), watched.size(), -1) <= 0 || watched[0].revents == 0) {
            continue;
        }
        any_address address{};
        socklen_t size = sizeof address;
        file_handle connection(accept4(listening_.get(), &address.plain, &size, SOCK_CLOEXEC));
        if (connection) {
            int const on = 1;
            setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            take({.connection = std::move(connection), .remote = host_of(address)});
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            poll(&watched[1], 1, pause_ms);
        }
    }
}

/// One too many is closed without a word: answering it would be work, too.
void web_listener::take(visitor one) {
    {
        std::lock_guard const lock(mutex_);
        if (stopped_ || waiting_.size() >= most_waiting) {
            return;
        }
        waiting_.push_back(std::move(one));
    }
    changed_.notify_one();
}

void web_listener::serve_all(server const& serve_one) {
    work_when_idle();
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return stopped_ || !waiting_.empty(); });
        if (stopped_) {
            return;
        }
        visitor const one = std::move(waiting_.front());
        waiting_.pop_front();
        served_.insert(one.connection.get());
        lock.unlock();
        serve_one(one.connection, one.remote);
        lock.lock();
        served_.erase(one.connection.get());
    }
}

void web_listener::stop() {
    {
        std::lock_guard const lock(mutex_);
        stopped_ = true;
        for (int const connection : served_) {
            shutdown(connection, SHUT_RD);
        }
    }
    eventfd_write(end_.get(), 1);
    changed_.notify_all();
    for (auto& thread : threads_) {
        thread.join();
    }
    threads_.clear();
    waiting_.clear();
    listening_ = file_handle();  // who comes now is told at once that nobody is there
}

}  // namespace mediagrabber
