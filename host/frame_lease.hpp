#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "frame_memory.hpp"
#include "frame_record.hpp"

namespace mediagrabber {

/// A frame that stays where it is as long as a lease of it lives. Leases are copied; none of it is allocated.
class frame_lease {
public:
    frame_lease() = default;
    /// \param spare   of `memory`, which the caller has taken and leaves to the lease; nothing: without pixels
    /// \param offset  of the first pixel in the spare, bytes
    frame_lease(std::shared_ptr<frame_memory> memory, std::optional<std::size_t> spare, std::size_t offset,
                frame_record const& record);
    ~frame_lease();
    frame_lease(frame_lease const& other);
    frame_lease(frame_lease&& other) noexcept;
    frame_lease& operator=(frame_lease other) noexcept;

    frame_record const& record() const { return record_; }
    frame_view view() const;
    bool has_pixels() const { return spare_.has_value(); }

    std::shared_ptr<frame_memory> const& memory() const { return memory_; }
    std::size_t spare() const { return *spare_; }
    std::size_t offset() const { return offset_; }

private:
    std::shared_ptr<frame_memory> memory_;
    std::optional<std::size_t> spare_;
    std::size_t offset_ = 0;
    frame_record record_;
};

}  // namespace mediagrabber
