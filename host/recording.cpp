#include "recording.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <stdexcept>
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

recording::open_directory::open_directory(std::filesystem::path const& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw std::runtime_error(path.string() + ": the directory can't be created: " + error.message());
    }
    descriptor_ = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor_ < 0) {
        throw std::runtime_error(path.string() + ": " + std::generic_category().message(errno));
    }
}

recording::open_directory::~open_directory() {
    close(descriptor_);
}

recording::recording(std::filesystem::path directory, std::optional<tiff_file> writer) try
    : path_(std::move(directory)), writer_(std::move(writer)), directory_(path_), journal_(directory_.descriptor()) {
} catch (std::system_error const& error) {
    if (error.code() == std::errc::file_exists) {
        throw std::runtime_error("the output directory holds a recording already (" +
                                 std::string(frame_journal::file_name) + "), give another one");
    }
    throw std::runtime_error(std::string("the output directory can't be written to: ") + error.what());
}

recording::~recording() = default;

std::size_t recording::keep(frame_view const& frame) {
    if (!writer_) {
        std::string const line = journal_line(frame.record, std::nullopt);
        journal_.append(line);
        return line.size();
    }
    std::string const name = file_name_of(frame.record);
    std::size_t const bytes = write_file(name, frame);
    try {
        std::string const line = journal_line(frame.record, name);
        journal_.append(line);
        return bytes + line.size();
    } catch (...) {
        unlinkat(directory_.descriptor(), name.c_str(), 0);
        throw;
    }
}

std::size_t recording::write_file(std::string const& name, frame_view const& frame) const {
    unfinished_file file(directory_.descriptor(), "." + name + ".part");
    writer_->write(file.descriptor(), frame);
    std::size_t const bytes = file.size();
    file.finish_as(name);
    return bytes;
}

}  // namespace mediagrabber
