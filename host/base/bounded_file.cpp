// SPDX-License-Identifier: MIT
#include "base/bounded_file.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "base/file_handle.hpp"

namespace mediagrabber {

namespace {

[[noreturn]] void fail(char const* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

file_handle open_regular(std::filesystem::path const& file) {
    // Without O_NONBLOCK, opening a pipe blocks until it has a writer.
    file_handle opened(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!opened) {
        fail("cannot be opened");
    }
    if (fstat(opened.get(), &status) != 0) {
        fail("cannot be examined");
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error("is not a regular file");
    }
    return opened;
}

}  // namespace

std::string read_bounded_file(std::filesystem::path const& file, std::size_t max_bytes) {
    auto const opened = open_regular(file);
    std::string text(max_bytes + 1, '\0');
    std::size_t filled = 0;
    while (filled < text.size()) {
        ssize_t const got = read(opened.get(), text.data() + filled, text.size() - filled);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            fail("cannot be read");
        }
        if (got == 0) {
            break;
        }
        filled += static_cast<std::size_t>(got);
    }
    if (filled > max_bytes) {
        throw std::runtime_error(fmt::format("is larger than {} MiB, the maximum for such a file", max_bytes >> 20U));
    }
    text.resize(filled);
    return text;
}

}  // namespace mediagrabber
