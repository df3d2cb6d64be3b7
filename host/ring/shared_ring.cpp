// SPDX-License-Identifier: MIT
#include "ring/shared_ring.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "frames/shared_memory.hpp"
#include "ring/mg_frame_ring.h"

namespace mediagrabber {

namespace {

// More than any pool holds: the configuration allows at most 512 slots and 512 spare buffers.
constexpr std::uint32_t entry_count = 2'048;

static_assert(sizeof(mg_ring) == 128 && sizeof(mg_ring_frame) == 128,
              "part of the layout that readers are compiled with");
static_assert(sizeof(std::atomic<std::uint64_t>) == sizeof(std::uint64_t) &&
                  std::atomic<std::uint64_t>::is_always_lock_free,
              "readers in other processes load the same object representation");

[[noreturn]] void fail(char const* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// A read-only descriptor of the same file, which readers cannot map for writing.
file_handle reopened(int descriptor) {
    std::string const name = "/proc/self/fd/" + std::to_string(descriptor);
    file_handle reading(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!reading) {
        fail("cannot open the frame memory for reading");
    }
    return reading;
}

mg_ring_frame entry_of(frame_lease const& frame, std::size_t offset) {
    frame_record const& record = frame.record();
    mg_ring_frame entry{};
    entry.offset = offset;
    entry.bytes = record.bytes();
    entry.number = record.number;
    entry.timestamp_us = record.timestamp_us;
    entry.handed_over_us = record.handed_over_us;
    entry.width = record.width;
    entry.height = record.height;
    entry.stride = record.stride;
    auto const put = [&entry](auto const& known, auto& into, std::uint32_t flag) {
        if (known) {
            into = *known;
            entry.known |= flag;
        }
    };
    put(record.ticks, entry.ticks, MG_RING_TICKS);
    put(record.gain_db, entry.gain_db, MG_RING_GAIN);
    put(record.exposure_us, entry.exposure_us, MG_RING_EXPOSURE);
    put(record.counter, entry.counter, MG_RING_COUNTER);
    put(record.temperature_c, entry.temperature_c, MG_RING_TEMPERATURE);
    entry.container_bits = static_cast<std::uint8_t>(record.format->container_bits);
    entry.significant_bits = static_cast<std::uint8_t>(record.format->significant_bits);
    entry.bayer = record.format->cfa == colour_filter::bayer_rg ? 1 : 0;
    record.format->name.copy(entry.format, sizeof entry.format - 1);
    return entry;
}

}  // namespace

shared_ring::shared_ring(std::shared_ptr<buffer_pool> memory)
    : memory_(std::move(memory)), ring_file_(memfd_create("mediagrabber ring", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
    if (!ring_file_ || ftruncate(ring_file_.get(), static_cast<off_t>(bytes())) != 0) {
        fail("cannot create the memory file of the frame ring");
    }
    ring_reading_ = reopened(ring_file_.get());
    memory_reading_ = reopened(memory_->file());
    void* const mapped = mmap(nullptr, bytes(), PROT_READ | PROT_WRITE, MAP_SHARED, ring_file_.get(), 0);
    if (mapped == MAP_FAILED) {
        fail("cannot map the frame ring");
    }
    ring_ = static_cast<std::byte*>(mapped);
    try {
        seal_shared_memory(ring_file_.get());
    } catch (...) {
        munmap(ring_, bytes());
        throw;
    }
    new (ring_) mg_ring{.magic = MG_RING_MAGIC,
                        .version = MG_RING_VERSION,
                        .frame_bytes = sizeof(mg_ring_frame),
                        .frame_count = entry_count,
                        .reserved = 0,
                        .memory_bytes = memory_->file_bytes(),
                        .newest = 0,
                        .reserved_for_later = {}};
}

/// The pool holds pointers to entries of the ring, which must be removed before the ring is unmapped.
shared_ring::~shared_ring() {
    memory_->unpublish_all();
    munmap(ring_, bytes());
}

std::size_t shared_ring::bytes() const {
    return sizeof(mg_ring) + std::size_t{entry_count} * sizeof(mg_ring_frame);
}

/// The sequence number is 0 while the entry changes, so a concurrent reader finds no frame in it.
void shared_ring::enter(frame_lease const& frame, std::uint64_t sequence) {
    std::byte* const place = ring_ + sizeof(mg_ring) + sequence % entry_count * sizeof(mg_ring_frame);
    auto& cell = *std::launder(reinterpret_cast<std::atomic<std::uint64_t>*>(place));
    cell.store(0, std::memory_order_relaxed);
    order_after_clearing();
    mg_ring_frame const entry = entry_of(frame, memory_->file_offset(frame.spare()) + frame.offset());
    std::memcpy(place + sizeof cell, reinterpret_cast<std::byte const*>(&entry) + sizeof cell,
                sizeof entry - sizeof cell);
    memory_->publish(frame.spare(), cell, sequence);
    cell.store(sequence, std::memory_order_release);
    auto& newest = *std::launder(reinterpret_cast<std::atomic<std::uint64_t>*>(ring_ + offsetof(mg_ring, newest)));
    newest.store(sequence, std::memory_order_release);
}

}  // namespace mediagrabber
