// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <utility>

namespace camsim {

/// Owns a file descriptor and closes it on destruction. Movable; false while it owns none.
class file_descriptor {
public:
    file_descriptor() = default;
    explicit file_descriptor(int descriptor) : descriptor_(descriptor) {}
    file_descriptor(file_descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    file_descriptor& operator=(file_descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~file_descriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

private:
    int descriptor_ = -1;
};

}  // namespace camsim
