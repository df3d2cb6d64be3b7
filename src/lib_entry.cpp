/// \file
/// Lets the shared object be started as a program. It then runs without its own constructors and without a host:
/// nothing here may need either.

#include <unistd.h>

#include <cstdio>

#include "mg_host_api.hpp"

/// Names the dynamic loader, without which the kernel would not start a shared object.
[[gnu::section(".interp"), gnu::used]] static char const _S_interpreter[] = "/lib64/ld-linux-x86-64.so.2";

/// The kernel enters here with a stack aligned for no call, and `_exit` flushes nothing.
[[gnu::force_align_arg_pointer]] void LibEntry() {
    std::printf("Version: %s\n", MgLibGetVer());
    std::fflush(stdout);
    _exit(0);
}
