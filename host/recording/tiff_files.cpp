// SPDX-License-Identifier: MIT
#include "recording/tiff_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <regex>
#include <system_error>
#include <utility>

#include "base/system_call.hpp"

namespace mediagrabber {

namespace {

std::string file_name_of(frame_record const& record) {
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), "frame-%08" PRIu64 "-%016" PRIu64 ".tif", record.number,
                  record.timestamp_us);
    return name.data();
}

/// An open file under a temporary name, which the destructor deletes unless finish_as() has renamed it.
class unfinished_file {
public:
    unfinished_file(int directory, std::string name) : directory_(directory), name_(std::move(name)) {
        descriptor_ = uninterrupted(
            [&] { return openat(directory_, name_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666); });
        if (descriptor_ < 0) {
            throw std::system_error(errno, std::generic_category(), name_);
        }
    }
    ~unfinished_file() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
        if (!finished_) {
            unlinkat(directory_, name_.c_str(), 0);
        }
    }
    unfinished_file(unfinished_file const&) = delete;
    unfinished_file& operator=(unfinished_file const&) = delete;

    int descriptor() const { return descriptor_; }

    std::size_t size() const {
        struct stat status {};
        if (fstat(descriptor_, &status) != 0) {
            throw std::system_error(errno, std::generic_category(), name_);
        }
        return static_cast<std::size_t>(status.st_size);
    }

    /// Some file systems report a full disk only on close.
    void finish_as(std::string const& name) {
        bool const closed = close(std::exchange(descriptor_, -1)) == 0 || errno == EINTR;  // closed then, too
        if (!closed ||
            uninterrupted([&] { return renameat(directory_, name_.c_str(), directory_, name.c_str()); }) != 0) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        finished_ = true;
    }

private:
    int const directory_;
    std::string const name_;
    int descriptor_ = -1;
    bool finished_ = false;
};

}  // namespace

written_frame tiff_files::write(frame_view const& frame) {
    std::string const name = file_name_of(frame.record);
    unfinished_file file(directory_, "." + name + ".part");
    writer_.write(file.descriptor(), frame);
    std::size_t const bytes = file.size();
    file.finish_as(name);
    last_ = name;
    return {.place = {.file = name, .page = {}, .offset = {}, .bytes = {}}, .bytes = bytes};
}

void tiff_files::undo_last() {
    unlinkat(directory_, last_.c_str(), 0);
}

bool tiff_files::is_name(std::string const& name) {
    static std::regex const pattern(R"(frame-\d{8,}-\d{16,}\.tif|\.frame-\d{8,}-\d{16,}\.tif\.part)");
    return std::regex_match(name, pattern);
}

}  // namespace mediagrabber
