#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "file_handle.hpp"
#include "frame_lease.hpp"

namespace mediagrabber {

/// The list of the last frames in one frame memory, as readers outside of the process see it: `struct mg_ring` of
/// mg_frame_ring.h in a memory file of its own. A frame is not copied: its entry says where in the frame memory it
/// lies, and is void before the frame is overwritten.
class shared_ring {
public:
    /// \throws std::system_error
    explicit shared_ring(std::shared_ptr<frame_memory> memory);
    ~shared_ring();
    shared_ring(shared_ring const&) = delete;
    shared_ring& operator=(shared_ring const&) = delete;

    bool is_of(frame_memory const& memory) const { return memory_.get() == &memory; }
    /// Enters a frame of this memory, with its pixels. \param sequence above all before
    void enter(frame_lease const& frame, std::uint64_t sequence);

    /// Descriptors that nobody can write through.
    int ring_descriptor() const { return ring_reading_.get(); }
    int memory_descriptor() const { return memory_reading_.get(); }

private:
    std::size_t bytes() const;

    std::shared_ptr<frame_memory> const memory_;
    file_handle ring_file_;
    file_handle ring_reading_;
    file_handle memory_reading_;
    std::byte* ring_ = nullptr;
};

}  // namespace mediagrabber
