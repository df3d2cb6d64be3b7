// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "base/file_descriptor.hpp"
#include "base/ipv4.hpp"
#include "protocol/gvsp_packet.hpp"

/// A minimal receiver of a GVSP stream: a socket for which the kernel merges packets (UDP_GRO).
class stream_receiver {
public:
    using packet_handler = std::function<void(camsim::gvsp::packet_header const&, std::span<std::byte const> payload)>;

    explicit stream_receiver(camsim::ipv4_address own_address);

    std::uint16_t port() const { return port_; }
    std::size_t receive(packet_handler const& handle);

private:
    camsim::file_descriptor socket_;
    std::uint16_t port_ = 0;
    std::vector<std::byte> buffer_;
};
