// SPDX-License-Identifier: MIT
#include "pretrigger/pretrigger_buffer.hpp"

#include <sys/mman.h>

#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

namespace mediagrabber {

namespace {

/// \return the kernel's estimate of memory available without swapping, bytes; infinite if it does not report one
double available_bytes() {
    std::ifstream in("/proc/meminfo");
    for (std::string name; in >> name;) {
        double kilobytes = 0;
        if (name == "MemAvailable:" && in >> kilobytes) {
            return kilobytes * 1024;
        }
        in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return std::numeric_limits<double>::infinity();
}

std::string megabytes(double bytes) {
    return std::to_string(static_cast<std::uint64_t>(bytes / 1e6)) + " MB";
}

}  // namespace

pretrigger_buffer::pretrigger_buffer(std::size_t frame_bytes, std::size_t capacity) : frame_bytes_(frame_bytes) {
    double const wanted = static_cast<double>(frame_bytes) * static_cast<double>(capacity);
    double const available = available_bytes();
    std::string const refusal = "the pre-trigger buffer needs " + megabytes(wanted) + " for " +
                                std::to_string(capacity) + " frames, but only " + megabytes(available) +
                                " are available; reduce pretrigger.seconds";
    if (wanted > available) {
        throw std::runtime_error(refusal);
    }
    void* const mapped =
        mmap(nullptr, frame_bytes * capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        throw std::runtime_error(refusal);
    }
    block_ = static_cast<std::byte*>(mapped);
    try {
        records_.resize(capacity);
    } catch (...) {
        munmap(block_, frame_bytes * capacity);
        throw;
    }
}

pretrigger_buffer::~pretrigger_buffer() {
    munmap(block_, frame_bytes_ * records_.size());
}

std::span<std::byte> pretrigger_buffer::pixels(std::uint64_t number) {
    return {block_ + number % records_.size() * frame_bytes_, frame_bytes_};
}

}  // namespace mediagrabber
