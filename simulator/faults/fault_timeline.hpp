// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "faults/active_faults.hpp"

namespace camsim {

/// Activates and deactivates faults at their times, or at once on request.
///
/// A thread waits for the next due time; it runs from start() to stop() or destruction. All members may be called by
/// any thread. `changed` is called with the timeline's mutex held, so it must not call the timeline.
class fault_timeline {
public:
    using time_point = std::chrono::steady_clock::time_point;

    /// \param faults receives the active faults; must outlive the timeline
    /// \param changed called after each change of the active faults, never by two threads at a time
    fault_timeline(active_faults& faults, std::function<void()> changed);

    /// Starts the thread. Faults of the plan that start at 0 are active on return.
    /// \param origin time 0 of the plan
    void start(std::vector<scheduled_fault> const& plan, time_point origin);

    /// Ends the thread. Active faults stay active.
    void stop();

    /// Schedules a fault relative to `now`; without a delay it is active on return.
    /// \return the fault's number
    std::uint32_t add(scheduled_fault const& one, time_point now);

    /// Deactivates a fault, or removes it from the schedule if it has not started.
    /// \return how often it was applied; empty if no scheduled or active fault has this number
    std::optional<std::uint64_t> cancel(std::uint32_t number);

    /// Cancels all faults.
    /// \return how often they were applied in total
    std::uint64_t cancel_all();

    /// Activates and deactivates the faults that are due. The thread calls it; tests call it with times of their own.
    /// \return the next due time; empty if there is none
    std::optional<time_point> update(time_point now);

private:
    struct entry {
        std::uint32_t number;
        fault what;
        time_point begin;
        std::optional<time_point> end;
        bool active = false;
    };

    entry make_entry(scheduled_fault const& one, time_point origin);
    std::optional<time_point> update_locked(time_point now);
    void run(std::stop_token const& stop);

    active_faults& faults_;
    std::function<void()> const changed_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::vector<entry> entries_;
    std::uint32_t last_number_ = 0;
    bool entries_changed_ = false;  ///< wakes the thread: entries were added
    std::jthread thread_;
};

}  // namespace camsim
