// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace mediagrabber {

/// Returns memory that the process has freed to the system, regularly. Clients come and go for months, on many threads;
/// the allocator keeps what each of them needed once.
///
/// Runs a thread during its lifetime. Its work takes some milliseconds, and other threads wait for that only while they
/// allocate; receiving frames does not.
class memory_trimmer {
public:
    explicit memory_trimmer(std::chrono::milliseconds interval = std::chrono::seconds(10));

private:
    std::mutex mutex_;  ///< guards nothing; the condition variable needs it
    std::condition_variable_any never_;
    std::jthread thread_;  ///< last, so that it ends first
};

}  // namespace mediagrabber
