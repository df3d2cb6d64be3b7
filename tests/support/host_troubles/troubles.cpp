// SPDX-License-Identifier: MIT
#include "troubles.hpp"

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// Uses system calls, because this library replaces the functions of the same names.
void const* map_troubles() {
    char const* const path = std::getenv("HOST_TROUBLES");
    long const file = path == nullptr ? -1 : syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC, 0);
    void* const mapped =
        file < 0 ? MAP_FAILED : mmap(nullptr, sizeof(host_troubles), PROT_READ, MAP_SHARED, static_cast<int>(file), 0);
    if (mapped == MAP_FAILED) {
        std::fputs("HOST_TROUBLES does not name a valid file\n", stderr);
        std::abort();
    }
    syscall(SYS_close, file);
    return mapped;
}

}  // namespace

host_troubles const& present_troubles() {
    static void const* const mapped = map_troubles();
    return *static_cast<host_troubles const*>(mapped);
}
