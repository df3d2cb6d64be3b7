// SPDX-License-Identifier: MIT
#pragma once

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);
#define MG_THREAD_SANITIZER
#endif
#endif

namespace mediagrabber {

/// Reports to the thread sanitizer that all accesses before hand_over() happen before those after a later take_over()
/// of the same address. GStreamer's locks ensure it, but are not compiled with the sanitizer. A mutex must not be at
/// the address, because the sanitizer would take its locks for such calls.
inline void take_over([[maybe_unused]] void* address) {
#ifdef MG_THREAD_SANITIZER
    __tsan_acquire(address);
#endif
}

inline void hand_over([[maybe_unused]] void* address) {
#ifdef MG_THREAD_SANITIZER
    __tsan_release(address);
#endif
}

/// The time in which one of GStreamer's threads uses the object at an address.
class callback_scope {
public:
    explicit callback_scope(void* address) : address_(address) { take_over(address); }
    callback_scope(callback_scope const&) = delete;
    callback_scope& operator=(callback_scope const&) = delete;
    ~callback_scope() { hand_over(address_); }

private:
    void* address_;
};

}  // namespace mediagrabber
