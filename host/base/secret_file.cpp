// SPDX-License-Identifier: MIT
#include "base/secret_file.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <stdexcept>

namespace mediagrabber {

void check_secret_file(std::filesystem::path const& file) {
    struct stat found {};
    if (stat(file.c_str(), &found) == 0 && (found.st_mode & S_IRWXO) != 0) {
        throw std::runtime_error(
            fmt::format("is accessible to every user of this machine, run `chmod o= {}`", file.string()));
    }
}

}  // namespace mediagrabber
