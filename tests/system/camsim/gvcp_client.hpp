#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "file_descriptor.hpp"
#include "gvcp_packet.hpp"
#include "ipv4.hpp"

/// The application's side of a control channel, no more than measurements need: one command at a time, three tries
/// each.
class gvcp_client {
public:
    explicit gvcp_client(camsim::ipv4_address camera);

    void write_register(std::uint32_t address, std::uint32_t value);
    void write_memory(std::uint32_t address, std::span<std::byte const> data);

    /// The address of this host that the camera sees.
    camsim::ipv4_address own_address() const { return own_address_; }

private:
    void transact(camsim::gvcp::command command, std::span<std::byte const> payload, std::string const& what);

    camsim::file_descriptor socket_;
    camsim::ipv4_address own_address_ = 0;
    std::uint16_t next_request_id_ = 1;
};
