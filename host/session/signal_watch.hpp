// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/file_handle.hpp"
#include "frames/grab_progress.hpp"
#include "plugin/signal_latch.hpp"
#include "session/grace_timer.hpp"

namespace mediagrabber {

/// The signal that triggers: it saves the pre-trigger buffer. SIGRTMIN+1, because no standard signal is left.
int pretrigger_signal();

/// A request of `mediagrabber signal`, and the signal that stands for it.
struct named_signal {
    std::string name;
    int number;
};

/// "stop", "reload", "lut", "lut12", "trigger"
std::vector<named_signal> const& named_signals();
/// \return the signal's number; 0 if there is no such request
int signal_of(std::string const& name);

/// Reads the process's signals on its own thread, latches them for the plug-in, and enforces the grace time of a stop.
///
/// Signals are blocked in every thread and read from a signalfd. Therefore no code runs in a signal handler, and no
/// system call of the plug-in is interrupted. The destructor ends the thread; the latch, the progress and the actions
/// must outlive the object.
class signal_watch {
public:
    /// Called on the thread of the watch. Exceptions of `reload` and `trigger` are logged.
    struct actions {
        std::function<void()> reload;   ///< called on SIGHUP, before it is latched
        std::function<void()> trigger;  ///< called on pretrigger_signal()
        /// Called if a stop was not answered within the grace time, or was requested twice. Must end the process.
        std::function<void(char const* reason)> exit_without_plugin;
    };

    /// Blocks the signals that mediagrabber handles. Must be called before a second thread is started, which inherits
    /// it.
    static void block_signals();
    /// Restores the default action of SIGINT and SIGTERM, for the time after the plug-in has ended.
    static void restore_default();

    signal_watch(signal_latch& latch, grab_progress const& progress, std::chrono::duration<double> grace, actions act);
    ~signal_watch();
    signal_watch(signal_watch const&) = delete;
    signal_watch& operator=(signal_watch const&) = delete;

    bool stop_requested() const;
    /// Blocks until a stop or a reload is requested or the timeout expires. \return whether one is requested
    bool wait_for_stop_or_reload(std::chrono::duration<double> timeout);

private:
    void run();
    void read_signal();
    static void perform(std::function<void()> const& action, char const* name);
    void request_stop(signal_code kind);
    void request_reload();

    signal_latch& latch_;
    grab_progress const& progress_;
    grace_timer grace_;
    actions const act_;
    file_handle signals_;  ///< a signalfd
    file_handle end_;      ///< an eventfd; readable: the thread ends

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool stop_requested_ = false;  ///< guarded by mutex_

    std::jthread thread_;
};

}  // namespace mediagrabber
