#include "sharing/shared_ring.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "sharing/mg_frame_ring.h"

namespace mediagrabber {

namespace {

// More than the frames that any memory has room for: 512 slots and 512 spares are the most that can be configured.
constexpr std::uint32_t entry_count = 2'048;

static_assert(sizeof(mg_ring) == 128 && sizeof(mg_ring_frame) == 128, "readers know these sizes");
static_assert(sizeof(std::atomic<std::uint64_t>) == sizeof(std::uint64_t) &&
                  std::atomic<std::uint64_t>::is_always_lock_free,
              "readers in other processes look at the same number");

[[noreturn]] void fail(char const* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// The same file, for those who only read.
file_handle reopened(int descriptor) {
    std::string const name = "/proc/self/fd/" + std::to_string(descriptor);
    file_handle reading(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!reading) {
        fail("frame memory can't be opened for reading");
    }
    return reading;
}

mg_ring_frame described(frame_lease const& frame, std::size_t offset) {
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
    entry.bayer = record.format->bayer ? 1 : 0;
    record.format->codec.copy(entry.format, sizeof entry.format - 1);
    return entry;
}

}  // namespace

shared_ring::shared_ring(std::shared_ptr<frame_memory> memory)
    : memory_(std::move(memory)), ring_file_(memfd_create("mediagrabber ring", MFD_CLOEXEC)) {
    if (!ring_file_ || ftruncate(ring_file_.get(), static_cast<off_t>(bytes())) != 0) {
        fail("no memory for the ring of frames");
    }
    ring_reading_ = reopened(ring_file_.get());
    memory_reading_ = reopened(memory_->file());
    void* const mapped = mmap(nullptr, bytes(), PROT_READ | PROT_WRITE, MAP_SHARED, ring_file_.get(), 0);
    if (mapped == MAP_FAILED) {
        fail("the ring of frames can't be mapped");
    }
    ring_ = static_cast<std::byte*>(mapped);
    new (ring_) mg_ring{.magic = MG_RING_MAGIC,
                        .version = MG_RING_VERSION,
                        .frame_bytes = sizeof(mg_ring_frame),
                        .frame_count = entry_count,
                        .reserved = 0,
                        .memory_bytes = memory_->file_bytes(),
                        .newest = 0,
                        .reserved_for_later = {}};
}

/// The memory knows cells of the ring; it forgets them first.
shared_ring::~shared_ring() {
    memory_->show_no_more();
    munmap(ring_, bytes());
}

std::size_t shared_ring::bytes() const {
    return sizeof(mg_ring) + std::size_t{entry_count} * sizeof(mg_ring_frame);
}

/// A reader that looks at the entry meanwhile finds that it holds no frame.
void shared_ring::enter(frame_lease const& frame, std::uint64_t sequence) {
    std::byte* const place = ring_ + sizeof(mg_ring) + sequence % entry_count * sizeof(mg_ring_frame);
    auto& cell = *std::launder(reinterpret_cast<std::atomic<std::uint64_t>*>(place));
    cell.store(0);
    mg_ring_frame const entry = described(frame, memory_->file_offset(frame.spare()) + frame.offset());
    std::memcpy(place + sizeof cell, reinterpret_cast<std::byte const*>(&entry) + sizeof cell,
                sizeof entry - sizeof cell);
    memory_->show(frame.spare(), cell, sequence);
    cell.store(sequence);
    auto& newest = *std::launder(reinterpret_cast<std::atomic<std::uint64_t>*>(ring_ + offsetof(mg_ring, newest)));
    newest.store(sequence);
}

}  // namespace mediagrabber
