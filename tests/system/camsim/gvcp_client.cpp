// SPDX-License-Identifier: MIT
#include "gvcp_client.hpp"

#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "base/byte_order.hpp"

namespace gvcp = camsim::gvcp;

gvcp_client::gvcp_client(camsim::ipv4_address camera) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in const address = camsim::to_sockaddr({camera, gvcp::port});
    timeval const timeout{.tv_sec = 0, .tv_usec = 500'000};
    sockaddr_in own{};
    socklen_t length = sizeof(own);
    if (!socket_ || ::connect(socket_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof(address)) != 0 ||
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0 ||
        ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own), &length) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot open a control channel");
    }
    own_address_ = camsim::from_sockaddr(own).address;
}

/// Sends a command and waits for its acknowledge.
/// \throws std::runtime_error if the camera returns an error or no ACK
void gvcp_client::transact(gvcp::command command, std::span<std::byte const> payload, std::string const& what) {
    std::uint16_t const id = next_request_id_;
    next_request_id_ = static_cast<std::uint16_t>(id == UINT16_MAX ? 1 : id + 1);
    auto const number = static_cast<std::uint16_t>(command);
    std::vector<std::byte> const datagram =
        gvcp::encode_command({gvcp::flag_acknowledge_required, number, 0, id}, payload);
    for (int attempt = 0; attempt < 3; ++attempt) {
        ::send(socket_.get(), datagram.data(), datagram.size(), 0);
        std::array<std::byte, gvcp::max_datagram_size> ack;
        ssize_t const length = ::recv(socket_.get(), ack.data(), ack.size(), 0);
        auto const bytes = std::span(ack).first(length > 0 ? static_cast<std::size_t>(length) : 0);
        auto const header = gvcp::decode_acknowledge_header(bytes);
        if (!header || header->acknowledge_id != id) {
            continue;
        }
        if (header->status != gvcp::status::success) {
            throw std::runtime_error(what + " failed, status " + std::to_string(static_cast<unsigned>(header->status)));
        }
        return;
    }
    throw std::runtime_error(what + ": no ACK from the camera");
}

void gvcp_client::write_register(std::uint32_t address, std::uint32_t value) {
    gvcp::register_write const write{address, value};
    transact(gvcp::command::writereg, gvcp::encode_writereg_payload(std::span(&write, 1)),
             "writing register " + std::to_string(address));
}

void gvcp_client::write_memory(std::uint32_t address, std::span<std::byte const> data) {
    // WRITEMEM_CMD has the format of READMEM_ACK: address and data.
    transact(gvcp::command::writemem, gvcp::encode_readmem_payload(address, data),
             "writing memory " + std::to_string(address));
}
