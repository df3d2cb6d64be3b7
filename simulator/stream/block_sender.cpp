// SPDX-License-Identifier: MIT
#include "stream/block_sender.hpp"

#include <algorithm>
#include <array>

namespace camsim {

namespace {

/// A run has no more packets than are due in this time, so that a slow stream does not arrive in bursts of 64 kB.
constexpr std::chrono::duration<double> max_run_time = std::chrono::milliseconds(1);

std::uint32_t packets_per_run(std::uint32_t maximum, std::chrono::duration<double> packet_interval) {
    if (packet_interval.count() <= 0.0) {
        return maximum;
    }
    return static_cast<std::uint32_t>(std::clamp(max_run_time / packet_interval, 1.0, static_cast<double>(maximum)));
}

}  // namespace

block_sender::block_sender(scene_settings const& scene, packet_outlet& outlet, sent_blocks& sent)
    : packets_(scene), outlet_(outlet), sent_(sent) {}

block_sender::result block_sender::send(stream_block const& block, endpoint const& destination,
                                        std::chrono::duration<double> packet_interval, waiter const& wait_until) {
    packets_.begin(block);
    sent_.begin(block);
    block_layout const layout = block.layout();
    time_point const start = std::chrono::steady_clock::now();
    auto const due = [&](std::uint32_t packet_id) {
        return start + std::chrono::duration_cast<time_point::duration>(packet_interval * packet_id);
    };

    // Packets count as sent before they are: the receiver may request a resend before send_run() returns.
    result outcome;
    sent_.advance(1);
    send_run(packets_.leader(), block, destination, outcome);
    std::uint32_t const per_run = packets_per_run(packets_.max_packets_per_run(), packet_interval);
    for (std::uint32_t packet = 1; packet < layout.trailer_id();) {
        if (!wait_until(due(packet))) {
            outcome.finished = false;
            return outcome;
        }
        std::uint32_t const count = std::min(per_run, layout.trailer_id() - packet);
        sent_.advance(packet + count);
        send_run(packets_.payload(packet, count), block, destination, outcome);
        packet += count;
    }
    outcome.finished = wait_until(due(layout.trailer_id()));
    if (outcome.finished) {
        sent_.advance(layout.packet_count());
        send_run(packets_.trailer(), block, destination, outcome);
    }
    return outcome;
}

void block_sender::send_run(packet_run const& run, stream_block const& block, endpoint const& destination,
                            result& so_far) {
    std::size_t const sent = outlet_.send(destination, run, block);
    so_far.unsent_packets += static_cast<std::uint32_t>(run.packet_count() - sent);
}

block_resender::block_resender(scene_settings const& scene, packet_outlet& outlet, sent_blocks const& sent)
    : packets_(scene), outlet_(outlet), sent_(sent) {}

void block_resender::resend(gvcp::packet_resend const& request, gvsp::id_mode ids, bool extended_status,
                            endpoint const& destination) {
    auto const known = sent_.find(request.block_id, ids);
    auto const or_generic = [=](gvcp::status detailed) {
        return extended_status ? detailed : gvcp::status::packet_unavailable;
    };
    if (!known) {
        auto const reason = or_generic(gvcp::status::packet_removed_from_memory);
        return send_unavailable(reason, request.block_id, request.first_packet, ids, destination);
    }
    if (request.first_packet >= known->packets_sent) {
        bool const exists = request.first_packet < known->block.layout().packet_count();
        auto const reason =
            exists ? or_generic(gvcp::status::packet_not_yet_available) : gvcp::status::packet_unavailable;
        return send_unavailable(reason, request.block_id, request.first_packet, ids, destination);
    }
    block_ = known->block;
    packets_.begin(block_);
    resend_range(request.first_packet, std::min(request.last_packet, known->packets_sent - 1), destination);
}

void block_resender::resend_range(std::uint32_t first, std::uint32_t last, endpoint const& destination) {
    block_layout const layout = block_.layout();
    std::uint32_t const last_payload = std::min(last, layout.trailer_id() - 1);
    if (first == 0) {
        outlet_.send(destination, packets_.leader(true), block_);
    }
    for (std::uint32_t packet = std::max(first, 1U); packet <= last_payload;) {
        std::uint32_t const count = std::min(packets_.max_packets_per_run(), last_payload - packet + 1);
        outlet_.send(destination, packets_.payload(packet, count, true), block_);
        packet += count;
    }
    if (last >= layout.trailer_id()) {
        outlet_.send(destination, packets_.trailer(true), block_);
    }
}

void block_resender::send_unavailable(gvcp::status reason, std::uint64_t block_id, std::uint32_t packet_id,
                                      gvsp::id_mode ids, endpoint const& destination) {
    std::array<std::byte, gvsp::extended_header_size> packet{};
    std::size_t const bytes = gvsp::encode_header(
        {static_cast<std::uint16_t>(reason), 0, block_id, gvsp::packet_format::payload, packet_id, ids}, packet);
    iovec piece{packet.data(), bytes};
    outlet_.socket().send(destination, {std::span(&piece, 1), 1, bytes});
}

}  // namespace camsim
