// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/file_handle.hpp"
#include "frames/frame_lease.hpp"

namespace mediagrabber {

/// The ring of the latest frames of one buffer pool: `struct mg_ring` of mg_frame_ring.h in a memory file of its own.
///
/// Frames are not copied: an entry holds the frame's offset in the pool's memory file, and the pool clears the entry's
/// sequence number before it reuses that memory. The ring shares ownership of the pool. Another pool, for example after
/// a change of the frame size, needs another ring.
///
/// enter() is called by one thread at a time; readers in other processes access the memory concurrently, in the order
/// that mg_frame_ring.h describes.
class shared_ring {
public:
    /// \throws std::system_error if the memory cannot be created or mapped
    explicit shared_ring(std::shared_ptr<buffer_pool> memory);
    ~shared_ring();
    shared_ring(shared_ring const&) = delete;
    shared_ring& operator=(shared_ring const&) = delete;

    bool is_of(buffer_pool const& memory) const { return memory_.get() == &memory; }
    /// Publishes a frame that lies in this pool.
    /// \param frame     with pixels
    /// \param sequence  greater than that of all earlier frames
    void enter(frame_lease const& frame, std::uint64_t sequence);

    /// Read-only descriptors of the ring and of the frame memory; owned by the ring.
    int ring_descriptor() const { return ring_reading_.get(); }
    int memory_descriptor() const { return memory_reading_.get(); }

private:
    std::size_t bytes() const;

    std::shared_ptr<buffer_pool> const memory_;
    file_handle ring_file_;
    file_handle ring_reading_;
    file_handle memory_reading_;
    std::byte* ring_ = nullptr;  ///< mapped, bytes()
};

}  // namespace mediagrabber
