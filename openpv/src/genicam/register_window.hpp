// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Bytes of a camera that a register node describes, and their cache.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include <pugixml.hpp>

#include "genicam/node.hpp"
#include "gvcp/register_port.hpp"

namespace openpv {

/// The registers of the camera, shared by all nodes of a graph.
struct camera_registers {
    register_port& port;
    bool uses_register_access = false;  ///< for registers of 4 bytes, as GenICam schemas before 1.1 require
    std::mutex parts;                   ///< held while a part of a register is read, changed and written
};

/// Address, length and caching of a register. The entries of a structure share one.
///
/// Thread-safe. The mutex guards the cached content only; it is not held while the camera is accessed, so that threads
/// do not wait for each other's round trips. What was read while the content changed is not cached.
class register_window {
public:
    void link(pugi::xml_node element, node_loader& loader);

    /// \param bytes receives the length, from 1 to 1 MiB
    bool get_length(evaluation& state, std::size_t& bytes) const;
    bool read(evaluation& state, std::span<std::byte> into);
    bool write(evaluation& state, std::span<std::byte const> from);
    void invalidate();

    /// Locks parts of registers against changes by other threads, from reading a register until it is written.
    std::unique_lock<std::mutex> lock_parts() { return std::unique_lock(camera_->parts); }

    bool is_big_endian() const { return big_endian_; }
    node_access access() const { return access_; }

private:
    enum class caching : std::uint8_t { none, write_through, write_around };
    struct index {
        node* source = nullptr;
        bool has_offset = false;             ///< otherwise the register's length
        number_source<std::int64_t> offset;  ///< bytes
    };

    bool get_address(evaluation& state, std::size_t length, std::int64_t& address) const;
    register_result read_port(std::int64_t address, std::span<std::byte> into);
    register_result write_port(std::int64_t address, std::span<std::byte const> from);
    bool take_cached(std::int64_t address, std::span<std::byte> into, std::uint64_t& generation);
    void store(std::int64_t address, std::span<std::byte const> content);

    std::string name_;
    std::deque<number_source<std::int64_t>> addresses_;  ///< the address is their sum
    std::deque<index> indexes_;
    number_source<std::int64_t> length_;
    camera_registers* camera_ = nullptr;
    char const* unusable_port_ = nullptr;  ///< reason why the port cannot be used; null if it can
    bool big_endian_ = false;
    node_access access_ = node_access::read_only;
    caching caching_ = caching::write_through;
    std::chrono::milliseconds polling_time_{0};  ///< age at which cached content is read again; 0: never

    std::mutex mutex_;  ///< guards the members below
    std::vector<std::byte> cached_;
    bool valid_ = false;
    std::int64_t cached_address_ = 0;
    std::chrono::steady_clock::time_point cached_at_;
    std::uint64_t generation_ = 0;  ///< counts writes and invalidations
};

/// Translates a failed access. \return false
bool fail_access(evaluation& state, register_result const& result);

}  // namespace openpv
