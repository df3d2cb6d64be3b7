#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace mediagrabber {

/// The memory that frames arrive in: one flat block of equally spaced slots, which the camera writes to in turn, and
/// spare slots behind them, where frames wait for the disk. All of it is one file in memory.
///
/// A frame is taken out of its slot by exchanging the *pages* of the slot with those of a spare: afterwards the frame
/// lies at the spare's address, and the slot, at the address that the camera knows, holds other memory. So a frame is
/// never copied, and whatever the camera writes to the slot from then on can't touch it. The exchange moves page tables
/// (`mremap`); slots are aligned and sized for whole page tables to move, which makes it independent of the frame size
/// up to 2 MiB: about 20 us, where copying 1.3 MB takes 200.
///
/// A spare belongs to those who use it; the last of them frees it. Spares that are free wait in the order in which they
/// were freed, so that what lies in one stays there as long as possible for readers outside of the process, who use
/// nothing and are told by `shown` when it is gone.
///
/// `exchange` is called by one thread; spares are taken, shared and given back by any.
class frame_memory {
public:
    /// \param frame_bytes  size of a frame, above 0
    /// \param slot_count   slots that the camera writes to
    /// \param spare_count  frames that can be kept besides
    /// \throws std::system_error when the memory can't be had
    frame_memory(std::size_t frame_bytes, std::size_t slot_count, std::size_t spare_count);
    ~frame_memory();
    frame_memory(frame_memory const&) = delete;
    frame_memory& operator=(frame_memory const&) = delete;

    std::size_t frame_bytes() const { return frame_bytes_; }
    std::size_t slot_count() const { return slot_count_; }
    std::size_t stride() const { return stride_; }

    /// \param index below slot_count()
    std::byte* slot(std::size_t index) { return block(index); }

    /// The slot that the bytes [first, first + size) lie in, if they lie in one.
    std::optional<std::size_t> slot_around(void const* first, std::size_t size) const;

    /// Takes the spare that has been free for longest. \return its index, nothing when all are in use
    std::optional<std::size_t> take_spare();
    /// One user more, beside the caller.
    void share(std::size_t spare);
    void give_back(std::size_t spare);

    /// Has `*cell` turned from `sequence` to 0 before anything else comes where the frame in this spare lies, which the
    /// caller uses.
    void show(std::size_t spare, std::atomic<std::uint64_t>& cell, std::uint64_t sequence);
    /// Forgets all cells.
    void show_no_more();
    /// The file that all of it is, and where in it a spare's contents lie now, bytes.
    int file() const { return file_; }
    std::size_t file_bytes() const { return stride_ * (slot_count_ + spare_count_); }
    std::size_t file_offset(std::size_t spare) const { return contents_[slot_count_ + spare] * stride_; }
    std::span<std::byte> spare(std::size_t index) { return {block(slot_count_ + index), frame_bytes_}; }

    /// Exchanges the contents of a slot and of a spare that the caller has taken; the addresses stay. Where pages can't
    /// be moved, the spare gets a copy, and the slot keeps what it has. Nobody may be writing to either. \throws
    /// std::system_error when the kernel refuses; the contents are then undefined
    void exchange(std::size_t slot, std::size_t spare);

private:
    std::byte* block(std::size_t index) const { return first_ + index * stride_; }
    void reserve(std::size_t block_count);
    void map(std::size_t block_count);
    void release();
    bool move_pages(std::size_t from, std::size_t to);

    std::size_t const frame_bytes_;
    std::size_t const slot_count_;
    std::size_t const spare_count_;
    std::size_t const stride_;  ///< bytes, a multiple of what one page table maps
    int file_ = -1;
    void* reservation_ = nullptr;  ///< the address range, with room to align in
    std::size_t reserved_bytes_ = 0;
    std::byte* first_ = nullptr;
    bool copies_ = false;  ///< pages can't be moved here

    /// A frame that is shown, in the terms of `show`.
    struct shown {
        std::atomic<std::uint64_t>* cell = nullptr;
        std::uint64_t sequence = 0;
    };

    std::vector<std::size_t> contents_;  ///< by block, slots first: which block of the file it shows

    std::mutex mutex_;                      ///< of all below
    std::vector<std::size_t> free_spares_;  ///< a ring
    std::size_t first_free_ = 0;
    std::size_t free_count_ = 0;
    std::vector<std::size_t> users_;  ///< by spare
    std::vector<shown> shown_;        ///< by spare
};

}  // namespace mediagrabber
