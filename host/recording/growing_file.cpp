#include "recording/growing_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace mediagrabber {

growing_file::growing_file(int directory, std::string name)
    : directory_(directory),
      name_(std::move(name)),
      file_(openat(directory_, name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
    if (!file_) {
        throw std::system_error(errno, std::generic_category(), name_);
    }
}

growing_file::~growing_file() {
    if (size_ == 0) {
        unlinkat(directory_, name_.c_str(), 0);
    }
}

void growing_file::append(std::initializer_list<std::span<std::byte const>> parts) {
    std::uint64_t const before = size_;
    std::uint64_t end = before;
    try {
        for (auto const part : parts) {
            write_at(end, part);
            end += part.size();
        }
        size_ = end;
    } catch (std::system_error const&) {
        cut(before);
        throw;
    }
}

void growing_file::replace(std::uint64_t offset, std::span<std::byte const> bytes) {
    write_at(offset, bytes);
}

void growing_file::cut(std::uint64_t size) {
    if (ftruncate(file_.get(), static_cast<off_t>(size)) != 0) {
        throw std::system_error(errno, std::generic_category(), name_ + " ends in a piece of a frame");
    }
    size_ = size;
}

void growing_file::write_at(std::uint64_t offset, std::span<std::byte const> bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const written =
            pwrite(file_.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (written < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), name_);
        }
        done += written < 0 ? 0 : static_cast<std::size_t>(written);
    }
}

}  // namespace mediagrabber
