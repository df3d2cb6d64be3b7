#include "gvcp_server.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace camsim {

namespace {

constexpr ipv4_address limited_broadcast = 0xFFFF'FFFF;
/// Longer than any GVCP datagram; what does not fit is cut and then fails the length check.
constexpr std::size_t receive_size = 2048;

void enable(int socket, int level, int option) {
    int const on = 1;
    if (::setsockopt(socket, level, option, &on, sizeof(on)) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot set an option of a GVCP socket");
    }
}

/// \param shared several cameras on this host listen to the same broadcasts
file_descriptor open_socket(ipv4_address address, bool shared) {
    file_descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        throw std::system_error(errno, std::generic_category(), "cannot open a GVCP socket");
    }
    if (shared) {
        enable(socket.get(), SOL_SOCKET, SO_REUSEADDR);
        enable(socket.get(), IPPROTO_IP, IP_PKTINFO);
    }
    sockaddr_in const name = to_sockaddr({address, gvcp::port});
    if (::bind(socket.get(), reinterpret_cast<sockaddr const*>(&name), sizeof(name)) != 0) {
        std::string const where = to_string(address) + ":" + std::to_string(gvcp::port);
        throw std::system_error(errno, std::generic_category(),
                                errno == EADDRINUSE
                                    ? "another camera listens on " + where + "; choose another --address"
                                    : "cannot listen on " + where);
    }
    return socket;
}

timespec to_timespec(std::chrono::nanoseconds time) {
    auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

/// The interface that a broadcast came in by; 0 when the kernel did not say.
unsigned arrival_interface(msghdr& message) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(part), sizeof(info));
            return static_cast<unsigned>(info.ipi_ifindex);
        }
    }
    return 0;
}

}  // namespace

/// \throws std::system_error with a message that says what to do, when the port is taken or the address not ours
gvcp_server::gvcp_server(camera_state& state, gvcp_device& device, block_resender& resender,
                         network_interface const& interface)
    : state_(state),
      device_(device),
      resender_(resender),
      interface_index_(interface.index),
      unicast_(open_socket(interface.address, false)),
      wake_(::eventfd(0, EFD_CLOEXEC)),
      delay_(state.options.delay, ~state.options.scene.seed) {
    if (!wake_) {
        throw std::system_error(errno, std::generic_category(), "cannot make the control thread's wake-up event");
    }
    broadcast_.push_back(open_socket(limited_broadcast, true));
    if (interface.broadcast_address() != interface.address) {
        broadcast_.push_back(open_socket(interface.broadcast_address(), true));
    }
}

gvcp_server::~gvcp_server() {
    stop();
}

void gvcp_server::start() {
    thread_ = std::jthread([this](std::stop_token const& stop) { run(stop); });
}

void gvcp_server::stop() {
    thread_.request_stop();
    eventfd_write(wake_.get(), 1);
    thread_ = {};
}

void gvcp_server::run(std::stop_token const& stop) {
    std::vector<pollfd> sockets{{wake_.get(), POLLIN, 0}, {unicast_.get(), POLLIN, 0}};
    for (file_descriptor const& one : broadcast_) {
        sockets.push_back({one.get(), POLLIN, 0});
    }
    while (!stop.stop_requested()) {
        timespec const timeout = to_timespec(poll_timeout());
        ::ppoll(sockets.data(), sockets.size(), &timeout, nullptr);
        for (std::size_t index = 1; index < sockets.size(); ++index) {
            if (sockets[index].revents != 0) {
                receive(sockets[index].fd, index > 1 ? delivery::broadcast : delivery::unicast);
            }
        }
        send_due();
        std::scoped_lock const lock(state_.mutex);
        device_.check_heartbeat(std::chrono::steady_clock::now());
    }
}

/// Until the next delayed answer or the end of somebody's control, at most a minute.
std::chrono::nanoseconds gvcp_server::poll_timeout() {
    std::optional<time_point> next;
    {
        std::scoped_lock const lock(state_.mutex);
        next = device_.control_expiry();
    }
    if (!outbox_.empty()) {
        next = std::min(next.value_or(time_point::max()), outbox_.begin()->first);
    }
    constexpr std::chrono::nanoseconds longest = std::chrono::minutes(1);
    if (!next) {
        return longest;
    }
    return std::clamp<std::chrono::nanoseconds>(*next - std::chrono::steady_clock::now(), {}, longest);
}

/// Takes one datagram; poll tells when there are more.
void gvcp_server::receive(int socket, delivery how) {
    std::array<std::byte, receive_size> buffer;
    alignas(cmsghdr) std::array<std::byte, 128> control;
    sockaddr_in sender{};
    iovec piece{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof(sender);
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t const length = ::recvmsg(socket, &message, 0);
    if (length < 0 || (how == delivery::broadcast && arrival_interface(message) != interface_index_)) {
        return;
    }
    handle(std::span(buffer).first(static_cast<std::size_t>(length)), from_sockaddr(sender), how);
}

void gvcp_server::handle(std::span<std::byte const> datagram, endpoint const& sender, delivery how) {
    time_point const now = std::chrono::steady_clock::now();
    gvcp_outcome outcome;
    {
        std::scoped_lock const lock(state_.mutex);
        outcome = device_.handle(datagram, sender, now, how);
    }
    time_point const departure = departure_of_answers(now);
    for (gvcp_answer& answer : outcome.answers) {
        outbox_.emplace(departure + answer.delay, outgoing{sender, std::move(answer.datagram)});
    }
    if (outcome.resend) {
        resend_job const& job = *outcome.resend;
        resender_.resend(job.request, job.ids, job.extended_status, job.destination);
    }
}

/// When the answers to a command that has come in leave, if the camera needs no time for it. None overtakes another.
gvcp_server::time_point gvcp_server::departure_of_answers(time_point now) {
    if (state_.options.delay.of_answers) {
        last_departure_ = std::max(last_departure_, now + delay_.next());
        return last_departure_;
    }
    return now;
}

/// An answer that cannot be sent is lost like one on the wire; the application asks again.
void gvcp_server::send_due() {
    time_point const now = std::chrono::steady_clock::now();
    while (!outbox_.empty() && outbox_.begin()->first <= now) {
        outgoing const& one = outbox_.begin()->second;
        sockaddr_in const destination = to_sockaddr(one.destination);
        ::sendto(unicast_.get(), one.datagram.data(), one.datagram.size(), MSG_NOSIGNAL,
                 reinterpret_cast<sockaddr const*>(&destination), sizeof(destination));
        outbox_.erase(outbox_.begin());
    }
}

}  // namespace camsim
