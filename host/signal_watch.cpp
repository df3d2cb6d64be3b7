#include "signal_watch.hpp"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace mediagrabber {

namespace {

constexpr int watch_interval_ms = 100;  ///< how exactly the grace time is kept

sigset_t handled_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (int const signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2, keep_signal()}) {
        sigaddset(&set, signal);
    }
    return set;
}

int checked(int descriptor, char const* what) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return descriptor;
}

grace_timer::clock::duration in_clock_time(std::chrono::duration<double> seconds) {
    return std::chrono::duration_cast<grace_timer::clock::duration>(seconds);
}

}  // namespace

int keep_signal() {
    return SIGRTMIN + 1;
}

/// Writing to a full or limited file, or to a reader that has gone, is an error of the write and no reason to die.
void signal_watch::block_signals() {
    sigset_t const set = handled_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

/// A signal that came while the plug-in was still running has been answered by its end.
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
    : latch_(latch), progress_(progress), grace_(in_clock_time(grace)), act_(std::move(act)) {
    sigset_t const set = handled_signals();
    signals_ = checked(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd");
    end_ = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread_ = std::thread([this] { run(); });
}

signal_watch::~signal_watch() {
    eventfd_write(end_, 1);
    thread_.join();
    close(end_);
    close(signals_);
}

void signal_watch::run() {
    std::array<pollfd, 2> watched{
        {{.fd = signals_, .events = POLLIN, .revents = 0}, {.fd = end_, .events = POLLIN, .revents = 0}}};
    while (watched[1].revents == 0) {
        poll(watched.data(), watched.size(), watch_interval_ms);
        if ((watched[0].revents & POLLIN) != 0) {
            take_signal();
        }
        if (grace_.expired(grace_timer::clock::now(), latch_.stop_pending(), progress_.last_frame)) {
            act_.cut_short("the plug-in did not stop within the grace time");
        }
    }
}

void signal_watch::take_signal() {
    signalfd_siginfo received{};
    if (read(signals_, &received, sizeof received) != static_cast<ssize_t>(sizeof received)) {
        return;
    }
    switch (received.ssi_signo) {
        case SIGTERM:
            ask_stop(request::stop);
            break;
        case SIGINT:
            ask_stop(request::stop_second);
            break;
        case SIGHUP:
            ask_reload();
            break;
        case SIGUSR1:
            latch_.raise(request::user_1);
            break;
        case SIGUSR2:
            latch_.raise(request::user_2);
            break;
        default:
            if (static_cast<int>(received.ssi_signo) == keep_signal()) {
                act_.keep();
            }
            break;
    }
}

void signal_watch::ask_stop(request kind) {
    latch_.raise(kind);
    bool again = false;
    {
        std::lock_guard const lock(mutex_);
        again = std::exchange(stop_asked_, true);
    }
    changed_.notify_all();
    if (again) {
        act_.cut_short("a stop was asked for twice");
    }
}

void signal_watch::ask_reload() {
    act_.reload();
    {
        std::lock_guard const lock(mutex_);
        latch_.raise(request::reload);
    }
    changed_.notify_all();
}

bool signal_watch::stop_asked() const {
    std::lock_guard const lock(mutex_);
    return stop_asked_;
}

bool signal_watch::wait_for_stop_or_reload(std::chrono::duration<double> longest) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, longest, [this] { return stop_asked_ || latch_.reload_pending(); });
}

}  // namespace mediagrabber
