// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "frames/frame_observer_like.hpp"

namespace mediagrabber {

/// The records of the latest frames, without their pixels: the source of the page's timing charts and of "latest frame"
/// in the status.
///
/// Memory is allocated once, by the constructor. The exporter's thread adds, any thread reads; a mutex guards the ring,
/// and a reader holds it for as long as it takes to copy the records.
class frame_history final : public frame_observer_like {
public:
    /// \param capacity  number of records that are retained, above 0
    explicit frame_history(std::size_t capacity);

    void on_frame(frame_lease const& frame) noexcept override;

    /// \return the latest record; nothing before the first frame
    std::optional<frame_record> newest() const;
    /// \param number       a frame number
    /// \param max_records  limit of the result
    /// \return the latest records with a higher number, oldest first
    std::vector<frame_record> after(std::uint64_t number, std::size_t max_records) const;

private:
    mutable std::mutex mutex_;           ///< guards all members below
    std::vector<frame_record> records_;  ///< a ring
    std::uint64_t count_ = 0;            ///< frames added so far
};

/// \return the frame's timestamp minus the announced one, microseconds; nothing if none was announced
std::optional<std::int64_t> announcement_error_us(frame_record const& record);
/// \return the time from the frame's timestamp until the plug-in handed the frame over, microseconds; negative if the
///         host clock was set back meanwhile
std::int64_t handover_delay_us(frame_record const& record);

}  // namespace mediagrabber
