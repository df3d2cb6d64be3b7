// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Counts allocations. A program that links `allocation_count` uses its allocation functions instead of the library's.

#include <atomic>
#include <cstddef>

namespace support {

/// Calls of `operator new`, by all threads, since the program started.
extern std::atomic<std::size_t> allocations;

}  // namespace support
