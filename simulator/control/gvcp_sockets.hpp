// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "base/file_descriptor.hpp"
#include "base/ipv4.hpp"
#include "control/gvcp_device.hpp"

namespace camsim {

/// The control channel's sockets: GVCP port 3956 of the camera's address and of the broadcast addresses of its
/// interface.
///
/// They stay open during a power cycle: commands to a camera without power are lost, but its host must not reply with
/// ICMP "port unreachable". Used by one thread at a time.
class gvcp_sockets {
public:
    struct arrival {
        std::span<std::byte const> datagram;
        endpoint sender;
        delivery how;
    };

    /// \throws std::system_error with a message that suggests a fix, if the port is in use or the address is not one
    /// of this host
    explicit gvcp_sockets(network_interface const& interface);

    /// \return the descriptors to poll for arrivals
    std::vector<int> descriptors() const;

    /// Receives one datagram. Its bytes are valid until the next call.
    /// \param descriptor one of descriptors()
    /// \return empty if no datagram for this camera has arrived
    std::optional<arrival> receive(int descriptor);

    /// Sends a datagram. Errors are ignored: a lost ACK makes the application repeat its command.
    void send(endpoint const& destination, std::span<std::byte const> datagram);

    /// Listens on another address of the same interface. Descriptors stay the same.
    /// \return whether the address is on the same interface and its port is free
    bool move(ipv4_address to);

    /// Drops all datagrams that have arrived; called when power returns.
    void discard();

private:
    /// More than the 548 bytes of the largest GVCP datagram. A longer datagram is truncated and then rejected by its
    /// length field.
    static constexpr std::size_t receive_size = 2048;

    unsigned interface_index_;
    ipv4_address address_;
    file_descriptor unicast_;
    std::vector<file_descriptor> broadcast_;
    std::array<std::byte, receive_size> buffer_{};
};

}  // namespace camsim
