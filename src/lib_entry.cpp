// SPDX-License-Identifier: MIT
/// \file
/// Entry point of the shared object when it is started as a program. It then runs without its static constructors and
/// without a host, so this code must not depend on either.

#include <unistd.h>

#include <cstdio>

#include "mg_host_api.hpp"

/// Names the dynamic loader. The kernel starts no shared object that lacks this section.
[[gnu::section(".interp"), gnu::used]] static char const _S_interpreter[] =
#if defined(__x86_64__)
    "/lib64/ld-linux-x86-64.so.2";
#elif defined(__aarch64__)
    "/lib/ld-linux-aarch64.so.1";
#else
#error "add the dynamic loader of this architecture, see its ABI supplement"
#endif

/// On x86-64 the kernel enters here with a stack that is not aligned as calls require, so the function realigns it.
/// `_exit` does not flush standard output, so the function does.
#ifdef __x86_64__
[[gnu::force_align_arg_pointer]]
#endif
void LibEntry() {
    std::printf("Version: %s\n", MgLibGetVer());
    std::fflush(stdout);
    _exit(0);
}
