// SPDX-License-Identifier: MIT
/// \file
/// Shifts the time of day. Clocks that cannot be set, for example CLOCK_MONOTONIC, stay correct.

#include <ctime>

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "troubles.hpp"

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    long const failed = syscall(SYS_clock_gettime, clock, now);
    if (failed == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        now->tv_sec += present_troubles().clock_ahead_s;
    }
    return static_cast<int>(failed);
}

extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
    timespec fine{};
    int const failed = clock_gettime(CLOCK_REALTIME, &fine);
    *now = {fine.tv_sec, fine.tv_nsec / 1000};
    return failed;
}

extern "C" time_t time(time_t* now) noexcept {
    timespec fine{};
    clock_gettime(CLOCK_REALTIME, &fine);
    if (now != nullptr) {
        *now = fine.tv_sec;
    }
    return fine.tv_sec;
}
