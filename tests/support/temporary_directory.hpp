// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

/// A new directory in the system's temporary directory. The destructor removes it with its contents.
class temporary_directory {
public:
    temporary_directory() {
        std::string name = (std::filesystem::temp_directory_path() / "mediagrabber_test.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create a temporary directory");
        }
        path_ = name;
    }
    ~temporary_directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    temporary_directory(temporary_directory const&) = delete;
    temporary_directory& operator=(temporary_directory const&) = delete;

    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};
