#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "grab_progress.hpp"

namespace mediagrabber {

/// Tells systemd how a recording goes, when it is one of its services: ready with the first frame, alive as long as
/// frames come (its watchdog hears of nothing else), a line about it every few seconds. Does nothing elsewhere.
class service_manager {
public:
    using tell = std::function<void(std::string const&)>;

    /// \param describe a line about the recording, from any thread
    service_manager(grab_progress const& progress, std::function<std::string()> describe);
    /// \param interval how often to look \param say receives what systemd is told
    service_manager(grab_progress const& progress, std::function<std::string()> describe,
                    std::chrono::milliseconds interval, tell say);
    ~service_manager();
    service_manager(service_manager const&) = delete;
    service_manager& operator=(service_manager const&) = delete;

private:
    void run(std::stop_token const& stop, std::chrono::milliseconds interval);

    grab_progress const& progress_;
    std::function<std::string()> const describe_;
    tell const say_;
    std::mutex mutex_;  ///< of nothing: the thread's pauses end when it is to stop
    std::condition_variable_any changed_;
    std::jthread thread_;
};

}  // namespace mediagrabber
