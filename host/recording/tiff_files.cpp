#include "recording/tiff_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <system_error>
#include <utility>

namespace mediagrabber {

namespace {

std::string file_name_of(frame_record const& record) {
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), "frame-%08" PRIu64 "-%016" PRIu64 ".tif", record.number,
                  record.timestamp_us);
    return name.data();
}

/// An open file that is removed again unless it is given its name.
class unfinished_file {
public:
    unfinished_file(int directory, std::string name) : directory_(directory), name_(std::move(name)) {
        descriptor_ = openat(directory_, name_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
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

    /// Some file systems report only here that there was no room.
    void finish_as(std::string const& name) {
        if (close(std::exchange(descriptor_, -1)) != 0 ||
            renameat(directory_, name_.c_str(), directory_, name.c_str()) != 0) {
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

void tiff_files::take_back() {
    unlinkat(directory_, last_.c_str(), 0);
}

}  // namespace mediagrabber
