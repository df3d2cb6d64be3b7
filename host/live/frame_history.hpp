#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "frame_watcher_like.hpp"

namespace mediagrabber {

/// The records of the last frames, for those who show how a recording goes. Read from any thread.
class frame_history final : public frame_watcher_like {
public:
    /// \param capacity frames that are remembered, above 0
    explicit frame_history(std::size_t capacity);

    void see(frame_lease const& frame) noexcept override;

    std::optional<frame_record> newest() const;
    /// The records behind that of frame `number`, oldest first; of more than `most` the newest.
    std::vector<frame_record> after(std::uint64_t number, std::size_t most) const;

private:
    mutable std::mutex mutex_;
    std::vector<frame_record> records_;  ///< a ring
    std::uint64_t seen_ = 0;
};

/// How far a frame's timestamp is from the one that was announced for it, microseconds; nothing announced: nothing.
std::optional<std::int64_t> announcement_error_us(frame_record const& record);
/// From the frame's timestamp to the moment when the plug-in gave it out of its hands, microseconds.
std::int64_t handover_delay_us(frame_record const& record);

}  // namespace mediagrabber
