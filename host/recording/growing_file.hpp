// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

#include "base/file_handle.hpp"

namespace mediagrabber {

/// A file that grows in complete pieces: a piece that the disk takes only in part is removed again.
///
/// The file appears under its name with its first piece; until then it has a hidden name, which the destructor deletes.
/// So a file under its name has at least one complete piece, whenever the process ends. Used by one thread at a time.
class growing_file {
public:
    /// Creates the hidden file.
    /// \param directory  descriptor, must stay open as long as the object lives
    /// \throws std::system_error  with EEXIST if the file exists
    growing_file(int directory, std::string name);
    ~growing_file();
    growing_file(growing_file const&) = delete;
    growing_file& operator=(growing_file const&) = delete;

    std::string const& name() const { return name_; }
    /// \return bytes
    std::uint64_t size() const { return size_; }

    /// Appends the parts one after the other, as one piece.
    /// \throws std::system_error; the file is then unchanged, unless that fails, too
    void append(std::initializer_list<std::span<std::byte const>> parts);
    /// Overwrites existing bytes.
    /// \param offset  bytes
    /// \throws std::system_error
    void replace(std::uint64_t offset, std::span<std::byte const> bytes);
    /// Truncates the file. An empty file is hidden again.
    /// \param size  bytes
    /// \throws std::system_error
    void truncate(std::uint64_t size);

    /// Gives the file its name, as append() does.
    /// \throws std::system_error
    void show();
    /// Writes at any place, also beyond the end, without a change of size(). A piece may be written in part if it
    /// fails. \param offset  bytes \throws std::system_error
    void write_at(std::uint64_t offset, std::span<std::byte const> bytes) const;
    /// Reads. What is beyond the end of the file is zero.
    /// \param offset  bytes
    /// \throws std::system_error
    void read_at(std::uint64_t offset, std::span<std::byte> bytes) const;
    int descriptor() const { return file_.get(); }

private:
    void hide();
    [[noreturn]] void fail() const;

    int const directory_;
    std::string const name_;
    std::string const hidden_name_;
    file_handle file_;
    std::uint64_t size_ = 0;
    bool hidden_ = true;
};

}  // namespace mediagrabber
