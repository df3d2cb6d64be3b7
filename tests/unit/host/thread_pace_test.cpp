#include "thread_pace.hpp"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <thread>

using namespace mediagrabber;

namespace {

/// What a thread is like after `act`.
struct pace {
    int policy = -1;
    int niceness = 0;
};

pace after(void (*act)()) {
    pace found;
    std::thread([&] {
        setpriority(PRIO_PROCESS, 0, 3);
        act();
        found = {.policy = sched_getscheduler(0), .niceness = getpriority(PRIO_PROCESS, 0)};
    }).join();
    return found;
}

}  // namespace

TEST(ThreadPace, LetsAThreadRunWhenNoOtherHasAnythingToDo) {
    EXPECT_EQ(after(work_when_idle).policy, SCHED_IDLE);
}

TEST(ThreadPace, LeavesTheNicenessThatTheOperatorHasChosen) {
    auto const prompt = after(work_promptly);
    EXPECT_EQ(prompt.policy, SCHED_OTHER);
    EXPECT_EQ(prompt.niceness, 3);
}
