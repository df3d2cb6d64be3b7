// SPDX-License-Identifier: MIT
#include "recording/growing_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "base/system_call.hpp"

namespace mediagrabber {

growing_file::growing_file(int directory, std::string name)
    : directory_(directory), name_(std::move(name)), hidden_name_("." + name_ + ".part") {
    if (faccessat(directory_, name_.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        fail();
    }
    file_ = file_handle(uninterrupted(
        [&] { return openat(directory_, hidden_name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666); }));
    if (!file_) {
        fail();
    }
}

growing_file::~growing_file() {
    if (hidden_) {
        unlinkat(directory_, hidden_name_.c_str(), 0);
    }
}

void growing_file::fail() const {
    throw std::system_error(errno, std::generic_category(), name_);
}

void growing_file::append(std::initializer_list<std::span<std::byte const>> parts) {
    std::uint64_t const before = size_;
    std::uint64_t end = before;
    try {
        for (auto const part : parts) {
            write_at(end, part);
            end += part.size();
        }
        show();
        size_ = end;
    } catch (std::system_error const& error) {
        try {
            truncate(before);
        } catch (std::system_error const&) {
            // The next piece overwrites the incomplete one.
            throw std::system_error(error.code(), name_ + " ends in an incomplete frame");
        }
        throw;
    }
}

void growing_file::replace(std::uint64_t offset, std::span<std::byte const> bytes) {
    write_at(offset, bytes);
}

void growing_file::truncate(std::uint64_t size) {
    if (size == 0) {
        hide();
    }
    if (uninterrupted([&] { return ftruncate(file_.get(), static_cast<off_t>(size)); }) != 0) {
        fail();
    }
    size_ = size;
}

/// Does not replace a file. A file system without RENAME_NOREPLACE is trusted: the constructor has checked.
void growing_file::show() {
    if (!hidden_) {
        return;
    }
    auto const rename_with = [&](unsigned flags) {
        return uninterrupted(
            [&] { return renameat2(directory_, hidden_name_.c_str(), directory_, name_.c_str(), flags); });
    };
    bool const shown = rename_with(RENAME_NOREPLACE) == 0 || (errno == EINVAL && rename_with(0) == 0);
    if (!shown) {
        fail();
    }
    hidden_ = false;
}

void growing_file::hide() {
    if (hidden_) {
        return;
    }
    if (uninterrupted([&] { return renameat2(directory_, name_.c_str(), directory_, hidden_name_.c_str(), 0); }) != 0) {
        fail();
    }
    hidden_ = true;
}

void growing_file::write_at(std::uint64_t offset, std::span<std::byte const> bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const written = uninterrupted([&] {
            return pwrite(file_.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        });
        if (written == 0) {
            errno = EIO;  // no progress and no reason
        }
        if (written <= 0) {
            fail();
        }
        done += static_cast<std::size_t>(written);
    }
}

void growing_file::read_at(std::uint64_t offset, std::span<std::byte> bytes) const {
    while (!bytes.empty()) {
        ssize_t const got =
            uninterrupted([&] { return pread(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
        if (got < 0) {
            fail();
        }
        if (got == 0) {
            std::ranges::fill(bytes, std::byte{0});
            return;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(got));
        offset += static_cast<std::uint64_t>(got);
    }
}

}  // namespace mediagrabber
