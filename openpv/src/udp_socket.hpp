#pragma once
/// \file
/// A UDP socket on one of the host's addresses.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "ipv4_address.hpp"

namespace openpv {

struct udp_endpoint {
    ipv4_address address;
    uint16_t port = 0;  ///< 0 binds to a free port
};

/// Owns the file descriptor. An operation that fails leaves the reason in `errno`.
class udp_socket {
public:
    /// \return null when there is no socket to be had on that address
    static std::optional<udp_socket> bind(udp_endpoint local);

    udp_socket(udp_socket&& other) noexcept;
    udp_socket& operator=(udp_socket&& other) noexcept;
    udp_socket(udp_socket const&) = delete;
    udp_socket& operator=(udp_socket const&) = delete;
    ~udp_socket();

    int descriptor() const { return descriptor_; }
    uint16_t local_port() const;
    bool allow_broadcast();
    bool connect(
        udp_endpoint remote);  ///< from now on only datagrams of `remote` come in, and its refusals are reported

    bool send(std::span<std::byte const> datagram);  ///< to the connected endpoint
    bool send_to(udp_endpoint remote, std::span<std::byte const> datagram);

    struct datagram {
        std::size_t bytes = 0;  ///< true length, which may exceed the memory given
        udp_endpoint sender;
    };
    /// One datagram, without waiting.
    std::optional<datagram> receive(std::span<std::byte> memory);
    /// \return false when nothing came in time
    bool wait_readable(std::chrono::milliseconds timeout) const;

private:
    explicit udp_socket(int descriptor) : descriptor_(descriptor) {}
    int descriptor_ = -1;
};

}  // namespace openpv
