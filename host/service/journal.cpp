#include "service/journal.hpp"

#include <sys/stat.h>

#include <cstdlib>
#include <string>

namespace mediagrabber {

/// systemd tells device and inode of its stream in the environment; an output that was redirected has others.
bool goes_to_journal(int descriptor) {
    char const* const stream = std::getenv("JOURNAL_STREAM");
    struct stat found {};
    return stream != nullptr && fstat(descriptor, &found) == 0 &&
           stream == std::to_string(found.st_dev) + ":" + std::to_string(found.st_ino);
}

}  // namespace mediagrabber
