// SPDX-License-Identifier: MIT
/// \file
/// Writes to files as on a slow disk, or on one whose file system has become read-only or faulty. Sockets and pipes are
/// not affected.

#include <cerrno>
#include <cstdint>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "troubles.hpp"

namespace {

bool is_file(int descriptor) {
    struct stat about {};
    return fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode);
}

/// \return whether the call fails; errno holds the error
bool fails() {
    errno = static_cast<int>(present_troubles().write_error);
    return errno != 0;
}

void delay_write() {
    constexpr int64_t us_per_second = 1'000'000;
    int64_t const delay = present_troubles().write_delay_us;
    timespec const pause{delay / us_per_second, delay % us_per_second * 1000};
    nanosleep(&pause, nullptr);
}

ssize_t write_troubled(int file, long number, void const* data, size_t size, off_t place) {
    if (is_file(file)) {
        if (fails()) {
            return -1;
        }
        delay_write();
    }
    return syscall(number, file, data, size, place);
}

int open_troubled(int directory, char const* name, int flags, mode_t mode) {
    if ((flags & O_CREAT) != 0 && fails()) {
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, directory, name, flags, mode));
}

}  // namespace

extern "C" ssize_t write(int file, void const* data, size_t size) {
    return write_troubled(file, SYS_write, data, size, 0);
}

extern "C" ssize_t pwrite(int file, void const* data, size_t size, off_t place) {
    return write_troubled(file, SYS_pwrite64, data, size, place);
}

extern "C" ssize_t pwrite64(int file, void const* data, size_t size, off64_t place) {
    return write_troubled(file, SYS_pwrite64, data, size, place);
}

// Defined under other names: the headers declare `openat` with a variable argument, which is the mode if a file is
// created.
extern "C" int troubled_openat(int directory, char const* name, int flags, mode_t mode) __asm__("openat");
extern "C" int troubled_openat64(int directory, char const* name, int flags, mode_t mode) __asm__("openat64");

int troubled_openat(int directory, char const* name, int flags, mode_t mode) {
    return open_troubled(directory, name, flags, mode);
}

int troubled_openat64(int directory, char const* name, int flags, mode_t mode) {
    return open_troubled(directory, name, flags, mode);
}
