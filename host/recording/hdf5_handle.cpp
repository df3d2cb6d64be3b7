// SPDX-License-Identifier: MIT
#include "recording/hdf5_handle.hpp"

#include <stdexcept>

namespace mediagrabber {

void silence_hdf5_errors() {
    // The library's error stack belongs to the thread. It is not closed at exit, when threads may still use it.
    static bool const first = H5dont_atexit() >= 0;
    thread_local bool const silent = H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr) >= 0;
    static_cast<void>(first);
    static_cast<void>(silent);
}

void throw_hdf5_error(char const* action) {
    std::string reason;
    // The innermost function, which noticed the error, is the first.
    auto const take_first = [](unsigned place, H5E_error2_t const* error, void* into) -> herr_t {
        if (place == 0 && error->desc != nullptr) {
            *static_cast<std::string*>(into) = error->desc;
        }
        return 0;
    };
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, take_first, &reason);
    throw std::runtime_error(std::string("libhdf5 cannot ") + action + (reason.empty() ? "" : ": " + reason));
}

}  // namespace mediagrabber
