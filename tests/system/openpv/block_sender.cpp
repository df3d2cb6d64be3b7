// SPDX-License-Identifier: MIT
#include "block_sender.hpp"

#include <algorithm>
#include <span>

#include <gtest/gtest.h>

namespace {

constexpr uint32_t loopback = 0x7F000001;
constexpr uint32_t headers = 20 + 8 + 8;  ///< IP, UDP, GVSP

void put(std::vector<uint8_t>& bytes, uint64_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
}

}  // namespace

block_sender::block_sender(uint16_t to_port, uint32_t packet_bytes)
    : socket_(openpv::udp_socket::bind({{loopback}, 0}).value()),
      receiver_{{loopback}, to_port},
      data_bytes_(packet_bytes - headers) {}

void block_sender::send(block_leader const& leader, std::vector<uint8_t> const& payload) {
    ++block_;
    std::vector<uint8_t> content;
    put(content, 0, 2);
    put(content, leader.payload_type, 2);
    put(content, leader.timestamp, 8);
    put(content, leader.pixel_format, 4);
    put(content, leader.width, 4);
    put(content, leader.height, 4);
    content.resize(content.size() + 4 + 4 + 2 + 2);  // offsets and paddings: 0
    send_packet(packet_kind::leader, 0, content);
    uint32_t number = 0;
    for (std::size_t sent = 0; sent < payload.size(); sent += data_bytes_) {
        auto const part = std::span(payload).subspan(sent, std::min(data_bytes_, payload.size() - sent));
        send_packet(packet_kind::data, ++number, {part.begin(), part.end()});
    }
    content.clear();
    put(content, 0, 2);
    put(content, leader.payload_type, 2);
    put(content, leader.height, 4);
    send_packet(packet_kind::trailer, ++number, content);
}

void block_sender::send_packet(packet_kind kind, uint32_t number, std::vector<uint8_t> const& content) {
    std::vector<uint8_t> packet;
    put(packet, 0, 2);
    put(packet, block_, 2);
    put(packet, static_cast<uint64_t>(kind), 1);
    put(packet, number, 3);
    packet.insert(packet.end(), content.begin(), content.end());
    send_raw(packet);
}

void block_sender::send_raw(std::vector<uint8_t> const& datagram) {
    EXPECT_TRUE(socket_.send_to(receiver_, std::as_bytes(std::span(datagram))));
}

void append_chunk(std::vector<uint8_t>& payload, uint32_t id, std::vector<uint8_t> const& data) {
    payload.insert(payload.end(), data.begin(), data.end());
    put(payload, id, 4);
    put(payload, data.size(), 4);
}
