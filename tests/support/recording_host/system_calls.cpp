// SPDX-License-Identifier: MIT
/// \file
/// C library functions that the recording host replaces. Linked into a program, they take precedence over the
/// library's.
#include <sys/time.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "recording_host.hpp"

namespace {

[[gnu::format(printf, 2, 0)]] void record_line(int priority, char const* format, va_list args) {
    support::outside_plugin const scope;
    char text[4096];
    std::vsnprintf(text, sizeof text, format, args);
    if (recording::host().keep_records) {
        recording::the_system_log().lines.push_back({priority, text});
    }
}

uint64_t steered_now() {
    auto& clock = recording::clock();
    uint64_t const now = clock.microseconds;
    clock.microseconds += clock.step;
    return now;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

void openlog(char const* ident, int options, int facility) {
    support::outside_plugin const scope;
    auto& log = recording::the_system_log();
    log.idents.emplace_back(ident);
    log.ident_pointers.push_back(ident);
    log.options = options;
    log.facility = facility;
}

void syslog(int priority, char const* format, ...) {
    va_list args;
    va_start(args, format);
    record_line(priority, format, args);
    va_end(args);
}

// The C library's headers replace `syslog` by this function where formats are checked at run time.
[[gnu::format(printf, 3, 4)]] void __syslog_chk(int priority, int, char const* format, ...);
void __syslog_chk(int priority, int, char const* format, ...) {
    va_list args;
    va_start(args, format);
    record_line(priority, format, args);
    va_end(args);
}

int gettimeofday(timeval* time, void* zone) noexcept {
    if (recording::clock().steered) {
        uint64_t const now = steered_now();
        time->tv_sec = static_cast<time_t>(now / 1'000'000);
        time->tv_usec = static_cast<suseconds_t>(now % 1'000'000);
        return 0;
    }
    timespec precise{};
    clock_gettime(CLOCK_REALTIME, &precise);
    time->tv_sec = precise.tv_sec;
    time->tv_usec = precise.tv_nsec / 1000;
    static_cast<void>(zone);
    return 0;
}

time_t time(time_t* result) noexcept {
    timeval now{};
    if (recording::clock().steered) {
        now.tv_sec = static_cast<time_t>(recording::clock().microseconds / 1'000'000);
    } else {
        gettimeofday(&now, nullptr);
    }
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

}  // extern "C"
#pragma GCC visibility pop
