// SPDX-License-Identifier: MIT
#include "gvsp/packet_batch.hpp"

#include <algorithm>
#include <cstring>

#include "gvsp/gvsp_packet.hpp"

namespace openpv {

packet_batch::packet_batch() : memory_(std::make_unique_for_overwrite<std::byte[]>(slot_bytes * max_messages)) {}

/// Each slot gets the whole message in order, less the data that goes to the frame. So a message is complete in its
/// slot once that data is copied back, wherever its packets begin and end.
std::span<mmsghdr> packet_batch::prepare(std::size_t messages, expected_run const& run) {
    run_ = run;
    run_packet_bytes_ = run.header_bytes + run.data_bytes;
    std::size_t const per_message =
        messages > 1 ? 1 : std::min(max_placed, run.packets == 0 ? 0 : message_bytes / run_packet_bytes_);
    std::size_t next = 0;
    iovec* piece = pieces_.data();
    for (std::size_t i = 0; i < messages; ++i) {
        std::size_t const placed = std::min(per_message, run.packets - next);
        messages_[i] = {0, 1, next, placed};
        msghdr& header = headers_[i].msg_hdr;
        header.msg_iov = piece;
        for (std::size_t packet = 0; packet < placed; ++packet) {
            *piece++ = {slot(i) + packet * run_packet_bytes_, run.header_bytes};
            *piece++ = {run.memory + (next + packet) * run.data_bytes, run.data_bytes};
        }
        std::size_t const end = placed * run_packet_bytes_;
        *piece++ = {slot(i) + end, message_bytes - end};
        header.msg_iovlen = 2 * placed + 1;
        header.msg_name = &senders_[i];
        header.msg_namelen = sizeof senders_[i];
        header.msg_control = controls_[i].bytes.data();
        header.msg_controllen = controls_[i].bytes.size();
        next += placed;
    }
    return std::span(headers_).first(messages);
}

/// \return number of packets at the start of the message that are the predicted ones, whole and in order
std::size_t packet_batch::count_expected(message const& received, std::byte const* headers) const {
    if (received.packet_bytes != run_packet_bytes_) {
        return 0;
    }
    std::size_t const whole = std::min(received.placed, received.bytes / run_packet_bytes_);
    std::size_t packet = 0;
    while (packet < whole) {
        auto const header = gvsp::parse({headers + packet * run_packet_bytes_, run_.header_bytes});
        if (!header || header->kind != gvsp::packet_kind::payload || header->extended != run_.extended ||
            header->status != gvsp::packet_status::present || header->block != run_.block ||
            header->number != run_.first + received.first + packet) {
            break;
        }
        ++packet;
    }
    return packet;
}

/// Completes a message in its slot, from the placed packet `from` on.
void packet_batch::copy_back(std::size_t index, std::size_t from) {
    message const& received = messages_[index];
    for (std::size_t packet = from; packet < received.placed; ++packet) {
        std::size_t const at = packet * run_packet_bytes_ + run_.header_bytes;
        if (at >= received.bytes) {
            return;
        }
        std::memcpy(slot(index) + at, run_.memory + (received.first + packet) * run_.data_bytes,
                    std::min(run_.data_bytes, received.bytes - at));
    }
}

void packet_batch::deliver(std::size_t count, gvsp_assembler& assembler, gvsp_assembler::time_point now) {
    std::size_t expected = 0;  // packets of the run that are in place
    std::size_t first = 0;     // message with the first other packet
    std::size_t skip = 0;      // its packets that are in place
    while (first < count) {
        message const& received = messages_[first];
        skip = count_expected(received, slot(first));
        expected += skip;
        if (skip == 0 || skip * run_packet_bytes_ < received.bytes) {
            break;
        }
        ++first;
        skip = 0;
    }
    // Before the first packet is stored, because its place may hold the data of another one.
    for (std::size_t i = first; i < count; ++i) {
        copy_back(i, i == first ? skip : 0);
    }
    assembler.add_received(run_, expected, now);
    for (std::size_t i = first; i < count; ++i) {
        message const& received = messages_[i];
        for (std::size_t at = i == first ? skip * run_packet_bytes_ : 0; at < received.bytes;
             at += received.packet_bytes) {
            assembler.add({slot(i) + at, std::min(received.packet_bytes, received.bytes - at)}, now);
        }
    }
}

}  // namespace openpv
