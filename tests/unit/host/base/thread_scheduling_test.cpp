// SPDX-License-Identifier: MIT
#include "base/thread_scheduling.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <thread>

using namespace mediagrabber;

namespace {

constexpr int niceness = 19;  // which each user may choose

/// The kernel's `struct sched_attr`, which glibc 2.36 does not declare.
struct scheduling {
    std::uint32_t size;
    std::uint32_t policy;
    std::uint64_t flags;
    std::int32_t niceness;
    std::uint32_t priority;
    std::uint64_t slice_ns;
    std::uint64_t deadline_ns;
    std::uint64_t period_ns;
};

/// The scheduling of a thread with a nice value after `act`.
scheduling after(void (*act)()) {
    scheduling found{};
    std::thread([&] {
        setpriority(PRIO_PROCESS, 0, niceness);
        act();
        EXPECT_EQ(syscall(SYS_sched_getattr, 0, &found, sizeof found, 0), 0);
    }).join();
    return found;
}

}  // namespace

TEST(ThreadScheduling, RunsAThreadOnlyWhenIdle) {
    EXPECT_EQ(after(schedule_as_idle).policy, SCHED_IDLE);
}

TEST(ThreadScheduling, RequestsShortTimeSlicesAndPreservesTheNiceValue) {
    auto const before = after([] {});
    auto const prompt = after(request_short_time_slices);
    EXPECT_EQ(prompt.policy, SCHED_OTHER);
    EXPECT_EQ(prompt.niceness, niceness);
    if (before.slice_ns == 0) {
        GTEST_SKIP() << "before Linux 6.12 the kernel does not report time slices";
    }
    EXPECT_EQ(prompt.slice_ns, 100'000);
}
