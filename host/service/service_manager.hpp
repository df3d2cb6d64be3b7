// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "frames/grab_progress.hpp"

namespace mediagrabber {

/// Reports the state of a recording to systemd if it runs as a service: ready with the first frame, a watchdog
/// keep-alive while frames arrive or the recording waits between attempts to reach its camera, and a status line every
/// few seconds. A plug-in that neither delivers frames nor ends its runs is a hang and gets no keep-alive. Outside of a
/// service it does nothing and starts no thread.
class service_manager {
public:
    using notifier = std::function<void(std::string const&)>;

    /// \param describe  returns a status line; called on the thread of this object
    service_manager(grab_progress const& progress, std::function<std::string()> describe);
    /// \param interval  between checks for new frames
    /// \param notify    receives the notifications; null: none
    service_manager(grab_progress const& progress, std::function<std::string()> describe,
                    std::chrono::milliseconds interval, notifier notify);
    ~service_manager();
    service_manager(service_manager const&) = delete;
    service_manager& operator=(service_manager const&) = delete;

private:
    void run(std::stop_token const& stop, std::chrono::milliseconds interval);

    grab_progress const& progress_;
    std::function<std::string()> const describe_;
    notifier const notify_;
    std::mutex mutex_;  ///< guards nothing; the condition variable needs it to end the thread's pauses
    std::condition_variable_any changed_;
    std::jthread thread_;
};

}  // namespace mediagrabber
