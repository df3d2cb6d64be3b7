// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "frames/frame_record.hpp"

namespace mediagrabber {

/// Ring memory for the latest frames. Frames are numbered from 0 and frame `n` occupies slot `n % capacity()`; which of
/// them are valid is the caller's bookkeeping, as is locking.
///
/// All memory is reserved by the constructor, which checks it against what the machine has available: without the
/// check the kernel would overcommit and end the process once the buffer fills.
class pretrigger_buffer {
public:
    /// \param frame_bytes  size of a slot, bytes
    /// \param capacity     number of slots
    /// \throws std::runtime_error  with a message for the operator if the machine does not have enough memory available
    pretrigger_buffer(std::size_t frame_bytes, std::size_t capacity);
    ~pretrigger_buffer();
    pretrigger_buffer(pretrigger_buffer const&) = delete;
    pretrigger_buffer& operator=(pretrigger_buffer const&) = delete;

    std::size_t frame_bytes() const { return frame_bytes_; }
    std::size_t capacity() const { return records_.size(); }

    frame_record& record(std::uint64_t number) { return records_[number % records_.size()]; }
    /// \return the whole slot, frame_bytes() bytes
    std::span<std::byte> pixels(std::uint64_t number);

private:
    std::size_t const frame_bytes_;
    std::vector<frame_record> records_;
    std::byte* block_ = nullptr;  ///< mapped, capacity() slots
};

}  // namespace mediagrabber
