// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace mediagrabber {

/// Frame memory: equally spaced slots, which the camera stream fills in turn, followed by spares, which hold frames
/// until they are saved. The entire pool is one memfd, sealed so that processes it is shared with cannot change it.
///
/// exchange() moves a frame out of its slot by exchanging the *pages* of the slot with those of a spare. Afterwards the
/// frame is at the address of the spare, and the slot has other memory at the address that the camera stream uses.
/// Therefore frames are not copied, and the stream cannot overwrite a frame that is being saved. The exchange moves
/// page tables (`mremap`): slots are aligned to, and a multiple of, the range of one page table. For frames up to 2 MiB
/// it takes about 20 us regardless of the size; copying 1.3 MB takes 200 us.
///
/// Lifetime of a spare: acquire() has one user, share() adds users, release() removes them; the last one frees the
/// spare. Free spares are reused in the order in which they were freed, so that the frame in a free spare stays
/// readable for as long as possible. publish() makes a frame visible to readers in other processes, which are not
/// users of the spare: before it is reused, the cell that holds the frame's sequence number is set to 0.
///
/// Threads: exchange() may only be called by one thread, acquire(), share(), release(), publish() and unpublish_all()
/// by any. One mutex guards the bookkeeping of the spares; it is never held during a system call.
class buffer_pool {
public:
    /// \param frame_bytes  size of a frame, above 0
    /// \param slot_count   slots that the camera stream fills
    /// \param spare_count  frames that can be held in addition
    /// \throws std::system_error if the memory cannot be allocated; all of it is allocated here
    buffer_pool(std::size_t frame_bytes, std::size_t slot_count, std::size_t spare_count);
    ~buffer_pool();
    buffer_pool(buffer_pool const&) = delete;
    buffer_pool& operator=(buffer_pool const&) = delete;

    std::size_t frame_bytes() const { return frame_bytes_; }
    std::size_t slot_count() const { return slot_count_; }
    std::size_t stride() const { return stride_; }

    /// \param index below slot_count()
    std::byte* slot(std::size_t index) { return block(index); }

    /// \return the slot that contains the bytes [first, first + size), if one does
    std::optional<std::size_t> slot_around(void const* first, std::size_t size) const;

    /// Takes the spare that has been free for the longest time. \return its index, nothing if all are in use
    std::optional<std::size_t> acquire();
    /// Adds a user. The caller must be a user.
    void share(std::size_t spare);
    /// Removes a user; the last one frees the spare.
    void release(std::size_t spare);

    /// Publishes the frame in a spare of which the caller is a user: `*cell` is set from `sequence` to 0 before the
    /// spare is reused. \param cell  must stay valid until unpublish_all()
    void publish(std::size_t spare, std::atomic<std::uint64_t>& cell, std::uint64_t sequence);
    /// Forgets all cells without changing them.
    void unpublish_all();
    /// The memfd of the pool; owned by the pool.
    int file() const { return file_; }
    std::size_t file_bytes() const { return stride_ * (slot_count_ + spare_count_); }
    /// The present offset of a spare's contents in file(), bytes. exchange() changes it.
    std::size_t file_offset(std::size_t spare) const { return contents_[slot_count_ + spare] * stride_; }
    std::span<std::byte> spare(std::size_t index) { return {block(slot_count_ + index), frame_bytes_}; }

    /// Exchanges the contents of a slot with those of a spare that the caller has acquired; the addresses stay. If
    /// pages cannot be moved on this system, copies the slot to the spare instead. No thread may write to either.
    /// \throws std::system_error if the kernel refuses; the contents are undefined then
    void exchange(std::size_t slot, std::size_t spare);

private:
    std::byte* block(std::size_t index) const { return first_ + index * stride_; }
    void reserve(std::size_t block_count);
    void map(std::size_t block_count);
    void unmap();
    bool move_pages(std::size_t from, std::size_t to);

    std::size_t const frame_bytes_;
    std::size_t const slot_count_;
    std::size_t const spare_count_;
    std::size_t const stride_;  ///< bytes, a multiple of the range of one page table
    int file_ = -1;
    void* reservation_ = nullptr;  ///< the address range, including space for the alignment
    std::size_t reserved_bytes_ = 0;
    std::byte* first_ = nullptr;
    bool copies_ = false;  ///< pages cannot be moved on this system

    /// The arguments of publish().
    struct publication {
        std::atomic<std::uint64_t>* cell = nullptr;
        std::uint64_t sequence = 0;
    };

    std::vector<std::size_t> contents_;  ///< by block, slots first: the block of the file that is mapped there

    std::mutex mutex_;                      ///< guards everything below
    std::vector<std::size_t> free_spares_;  ///< a ring, in the order of reuse
    std::size_t first_free_ = 0;
    std::size_t free_count_ = 0;
    std::vector<std::size_t> users_;      ///< by spare
    std::vector<publication> published_;  ///< by spare
};

}  // namespace mediagrabber
