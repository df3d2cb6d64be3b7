// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>

namespace mediagrabber {

/// Repeats a system call that a signal has interrupted. Not for close(): Linux has closed the descriptor then.
template <typename call>
auto uninterrupted(call&& make) {
    auto result = make();
    while (result < 0 && errno == EINTR) {
        result = make();
    }
    return result;
}

}  // namespace mediagrabber
