// SPDX-License-Identifier: MIT
#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <vector>

#include "recording/growing_file.hpp"

namespace mediagrabber {

/// The file below libhdf5: a driver (VFD) of the library that writes in transactions.
///
/// Pixels and other data (`H5FD_MEM_DRAW`) are written at once, to places that no reader knows yet. Metadata, and
/// everything before the first commit(), is kept in memory until commit(), in the order in which the library has
/// written it. In its SWMR mode, the library writes what
/// is referred to before what refers to it; so the file is valid after each of these writes, provided that none of them
/// is torn. A write is not torn by a signal if it stays within a memory page; the library gets addresses at which all
/// blocks that change do (see `block_alignment`).
///
/// The file on the disk carries neither the marks of an open file nor an end that is out of date (see
/// written_header()). Therefore any reader opens it, with and without SWMR, while it grows and after the process has
/// been killed.
///
/// The library never sees an error of the disk, after which it could neither go on nor close the file: commit() throws
/// it, and tries again when it is called again. Used by one thread at a time.
class hdf5_storage {
public:
    /// Creates the hidden file; the first commit() shows it.
    /// \param directory  descriptor, must stay open as long as the object lives
    /// \throws std::system_error  with EEXIST if the file exists
    hdf5_storage(int directory, std::string name);
    hdf5_storage(hdf5_storage const&) = delete;
    hdf5_storage& operator=(hdf5_storage const&) = delete;
    ~hdf5_storage() = default;

    std::string const& name() const { return file_.name(); }
    /// \return bytes of the file on the disk
    std::uint64_t size() const { return published_; }

    /// Selects this storage for a file that the library creates with the property list.
    /// \throws std::runtime_error
    void select_for(hid_t access);

    /// \return whether the last commit() has failed
    bool has_changes() const { return !changes_.empty(); }
    /// Writes everything to the file.
    /// \throws std::system_error; what has not been written remains for the next call
    void commit();
    /// \throws std::system_error  the first error since the last call, in writing data
    void throw_data_error();
    /// Begins to drop what the library writes, because it closes the file.
    void freeze();
    /// \return address of the last data block of at least this size that was written
    std::uint64_t last_data_address() const { return last_data_; }
    /// Notes the address of blocks of this size, see last_data_address().
    void watch_data_of(std::size_t bytes) { watched_bytes_ = bytes; }

    /// All blocks of the file begin at a multiple of this. Blocks that change have at most this size, so none of them
    /// crosses a memory page.
    static constexpr std::uint64_t block_alignment = 2048;
    /// Until freeze(), the file is longer by at least this, without occupying space. A reader determines the length
    /// before it reads the superblock, and refuses a file that is shorter than the superblock says; this is how much
    /// may be written between the two.
    static constexpr std::uint64_t min_surplus = 32U << 20U;

private:
    friend struct hdf5_driver;

    using bytes = std::vector<std::byte>;
    struct change {
        std::uint64_t address = 0;
        bytes content;
    };

    void write(bool data, std::uint64_t address, std::span<std::byte const> content);
    void read(std::uint64_t address, std::span<std::byte> content) const;
    bytes written_header() const;
    void lengthen();

    growing_file file_;
    std::uint64_t end_ = 0;        ///< of the addresses that the library has allocated, bytes
    std::uint64_t published_ = 0;  ///< end of the file, as its superblock may say, bytes
    bytes header_;                 ///< the superblock, as the library has written it
    std::vector<change> changes_;  ///< metadata since the last commit, in the order of the library
    std::exception_ptr data_error_;
    std::size_t watched_bytes_ = 0;
    std::uint64_t last_data_ = 0;
    bool frozen_ = false;
};

/// The checksum of blocks of an HDF5 file: Bob Jenkins's lookup3 (hashlittle).
std::uint32_t hdf5_checksum(std::span<std::byte const> bytes);

}  // namespace mediagrabber
