// SPDX-License-Identifier: MIT
#include "base/journald_sink.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cstdlib>

namespace mediagrabber {

/// systemd passes device and inode of its stream in JOURNAL_STREAM; a redirected output has others.
bool goes_to_journal(int descriptor) {
    char const* const stream = std::getenv("JOURNAL_STREAM");
    struct stat found {};
    return stream != nullptr && fstat(descriptor, &found) == 0 &&
           stream == fmt::format("{}:{}", found.st_dev, found.st_ino);
}

}  // namespace mediagrabber
