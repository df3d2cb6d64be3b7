#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "frame_record.hpp"

namespace mediagrabber {

/// Memory for the frames that came last, which are counted from 0. It is taken once.
class held_memory {
public:
    /// \param frame_bytes  of the largest frame \param capacity  frames
    /// \throws std::runtime_error when the machine has not that much memory left
    held_memory(std::size_t frame_bytes, std::size_t capacity);
    ~held_memory();
    held_memory(held_memory const&) = delete;
    held_memory& operator=(held_memory const&) = delete;

    std::size_t frame_bytes() const { return frame_bytes_; }
    std::size_t capacity() const { return records_.size(); }

    /// \param number  of a frame that is held, or of the next one
    frame_record& record(std::uint64_t number) { return records_[number % records_.size()]; }
    /// As many bytes as the largest frame has.
    std::span<std::byte> pixels(std::uint64_t number);

private:
    std::size_t const frame_bytes_;
    std::vector<frame_record> records_;
    std::byte* block_ = nullptr;
};

}  // namespace mediagrabber
