// SPDX-License-Identifier: MIT
#include "session/signal_watch.hpp"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "base/host_log.hpp"

namespace mediagrabber {

namespace {

constexpr int watch_interval_ms = 100;  ///< the accuracy of the grace time

sigset_t handled_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (int const signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2, pretrigger_signal()}) {
        sigaddset(&set, signal);
    }
    return set;
}

file_handle checked(int descriptor, char const* what) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return file_handle(descriptor);
}

grace_timer::clock::duration to_clock_duration(std::chrono::duration<double> seconds) {
    return std::chrono::duration_cast<grace_timer::clock::duration>(seconds);
}

}  // namespace

int pretrigger_signal() {
    return SIGRTMIN + 1;
}

std::vector<named_signal> const& named_signals() {
    static std::vector<named_signal> const signals{
        {"stop", SIGTERM}, {"reload", SIGHUP}, {"lut", SIGUSR1}, {"lut12", SIGUSR2}, {"trigger", pretrigger_signal()}};
    return signals;
}

int signal_of(std::string const& name) {
    auto const& signals = named_signals();
    auto const found = std::ranges::find(signals, name, &named_signal::name);
    return found == signals.end() ? 0 : found->number;
}

/// SIGXFSZ and SIGPIPE are ignored: a full file or a closed pipe is an error of the write, reported by its caller.
void signal_watch::block_signals() {
    sigset_t const set = handled_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

/// Discards signals that arrived while the plug-in was running: the end of its run has satisfied these requests.
void signal_watch::restore_default() {
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    timespec const at_once{};
    while (sigtimedwait(&stops, nullptr, &at_once) > 0) {
    }
    pthread_sigmask(SIG_UNBLOCK, &stops, nullptr);
}

signal_watch::signal_watch(signal_latch& latch, grab_progress const& progress, std::chrono::duration<double> grace,
                           actions act)
    : latch_(latch), progress_(progress), grace_(to_clock_duration(grace)), act_(std::move(act)) {
    sigset_t const set = handled_signals();
    signals_ = checked(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd");
    end_ = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread_ = std::jthread([this] { run(); });
}

signal_watch::~signal_watch() {
    eventfd_write(end_.get(), 1);
}

void signal_watch::run() {
    std::array<pollfd, 2> watched{
        {{.fd = signals_.get(), .events = POLLIN, .revents = 0}, {.fd = end_.get(), .events = POLLIN, .revents = 0}}};
    while (watched[1].revents == 0) {
        poll(watched.data(), watched.size(), watch_interval_ms);
        if ((watched[0].revents & POLLIN) != 0) {
            read_signal();
        }
        if (grace_.expired(grace_timer::clock::now(), latch_.stop_pending(), progress_.last_frame)) {
            act_.exit_without_plugin("the plug-in did not stop within the grace time");
        }
    }
}

void signal_watch::read_signal() {
    signalfd_siginfo received{};
    if (read(signals_.get(), &received, sizeof received) != static_cast<ssize_t>(sizeof received)) {
        return;
    }
    switch (received.ssi_signo) {
        case SIGTERM:
            request_stop(signal_code::stop);
            break;
        case SIGINT:
            request_stop(signal_code::stop_second_kind);
            break;
        case SIGHUP:
            request_reload();
            break;
        case SIGUSR1:
            latch_.raise(signal_code::user_1);
            break;
        case SIGUSR2:
            latch_.raise(signal_code::user_2);
            break;
        default:
            if (static_cast<int>(received.ssi_signo) == pretrigger_signal()) {
                perform(act_.trigger, "trigger");
            }
            break;
    }
}

/// A request that fails must not end the recording.
void signal_watch::perform(std::function<void()> const& action, char const* name) {
    try {
        action();
    } catch (std::exception const& error) {
        log_error(std::string(name) + " failed: " + error.what());
    }
}

void signal_watch::request_stop(signal_code kind) {
    latch_.raise(kind);
    bool again = false;
    {
        std::lock_guard const lock(mutex_);
        again = std::exchange(stop_requested_, true);
    }
    changed_.notify_all();
    if (again) {
        act_.exit_without_plugin("stop requested twice");
    }
}

void signal_watch::request_reload() {
    perform(act_.reload, "reload");
    {
        std::lock_guard const lock(mutex_);
        latch_.raise(signal_code::reload);
    }
    changed_.notify_all();
}

bool signal_watch::stop_requested() const {
    std::lock_guard const lock(mutex_);
    return stop_requested_;
}

bool signal_watch::wait_for_stop_or_reload(std::chrono::duration<double> timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] { return stop_requested_ || latch_.reload_pending(); });
}

}  // namespace mediagrabber
