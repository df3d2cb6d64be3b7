#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

#include "file_handle.hpp"

namespace mediagrabber {

/// A file that grows by whole pieces: what a full disk has left of one is taken back. One that has never got a piece is
/// removed in the end.
class growing_file {
public:
    /// Creates it in the directory `directory` (a descriptor, which has to stay open). \throws std::system_error, with
    /// EEXIST when there is one already
    growing_file(int directory, std::string name);
    ~growing_file();
    growing_file(growing_file const&) = delete;
    growing_file& operator=(growing_file const&) = delete;

    std::string const& name() const { return name_; }
    std::uint64_t size() const { return size_; }

    /// Appends the parts one behind the other. \throws std::system_error; the file is then as it was before
    void append(std::initializer_list<std::span<std::byte const>> parts);
    /// Replaces bytes that are there. \throws std::system_error
    void replace(std::uint64_t offset, std::span<std::byte const> bytes);
    /// Removes what lies behind the first `size` bytes. \throws std::system_error
    void cut(std::uint64_t size);

private:
    void write_at(std::uint64_t offset, std::span<std::byte const> bytes) const;

    int const directory_;
    std::string const name_;
    file_handle file_;
    std::uint64_t size_ = 0;
};

}  // namespace mediagrabber
