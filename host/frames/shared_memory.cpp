// SPDX-License-Identifier: MIT
#include "frames/shared_memory.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace mediagrabber {

void seal_shared_memory(int descriptor) {
    constexpr int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL;
    if (fchmod(descriptor, S_IRUSR) != 0 || fcntl(descriptor, F_ADD_SEALS, seals) != 0) {
        throw std::system_error(errno, std::generic_category(), "shared frame memory cannot be protected");
    }
}

}  // namespace mediagrabber
