// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// A bounded queue of frame records between two threads. When it is full, a new record replaces the oldest one, which
/// counts as dropped. Allocates only in the constructor. Thread-safe.
class record_queue {
public:
    /// \param capacity  above 0
    explicit record_queue(std::size_t capacity) : records_(capacity) {}

    /// \return whether the queue was empty before, so the consumer needs a wake-up
    bool push(frame_record const& record);
    /// \return the oldest record, nothing if the queue is empty
    std::optional<frame_record> pop();
    /// Empties the queue and counts its records as dropped.
    void drop_all();

    /// \return number of queued records
    std::size_t size() const;
    /// \return number of dropped records
    std::uint64_t dropped() const;

private:
    mutable std::mutex mutex_;           ///< guards all members below
    std::vector<frame_record> records_;  ///< a ring
    std::size_t first_ = 0;
    std::size_t size_ = 0;
    std::uint64_t dropped_ = 0;
};

}  // namespace mediagrabber
