// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Memory for the messages of one system call, which lets the kernel place pixels directly into the frame.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include <netinet/in.h>
#include <sys/socket.h>

#include "gvsp/gvsp_assembler.hpp"

namespace openpv {

/// Receives messages of one or several packets, and passes the packets to an assembler.
///
/// The next packets of a stream can nearly always be predicted. Their headers are received into a slot of this batch
/// and their data into the block's buffer. If other packets arrive than predicted, the data is copied back to the slots
/// before any packet is passed on: nothing is lost, and the places that were overwritten belong to packets that had not
/// arrived.
///
/// Use: `prepare`, `recvmmsg` into the returned headers, `set_received` for each message, `deliver`. Allocates only on
/// construction. Not thread-safe.
class packet_batch {
public:
    static constexpr std::size_t max_messages = 64;
    static constexpr std::size_t message_bytes = 65536;  ///< largest IP packet, and largest message of `UDP_GRO`

    packet_batch();

    /// Prepares for up to `messages` messages.
    /// \param messages 1: the message may consist of several packets of `run`. More: each is one packet of it
    /// \param run the packets expected next; used until `deliver` returns
    std::span<mmsghdr> prepare(std::size_t messages, expected_run const& run);

    sockaddr_in const& sender(std::size_t message) const { return senders_[message]; }
    /// \param bytes length of the message; 0 drops it
    /// \param packet_bytes length of each of its packets; the last one may be shorter
    void set_received(std::size_t message, std::size_t bytes, std::size_t packet_bytes) {
        messages_[message].bytes = bytes;
        messages_[message].packet_bytes = packet_bytes;
    }
    /// Passes the packets of the first `count` messages to the assembler that predicted the run.
    void deliver(std::size_t count, gvsp_assembler& assembler, gvsp_assembler::time_point now);

private:
    /// Slots do not start at multiples of a power of two: single packets would then compete for the same cache sets.
    static constexpr std::size_t slot_bytes = message_bytes + 1600;
    /// Packets per message whose data goes to the frame: 64 kB of packets of 512 bytes.
    static constexpr std::size_t max_placed = 128;

    struct message {
        std::size_t bytes = 0;
        std::size_t packet_bytes = 1;
        std::size_t first = 0;   ///< index in the run of its first packet
        std::size_t placed = 0;  ///< packets of the run that it was prepared for
    };

    std::byte* slot(std::size_t index) const { return memory_.get() + index * slot_bytes; }
    std::size_t count_expected(message const& received, std::byte const* headers) const;
    void copy_back(std::size_t index, std::size_t from);

    expected_run run_;
    std::size_t run_packet_bytes_ = 0;     ///< header and data
    std::unique_ptr<std::byte[]> memory_;  ///< a slot per message; the kernel commits only the pages that packets reach
    std::array<message, max_messages> messages_{};
    std::array<mmsghdr, max_messages> headers_{};
    std::array<iovec, std::max(3 * max_messages, 2 * max_placed + 1)> pieces_{};
    std::array<sockaddr_in, max_messages> senders_{};
    /// Packet size of a merged message, and drop count.
    struct alignas(cmsghdr) control {
        std::array<std::byte, CMSG_SPACE(sizeof(int)) + CMSG_SPACE(sizeof(std::uint32_t))> bytes;
    };
    std::array<control, max_messages> controls_{};
};

}  // namespace openpv
