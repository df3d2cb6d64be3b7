#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "grab_progress.hpp"
#include "grace_timer.hpp"
#include "signal_latch.hpp"

namespace mediagrabber {

/// The signal that asks for the frames to be written that are held in memory: SIGRTMIN+1.
int keep_signal();

/// Takes the process's signals on a thread of its own and latches them for the plug-in; watches over stops that the
/// plug-in does not answer.
///
/// Signals are blocked in every thread and read from a descriptor, so no code ever runs inside a signal handler, and no
/// system call of the plug-in is interrupted.
class signal_watch {
public:
    struct actions {
        std::function<void()> reload;  ///< SIGHUP came; called before it is latched
        std::function<void()> keep;    ///< keep_signal() came
        /// A stop was not answered in time, or was asked for twice. Ends the process.
        std::function<void(char const* reason)> cut_short;
    };

    /// Blocks the signals that mediagrabber handles; to be called before there is a second thread.
    static void block_signals();
    /// Lets SIGINT and SIGTERM end the process again, for the time when it only waits for a disk.
    static void restore_default();

    signal_watch(signal_latch& latch, grab_progress const& progress, std::chrono::duration<double> grace, actions act);
    ~signal_watch();
    signal_watch(signal_watch const&) = delete;
    signal_watch& operator=(signal_watch const&) = delete;

    bool stop_asked() const;
    /// Waits, but no longer than until a stop or a reload is asked for. \return whether one is
    bool wait_for_stop_or_reload(std::chrono::duration<double> longest);

private:
    void run();
    void take_signal();
    void ask_stop(request kind);
    void ask_reload();

    signal_latch& latch_;
    grab_progress const& progress_;
    grace_timer grace_;
    actions const act_;
    int signals_ = -1;  ///< descriptor to read signals from
    int end_ = -1;      ///< descriptor that tells the thread to end

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool stop_asked_ = false;

    std::thread thread_;
};

}  // namespace mediagrabber
