// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "frames/buffer_pool.hpp"
#include "frames/frame_record.hpp"

namespace mediagrabber {

/// Shared ownership of a frame in a buffer pool: its spare is released with the last copy of the lease. Copying neither
/// copies pixels nor allocates. Copies may be used and destroyed on different threads.
class frame_lease {
public:
    frame_lease() = default;
    /// \param spare   acquired from `memory` by the caller; the lease releases it. Nothing: a frame without pixels
    /// \param offset  of the first pixel in the spare, bytes
    frame_lease(std::shared_ptr<buffer_pool> memory, std::optional<std::size_t> spare, std::size_t offset,
                frame_record const& record);
    ~frame_lease();
    frame_lease(frame_lease const& other);
    frame_lease(frame_lease&& other) noexcept;
    frame_lease& operator=(frame_lease other) noexcept;

    frame_record const& record() const { return record_; }
    frame_view view() const;
    bool has_pixels() const { return spare_.has_value(); }

    std::shared_ptr<buffer_pool> const& memory() const { return memory_; }
    std::size_t spare() const { return *spare_; }
    std::size_t offset() const { return offset_; }

private:
    std::shared_ptr<buffer_pool> memory_;
    std::optional<std::size_t> spare_;
    std::size_t offset_ = 0;
    frame_record record_;
};

}  // namespace mediagrabber
