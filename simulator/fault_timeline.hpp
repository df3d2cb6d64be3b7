#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "active_faults.hpp"

namespace camsim {

/// Puts faults into force and ends them when their time has come, or at once for somebody who asks.
class fault_timeline {
public:
    using time_point = std::chrono::steady_clock::time_point;

    /// \param changed  called after each change of the faults in force, never by two threads at a time
    fault_timeline(active_faults& faults, std::function<void()> changed);

    void start(std::vector<scheduled_fault> const& plan, time_point origin);
    void stop();

    std::uint32_t add(scheduled_fault const& one, time_point now);
    std::optional<std::uint64_t> end(std::uint32_t number);
    std::uint64_t end_all();
    std::optional<time_point> follow(time_point now);

private:
    struct entry {
        std::uint32_t number;
        fault what;
        time_point begin;
        std::optional<time_point> end;
        bool in_force = false;
    };

    entry make_entry(scheduled_fault const& one, time_point origin);
    std::optional<time_point> follow_locked(time_point now);
    void run(std::stop_token const& stop);

    active_faults& faults_;
    std::function<void()> const changed_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::vector<entry> entries_;
    std::uint32_t last_number_ = 0;
    bool news_ = false;  ///< for the thread: entries have come
    std::jthread thread_;
};

}  // namespace camsim
