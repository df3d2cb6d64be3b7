// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace mediagrabber {

/// Owns a file descriptor and closes it in the destructor, which preserves errno. Moved, never copied.
class file_handle {
public:
    file_handle() = default;
    explicit file_handle(int descriptor) : descriptor_(descriptor) {}
    file_handle(file_handle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    file_handle& operator=(file_handle&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~file_handle() {
        if (descriptor_ >= 0) {
            int const error = errno;
            close(descriptor_);
            errno = error;
        }
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

}  // namespace mediagrabber
