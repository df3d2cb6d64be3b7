// SPDX-License-Identifier: MIT
#include "recording/hdf5_storage.hpp"

#if __has_include(<H5FDdevelop.h>)
#include <H5FDdevelop.h>  // since 1.14, drivers are declared here
#endif
#include <sys/file.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include "base/system_call.hpp"

namespace mediagrabber {

namespace {

// Places in the superblock, version 3 of the format.
constexpr std::size_t flags_at = 11;
constexpr std::size_t end_of_file_at = 28;
constexpr std::size_t checksum_at = 44;
constexpr std::size_t superblock_bytes = 48;

}  // namespace

/// The functions that libhdf5 calls.
struct hdf5_driver {
    /// What the library knows of an open file. Its first member is the library's own.
    struct open_file {
        H5FD_t base;
        hdf5_storage* storage;
    };

    /// What the library copies from the properties of an access.
    struct driver_info {
        hdf5_storage* storage;
    };

    static hdf5_storage& storage_of(H5FD_t const* file) { return *reinterpret_cast<open_file const*>(file)->storage; }

    static H5FD_t* open(char const* /*name*/, unsigned /*flags*/, hid_t access, haddr_t /*maxaddr*/) noexcept {
        auto const* const info = static_cast<driver_info const*>(H5Pget_driver_info(access));
        if (info == nullptr) {
            return nullptr;
        }
        return reinterpret_cast<H5FD_t*>(new (std::nothrow) open_file{.base = {}, .storage = info->storage});
    }
    static herr_t close(H5FD_t* file) noexcept {
        delete reinterpret_cast<open_file*>(file);
        return 0;
    }
    static int compare(H5FD_t const* one, H5FD_t const* other) noexcept {
        std::less<hdf5_storage const*> const less;
        auto const* const a = &storage_of(one);
        auto const* const b = &storage_of(other);
        return less(a, b) ? -1 : static_cast<int>(less(b, a));
    }
    static herr_t query(H5FD_t const* /*file*/, unsigned long* flags) noexcept {
        *flags = H5FD_FEAT_SUPPORTS_SWMR_IO | H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
        return 0;
    }
    static haddr_t end_of_addresses(H5FD_t const* file, H5FD_mem_t /*type*/) noexcept { return storage_of(file).end_; }
    static herr_t set_end_of_addresses(H5FD_t* file, H5FD_mem_t /*type*/, haddr_t end) noexcept {
        storage_of(file).end_ = end;
        return 0;
    }
    static haddr_t end_of_file(H5FD_t const* file, H5FD_mem_t /*type*/) noexcept { return storage_of(file).end_; }
    static herr_t read(H5FD_t* file, H5FD_mem_t /*type*/, hid_t /*transfer*/, haddr_t address, std::size_t size,
                       void* buffer) noexcept try {
        storage_of(file).read(address, {static_cast<std::byte*>(buffer), size});
        return 0;
    } catch (std::exception const&) {
        return -1;
    }
    static herr_t write(H5FD_t* file, H5FD_mem_t type, hid_t /*transfer*/, haddr_t address, std::size_t size,
                        void const* buffer) noexcept try {
        storage_of(file).write(type == H5FD_MEM_DRAW, address, {static_cast<std::byte const*>(buffer), size});
        return 0;
    } catch (std::exception const&) {
        return -1;
    }

