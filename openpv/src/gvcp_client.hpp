#pragma once
/// \file
/// Reads bootstrap registers of a camera without control, with time-outs of our own choosing.

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include "ipv4_address.hpp"
#include "udp_socket.hpp"

namespace openpv {

enum class register_read {
    answered,
    refused,      ///< the camera answered that it will not tell
    silent,       ///< no answer in time
    unreachable,  ///< the camera's address said that nobody takes requests there
};

class gvcp_client {
public:
    /// \return null when the host has no socket to give on `host`, or no way to `camera`
    static std::optional<gvcp_client> open(ipv4_address host, ipv4_address camera);

    /// One request, sent once.
    /// \param value set when answered
    register_read read(uint32_t address, std::chrono::milliseconds timeout, uint32_t& value);

private:
    explicit gvcp_client(udp_socket socket) : socket_(std::move(socket)) {}
    udp_socket socket_;
    uint16_t request_ = 0;
};

}  // namespace openpv
