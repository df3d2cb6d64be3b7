// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Faults of the host that a test injects into a program. The test writes them to a file, whose path the program gets
/// in the environment variable HOST_TROUBLES; it may change them at any time.

#include <atomic>
#include <cstdint>

/// Layout of the file, in this machine's byte order.
struct host_troubles {
    std::atomic<int64_t> clock_ahead_s;   ///< seconds added to the time of day
    std::atomic<int64_t> write_delay_us;  ///< microseconds that each write to a file takes longer
    std::atomic<int64_t> write_error;     ///< errno with which writes to files fail; 0: none
};

/// \return the current faults, mapped from the file; always the same object
host_troubles const& present_troubles();
