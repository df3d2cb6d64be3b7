// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Objects and results of libhdf5.

#include <hdf5.h>

#include <string>
#include <utility>

namespace mediagrabber {

/// Keeps libhdf5 from printing its errors, on this thread; they become exceptions. Costs nothing when called again.
void silence_hdf5_errors();

/// \param action  what failed, for the message: "write a frame"
/// \throws std::runtime_error  with the reason that libhdf5 gives
[[noreturn]] void throw_hdf5_error(char const* action);

/// \return the result of a function of libhdf5
/// \throws std::runtime_error  if it is negative, which means an error
template <typename number>
number hdf5_checked(number result, char const* action) {
    if (result < 0) {
        throw_hdf5_error(action);
    }
    return result;
}

/// Owns an object of libhdf5, of any kind. Moved, never copied.
class hdf5_handle {
public:
    hdf5_handle() = default;
    /// \param id  the result of the function that made the object
    /// \throws std::runtime_error  if that failed
    hdf5_handle(hid_t id, char const* action) : id_(hdf5_checked(id, action)) {}
    hdf5_handle(hdf5_handle&& other) noexcept : id_(std::exchange(other.id_, H5I_INVALID_HID)) {}
    hdf5_handle& operator=(hdf5_handle&& other) noexcept {
        std::swap(id_, other.id_);
        return *this;
    }
    /// Objects are closed before their file, which their owner ensures by the order of its members.
    ~hdf5_handle() {
        if (id_ >= 0) {
            H5Idec_ref(id_);
        }
    }

    hid_t get() const { return id_; }

private:
    hid_t id_ = H5I_INVALID_HID;
};

}  // namespace mediagrabber