    /// Registers the driver in the library, once.
    static hid_t registered() {
        static hid_t const id = [] {
            static H5FD_class_t driver = [] {
                H5FD_class_t made{};
#if H5_VERSION_GE(1, 14, 0)
                made.version = H5FD_CLASS_VERSION;
                made.value = 600;  // of the range for drivers that are not registered with The HDF Group
#endif
                made.name = "mediagrabber";
                made.maxaddr = HADDR_MAX;
                made.fc_degree = H5F_CLOSE_STRONG;
                made.fapl_size = sizeof(driver_info);
                made.open = open;
                made.close = close;
                made.cmp = compare;
                made.query = query;
                made.get_eoa = end_of_addresses;
                made.set_eoa = set_end_of_addresses;
                made.get_eof = end_of_file;
                made.read = read;
                made.write = write;
                return made;
            }();
            return H5FDregister(&driver);
        }();
        return id;
    }
};

hdf5_storage::hdf5_storage(int directory, std::string name) : file_(directory, std::move(name)) {
    // Keeps programs from opening the file for writing; it is shared, because readers also request a lock.
    // A file system without locks does without.
    flock(file_.descriptor(), LOCK_SH | LOCK_NB);
}

void hdf5_storage::select_for(hid_t access) {
    hdf5_driver::driver_info const info{.storage = this};
    if (hdf5_driver::registered() < 0 || H5Pset_driver(access, hdf5_driver::registered(), &info) < 0) {
        throw std::runtime_error("libhdf5 does not accept the file driver");
    }
}

void hdf5_storage::write(bool data, std::uint64_t address, std::span<std::byte const> content) {
    if (frozen_) {
        return;
    }
    if (data && content.size() == watched_bytes_) {
        last_data_ = address;
    }
    if (address == 0) {
        header_.assign(content.begin(), content.end());
        return;
    }
    if (!data || published_ == 0) {
        changes_.push_back({.address = address, .content = {content.begin(), content.end()}});
        return;
    }
    if (data_error_ != nullptr) {
        return;  // The frame is lost.
    }
    try {
        file_.write_at(address, content);
    } catch (...) {
        data_error_ = std::current_exception();
    }
}

void hdf5_storage::read(std::uint64_t address, std::span<std::byte> content) const {
    file_.read_at(address, content);
    auto const overlay = [&](std::uint64_t at, std::span<std::byte const> newer) {
        std::uint64_t const first = std::max(at, address);
        std::uint64_t const last = std::min(at + newer.size(), address + content.size());
        if (first < last) {
            std::ranges::copy(newer.subspan(first - at, last - first),
                              content.begin() + static_cast<long>(first - address));
        }
    };
    overlay(0, header_);
    for (change const& one : changes_) {
        overlay(one.address, one.content);
    }
}

/// The superblock without the marks "open for writing", which make readers refuse a file whose writer was killed, and
/// with the current end of the file, beyond which readers without SWMR do not read.
hdf5_storage::bytes hdf5_storage::written_header() const {
    bytes header = header_;
    header.at(flags_at) = std::byte{0};
    std::uint64_t const end = end_;
    std::memcpy(header.data() + end_of_file_at, &end, sizeof end);
    std::uint32_t const checksum = hdf5_checksum(std::span(header).first(checksum_at));
    std::memcpy(header.data() + checksum_at, &checksum, sizeof checksum);
    return header;
}

void hdf5_storage::throw_data_error() {
    if (data_error_ != nullptr) {
        std::exception_ptr const reason = std::exchange(data_error_, nullptr);
        try {
            auto const length = file_.size();
            file_.truncate(published_);  // frees what a part of the frame occupies
            file_.truncate(length);
        } catch (std::system_error const&) {
            // The next frame overwrites that part.
        }
        std::rethrow_exception(reason);
    }
}

/// \throws std::system_error
void hdf5_storage::lengthen() {
    if (end_ + min_surplus <= file_.size()) {
        return;
    }
    try {
        file_.truncate(end_ + 2 * min_surplus);
    } catch (std::system_error const& error) {
        if (error.code() != std::errc::file_too_large) {
            throw;
        }
        if (end_ > file_.size()) {
            file_.truncate(end_);  // without a surplus, where the size of files is limited
        }
    }
}

void hdf5_storage::freeze() {
    frozen_ = true;
    try {
        file_.truncate(published_);
    } catch (std::system_error const&) {
        // Readers do not mind the surplus.
    }
}

/// The end moves first: from then on, readers may follow the changes.
void hdf5_storage::commit() {
    throw_data_error();
    if (header_.size() < superblock_bytes) {
        throw std::runtime_error(name() + ": libhdf5 has written no superblock");
    }
    if (end_ != published_) {
        lengthen();
        published_ = end_;
    }
    file_.write_at(0, written_header());
    for (change const& one : changes_) {
        file_.write_at(one.address, one.content);
    }
    file_.show();
    changes_.clear();
}

std::uint32_t hdf5_checksum(std::span<std::byte const> bytes) {
    std::uint32_t a = 0xDEADBEEFU + static_cast<std::uint32_t>(bytes.size());
    std::uint32_t b = a;
    std::uint32_t c = a;
    auto const add = [&] {
        std::array<std::byte, 12> block{};
        auto const part = bytes.first(std::min(bytes.size(), block.size()));
        std::ranges::copy(part, block.begin());
        bytes = bytes.subspan(part.size());
        auto const words = std::bit_cast<std::array<std::uint32_t, 3>>(block);
        a += words[0];
        b += words[1];
        c += words[2];
    };
    if (bytes.empty()) {
        return c;
    }
    while (bytes.size() > 12) {
        add();
        a -= c, a ^= std::rotl(c, 4), c += b;
        b -= a, b ^= std::rotl(a, 6), a += c;
        c -= b, c ^= std::rotl(b, 8), b += a;
        a -= c, a ^= std::rotl(c, 16), c += b;
        b -= a, b ^= std::rotl(a, 19), a += c;
        c -= b, c ^= std::rotl(b, 4), b += a;
    }
    add();
    c ^= b, c -= std::rotl(b, 14);
    a ^= c, a -= std::rotl(c, 11);
    b ^= a, b -= std::rotl(a, 25);
    c ^= b, c -= std::rotl(b, 16);
    a ^= c, a -= std::rotl(c, 4);
    b ^= a, b -= std::rotl(a, 14);
    c ^= b, c -= std::rotl(b, 24);
    return c;
}

}  // namespace mediagrabber
