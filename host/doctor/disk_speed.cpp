// SPDX-License-Identifier: MIT
#include "doctor/disk_speed.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "base/file_handle.hpp"

namespace mediagrabber {

double measure_disk(std::filesystem::path const& directory, std::size_t bytes) {
    auto const fail = [&](char const* what) {
        throw std::system_error(errno, std::generic_category(), directory.string() + what);
    };
    std::string name = (directory / "disk-speed.XXXXXX").string();
    file_handle const file(mkostemp(name.data(), O_CLOEXEC));
    if (!file) {
        fail(": cannot create a file");
    }
    unlink(name.c_str());
    std::vector<char> const frame(std::size_t{4} << 20U, 'x');
    auto const began = std::chrono::steady_clock::now();
    for (std::size_t written = 0; written < bytes;) {
        ssize_t const got = write(file.get(), frame.data(), std::min(frame.size(), bytes - written));
        if (got < 0 && errno != EINTR) {
            fail(": cannot measure the write speed");
        }
        written += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    if (fdatasync(file.get()) != 0) {
        fail(": cannot measure the write speed");
    }
    return static_cast<double>(bytes) / std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

}  // namespace mediagrabber
