// SPDX-License-Identifier: MIT
#include "control/gvcp_server.hpp"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace camsim {

namespace {

timespec to_timespec(std::chrono::nanoseconds time) {
    auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

std::optional<gvcp_device::time_point> earlier(std::optional<gvcp_device::time_point> one,
                                               std::optional<gvcp_device::time_point> other) {
    return one && other ? std::min(*one, *other) : (one ? one : other);
}

}  // namespace

gvcp_server::gvcp_server(camera_state& state, gvcp_device& device, block_resender& resender, gvcp_sockets& sockets,
                         ack_faults& faults)
    : state_(state),
      device_(device),
      resender_(resender),
      sockets_(sockets),
      faults_(faults),
      wake_(::eventfd(0, EFD_CLOEXEC)),
      delay_(state.options.delay, ~state.options.scene.seed) {
    if (!wake_) {
        throw std::system_error(errno, std::generic_category(), "cannot create the control thread's eventfd");
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
    wake();
    thread_ = {};
}

void gvcp_server::wake() {
    ::eventfd_write(wake_.get(), 1);
}

void gvcp_server::run(std::stop_token const& stop) {
    std::vector<pollfd> watched{{wake_.get(), POLLIN, 0}};
    for (int const descriptor : sockets_.descriptors()) {
        watched.push_back({descriptor, POLLIN, 0});
    }
    while (!stop.stop_requested()) {
        timespec const timeout = to_timespec(poll_timeout());
        ::ppoll(watched.data(), watched.size(), &timeout, nullptr);
        if (watched[0].revents != 0) {
            eventfd_t woken = 0;
            ::eventfd_read(wake_.get(), &woken);
        }
        for (std::size_t index = 1; index < watched.size(); ++index) {
            if (watched[index].revents != 0) {
                receive(watched[index].fd);
            }
        }
        send_due();
        std::lock_guard const lock(state_.mutex);
        if (!state_.control_unresponsive) {
            auto const now = std::chrono::steady_clock::now();
            device_.check_heartbeat(now);
            device_.run_actions(now);
        }
    }
}

/// Time until the next delayed ACK or scheduled action is due or control expires, at most a minute.
std::chrono::nanoseconds gvcp_server::poll_timeout() {
    std::optional<time_point> next;
    {
        std::lock_guard const lock(state_.mutex);
        if (!state_.control_unresponsive) {
            next = earlier(device_.control_expiry(), device_.next_action());
        }
    }
    if (!outbox_.empty()) {
        next = earlier(next, outbox_.begin()->first);
    }
    constexpr std::chrono::nanoseconds max_timeout = std::chrono::minutes(1);
    if (!next) {
        return max_timeout;
    }
    return std::clamp<std::chrono::nanoseconds>(*next - std::chrono::steady_clock::now(), {}, max_timeout);
}

/// Receives one datagram; poll reports further ones.
void gvcp_server::receive(int descriptor) {
    if (auto const one = sockets_.receive(descriptor)) {
        handle(one->datagram, one->sender, one->how);
    }
}

void gvcp_server::handle(std::span<std::byte const> datagram, endpoint const& sender, delivery how) {
    time_point const now = std::chrono::steady_clock::now();
    gvcp_outcome outcome;
    {
        std::lock_guard const lock(state_.mutex);
        if (state_.control_unresponsive) {
            return;
        }
        outcome = device_.handle(datagram, sender, now, how);
    }
    time_point const departure = ack_departure(now);
    for (gvcp_ack& ack : faults_.filter(std::move(outcome.acks))) {
        outbox_.emplace(departure + ack.delay, outgoing{sender, std::move(ack.datagram)});
    }
    if (outcome.resend) {
        resend_job const& job = *outcome.resend;
        resender_.resend(job.request, job.ids, job.extended_status, job.destination);
    }
}

/// When ACKs to a command that arrived now are sent if the command itself takes no time. ACKs keep their order.
gvcp_server::time_point gvcp_server::ack_departure(time_point now) {
    if (state_.options.delay.delay_acks) {
        last_departure_ = std::max(last_departure_, now + delay_.next());
        return last_departure_;
    }
    return now;
}

void gvcp_server::send_due() {
    time_point const now = std::chrono::steady_clock::now();
    while (!outbox_.empty() && outbox_.begin()->first <= now) {
        outgoing const& one = outbox_.begin()->second;
        sockets_.send(one.destination, one.datagram);
        outbox_.erase(outbox_.begin());
    }
}

}  // namespace camsim
