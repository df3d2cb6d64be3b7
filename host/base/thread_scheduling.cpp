// SPDX-License-Identifier: MIT
#include "base/thread_scheduling.hpp"

#include <linux/sched.h>
#include <linux/types.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace mediagrabber {

namespace {

/// The argument of sched_setattr, which glibc 2.36 does not declare.
struct scheduling {
    std::uint32_t size = sizeof(scheduling);
    std::uint32_t policy = SCHED_NORMAL;
    std::uint64_t flags = 0;
    std::int32_t niceness = 0;
    std::uint32_t priority = 0;
    std::uint64_t slice_ns = 0;
    std::uint64_t deadline_ns = 0;
    std::uint64_t period_ns = 0;
};

constexpr std::uint64_t short_slice_ns = 100'000;  ///< the minimum that the kernel accepts

/// Errors are ignored: the thread then keeps its present scheduling.
void set_this_thread(scheduling const& wanted) {
    constexpr pid_t this_thread = 0;
    constexpr unsigned no_flags = 0;
    syscall(SYS_sched_setattr, this_thread, &wanted, no_flags);
}

}  // namespace

void request_short_time_slices() {
    set_this_thread({.niceness = getpriority(PRIO_PROCESS, 0), .slice_ns = short_slice_ns});
}

void schedule_as_idle() {
    set_this_thread({.policy = SCHED_IDLE, .niceness = getpriority(PRIO_PROCESS, 0)});
}

}  // namespace mediagrabber
