// SPDX-License-Identifier: MIT
#include "frames/frame_lease.hpp"

#include <utility>

namespace mediagrabber {

frame_lease::frame_lease(std::shared_ptr<buffer_pool> memory, std::optional<std::size_t> spare, std::size_t offset,
                         frame_record const& record)
    : memory_(std::move(memory)), spare_(spare), offset_(offset), record_(record) {}

frame_lease::~frame_lease() {
    if (spare_) {
        memory_->release(*spare_);
    }
}

frame_lease::frame_lease(frame_lease const& other)
    : memory_(other.memory_), spare_(other.spare_), offset_(other.offset_), record_(other.record_) {
    if (spare_) {
        memory_->share(*spare_);
    }
}

frame_lease::frame_lease(frame_lease&& other) noexcept
    : memory_(std::move(other.memory_)),
      spare_(std::exchange(other.spare_, std::nullopt)),
      offset_(other.offset_),
      record_(other.record_) {}

frame_lease& frame_lease::operator=(frame_lease other) noexcept {
    std::swap(memory_, other.memory_);
    std::swap(spare_, other.spare_);
    std::swap(offset_, other.offset_);
    std::swap(record_, other.record_);
    return *this;
}

frame_view frame_lease::view() const {
    if (!spare_) {
        return {.record = record_, .pixels = {}};
    }
    return {.record = record_, .pixels = memory_->spare(*spare_).subspan(offset_, record_.bytes())};
}

}  // namespace mediagrabber
