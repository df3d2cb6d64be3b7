// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

namespace mediagrabber {

/// Protects a memory file whose read-only descriptor other processes receive, after the writable mapping has been made.
/// They can neither change its size, which would end this process with SIGBUS, nor write to it through another
/// descriptor, nor remove the protection. The mode 0400 keeps other users from opening it at all.
/// \param descriptor  of a memfd with MFD_ALLOW_SEALING
/// \throws std::system_error
void seal_shared_memory(int descriptor);

/// Orders a store to a frame's sequence number before all later stores, of this thread or of one that it wakes up: a
/// reader that sees changed pixels then also sees that the frame is gone. The store alone does not do that on
/// processors that reorder stores, such as ARM: a release store orders only what is before it.
inline void order_after_clearing() {
#ifdef __SANITIZE_THREAD__
    __asm__ volatile("" ::: "memory");  // g++ has no fences under the thread sanitizer; x86-64 keeps stores in order
#else
    std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}

}  // namespace mediagrabber
