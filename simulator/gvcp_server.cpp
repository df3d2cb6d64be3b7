#include "gvcp_server.hpp"

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

}  // namespace

/// \throws std::system_error when the host has no descriptor left
gvcp_server::gvcp_server(camera_state& state, gvcp_device& device, block_resender& resender, gvcp_sockets& sockets,
                         answer_faults& faults)
    : state_(state),
      device_(device),
      resender_(resender),
      sockets_(sockets),
      faults_(faults),
      wake_(::eventfd(0, EFD_CLOEXEC)),
      delay_(state.options.delay, ~state.options.scene.seed) {
    if (!wake_) {
        throw std::system_error(errno, std::generic_category(), "cannot make the control thread's wake-up event");
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

/// Makes the thread look at the camera's state again.
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
        std::scoped_lock const lock(state_.mutex);
        if (!state_.deaf) {
            device_.check_heartbeat(std::chrono::steady_clock::now());
        }
    }
}

/// Until the next delayed answer or the end of somebody's control, at most a minute.
std::chrono::nanoseconds gvcp_server::poll_timeout() {
    std::optional<time_point> next;
    {
        std::scoped_lock const lock(state_.mutex);
        next = state_.deaf ? std::nullopt : device_.control_expiry();
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
void gvcp_server::receive(int descriptor) {
    if (auto const one = sockets_.receive(descriptor)) {
        handle(one->datagram, one->sender, one->how);
    }
}

void gvcp_server::handle(std::span<std::byte const> datagram, endpoint const& sender, delivery how) {
    time_point const now = std::chrono::steady_clock::now();
    gvcp_outcome outcome;
    {
        std::scoped_lock const lock(state_.mutex);
        if (state_.deaf) {
            return;
        }
        outcome = device_.handle(datagram, sender, now, how);
    }
    time_point const departure = departure_of_answers(now);
    for (gvcp_answer& answer : faults_.filter(std::move(outcome.answers))) {
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

void gvcp_server::send_due() {
    time_point const now = std::chrono::steady_clock::now();
    while (!outbox_.empty() && outbox_.begin()->first <= now) {
        outgoing const& one = outbox_.begin()->second;
        sockets_.send(one.destination, one.datagram);
        outbox_.erase(outbox_.begin());
    }
}

}  // namespace camsim
