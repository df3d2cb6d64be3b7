// SPDX-License-Identifier: MIT
/// \file
/// Loads a plug-in, uses it and unloads it, several times: `reload_host PLUGIN CONNECTION_ID`.

#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

int main(int argc, char** argv) {
    if (argc != 3) {
        return EXIT_FAILURE;
    }
    for (int i = 0; i < 3; ++i) {
        void* const plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (plugin == nullptr) {
            std::fprintf(stderr, "%s\n", dlerror());
            return EXIT_FAILURE;
        }
        auto* const connect_once = reinterpret_cast<bool (*)(char const*)>(dlsym(plugin, "connect_once"));
        if (connect_once == nullptr || !connect_once(argv[2]) || dlclose(plugin) != 0) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
