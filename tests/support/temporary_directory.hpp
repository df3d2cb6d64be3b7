#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

/// A directory that is gone, with what is in it, when the test is over.
class temporary_directory {
public:
    temporary_directory() {
        std::string name = (std::filesystem::temp_directory_path() / "mediagrabber_test.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
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
