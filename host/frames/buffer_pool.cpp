// SPDX-License-Identifier: MIT
#include "frames/buffer_pool.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <system_error>
#include <utility>

#include "frames/shared_memory.hpp"

namespace mediagrabber {

namespace {

/// The range of one page table on x86-64; mremap moves a range of this size and alignment in one step.
constexpr std::size_t page_table_span = std::size_t{2} << 20U;

constexpr std::size_t rounded_up(std::size_t bytes, std::size_t unit) {
    return (bytes + unit - 1) / unit * unit;
}

[[noreturn]] void fail(char const* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

buffer_pool::buffer_pool(std::size_t frame_bytes, std::size_t slot_count, std::size_t spare_count)
    : frame_bytes_(frame_bytes),
      slot_count_(slot_count),
      spare_count_(spare_count),
      stride_(rounded_up(frame_bytes, page_table_span)) {
    // One additional block, an address range without memory: the temporary place during an exchange.
    std::size_t const block_count = slot_count + spare_count + 1;
    contents_.resize(slot_count + spare_count);
    std::iota(contents_.begin(), contents_.end(), std::size_t{0});
    free_spares_.resize(spare_count);
    std::iota(free_spares_.begin(), free_spares_.end(), std::size_t{0});
    free_count_ = spare_count;
    users_.resize(spare_count);
    published_.resize(spare_count);
    try {
        reserve(block_count);
        map(block_count);
    } catch (...) {
        unmap();
        throw;
    }
}

buffer_pool::~buffer_pool() {
    unmap();
}

void buffer_pool::unmap() {
    if (reservation_ != nullptr) {
        munmap(reservation_, reserved_bytes_);
    }
    if (file_ >= 0) {
        close(file_);
    }
}

/// Reserves an address range, so that no other mapping of the process gets between the blocks.
void buffer_pool::reserve(std::size_t block_count) {
    reserved_bytes_ = stride_ * block_count + page_table_span;
    void* const range = mmap(nullptr, reserved_bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (range == MAP_FAILED) {
        fail("no address range for frame memory");
    }
    reservation_ = range;
    auto const address = reinterpret_cast<std::uintptr_t>(range);
    first_ = static_cast<std::byte*>(range) + (rounded_up(address, page_table_span) - address);
}

/// Allocates every page now: insufficient memory is an error here instead of a fault while frames arrive.
void buffer_pool::map(std::size_t block_count) {
    file_ = memfd_create("mediagrabber frames", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file_ < 0 || ftruncate(file_, static_cast<off_t>(stride_ * block_count)) != 0) {
        fail("no file for frame memory");
    }
    for (std::size_t i = 0; i + 1 < block_count; ++i) {
        if (fallocate(file_, 0, static_cast<off_t>(i * stride_), static_cast<off_t>(frame_bytes_)) != 0) {
            fail("not enough memory for the frame buffers");
        }
    }
    void* const mapped = mmap(first_, stride_ * block_count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file_, 0);
    if (mapped == MAP_FAILED) {
        fail("frame memory cannot be mapped");
    }
    std::size_t const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    for (std::size_t i = 0; i + 1 < block_count; ++i) {
        if (madvise(block(i), rounded_up(frame_bytes_, page), MADV_POPULATE_WRITE) != 0) {
            fail("frame memory cannot be populated");
        }
    }
    seal_shared_memory(file_);
}

std::optional<std::size_t> buffer_pool::slot_around(void const* first, std::size_t size) const {
    auto const begin = reinterpret_cast<std::uintptr_t>(first_);
    auto const wanted = reinterpret_cast<std::uintptr_t>(first);
    if (wanted < begin || wanted - begin >= slot_count_ * stride_ || size > frame_bytes_) {
        return std::nullopt;
    }
    std::size_t const slot = (wanted - begin) / stride_;
    std::size_t const offset = (wanted - begin) % stride_;
    return offset <= frame_bytes_ - size ? std::optional(slot) : std::nullopt;
}

std::optional<std::size_t> buffer_pool::acquire() {
    std::lock_guard const lock(mutex_);
    if (free_count_ == 0) {
        return std::nullopt;
    }
    std::size_t const spare = free_spares_[first_free_];
    first_free_ = (first_free_ + 1) % free_spares_.size();
    --free_count_;
    users_[spare] = 1;
    // Only if the cell still has this frame: another one may use it by now.
    if (auto [cell, sequence] = std::exchange(published_[spare], {}); cell != nullptr) {
        cell->compare_exchange_strong(sequence, 0);
        order_after_clearing();
    }
    return spare;
}

void buffer_pool::share(std::size_t spare) {
    std::lock_guard const lock(mutex_);
    ++users_[spare];
}

void buffer_pool::release(std::size_t spare) {
    std::lock_guard const lock(mutex_);
    if (--users_[spare] == 0) {
        free_spares_[(first_free_ + free_count_) % free_spares_.size()] = spare;
        ++free_count_;
    }
}

void buffer_pool::publish(std::size_t spare, std::atomic<std::uint64_t>& cell, std::uint64_t sequence) {
    std::lock_guard const lock(mutex_);
    published_[spare] = {.cell = &cell, .sequence = sequence};
}

void buffer_pool::unpublish_all() {
    std::lock_guard const lock(mutex_);
    std::fill(published_.begin(), published_.end(), publication{});
}

void buffer_pool::exchange(std::size_t slot, std::size_t spare) {
    std::size_t const temporary = slot_count_ + spare_count_;
    if (copies_ || !move_pages(slot, temporary)) {
        copies_ = true;
        std::memcpy(block(slot_count_ + spare), block(slot), frame_bytes_);
        return;
    }
    if (!move_pages(slot_count_ + spare, slot) || !move_pages(temporary, slot_count_ + spare)) {
        fail("the pages of a frame cannot be moved");
    }
    std::swap(contents_[slot], contents_[slot_count_ + spare]);
}

/// Moves the pages of block `from` to the addresses of block `to`. MREMAP_DONTUNMAP keeps the range of `from` mapped,
/// so that no other thread can be given its addresses meanwhile. \return false if the system cannot do that: Linux
/// before 5.13, valgrind
bool buffer_pool::move_pages(std::size_t from, std::size_t to) {
    void* const moved = mremap(block(from), stride_, stride_, MREMAP_MAYMOVE | MREMAP_FIXED | MREMAP_DONTUNMAP,
                               static_cast<void*>(block(to)));
    if (moved == MAP_FAILED && errno != EINVAL) {
        fail("the pages of a frame cannot be moved");
    }
    return moved != MAP_FAILED;
}

}  // namespace mediagrabber
