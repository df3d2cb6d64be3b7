#pragma once
/// \file
/// What troubles a program has at present. A test writes them into a file, which the program's environment names:
/// HOST_TROUBLES.

#include <atomic>
#include <cstdint>

/// As it stands in the file, in this machine's byte order.
struct host_troubles {
    std::atomic<int64_t> clock_ahead_s;   ///< added to the time of day
    std::atomic<int64_t> write_delay_us;  ///< that each write to a file takes longer
    std::atomic<int64_t> write_error;     ///< that writing to files fails with, an errno; 0: none
};

/// \return those of the moment; it stays the same object
host_troubles const& present_troubles();
