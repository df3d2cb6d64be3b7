#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "frame_record.hpp"

namespace mediagrabber {

/// Records that wait to be told. When it is full, the oldest make room and are counted. Nothing is allocated after its
/// beginning; used from any thread.
class record_queue {
public:
    /// \param capacity above 0
    explicit record_queue(std::size_t capacity) : records_(capacity) {}

    /// \return whether it was empty before
    bool push(frame_record const& record);
    std::optional<frame_record> pop();
    /// Gives up what waits, and counts it.
    void give_up();

    std::size_t waiting() const;
    std::uint64_t dropped() const;

private:
    mutable std::mutex mutex_;
    std::vector<frame_record> records_;  ///< a ring
    std::size_t first_ = 0;
    std::size_t waiting_ = 0;
    std::uint64_t dropped_ = 0;
};

}  // namespace mediagrabber
