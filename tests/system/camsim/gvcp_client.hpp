// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/file_descriptor.hpp"
#include "base/ipv4.hpp"
#include "protocol/gvcp_packet.hpp"

/// The application side of a control channel, for measurements: one command at a time, with up to three attempts.
/// Errors are exceptions.
class gvcp_client {
public:
    explicit gvcp_client(camsim::ipv4_address camera);

    void write_register(std::uint32_t address, std::uint32_t value);
    void write_memory(std::uint32_t address, std::span<std::byte const> data);

    /// The address of this host from which the camera receives commands.
    camsim::ipv4_address own_address() const { return own_address_; }

private:
    void transact(camsim::gvcp::command command, std::span<std::byte const> payload, std::string const& what);

    camsim::file_descriptor socket_;
    camsim::ipv4_address own_address_ = 0;
    std::uint16_t next_request_id_ = 1;
};
