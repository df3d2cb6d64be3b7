// SPDX-License-Identifier: MIT
#include "stream/stream_faults.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "base/byte_order.hpp"
#include "protocol/gvcp_packet.hpp"

namespace camsim {

namespace {

// Draws for a block and for positions in it use other numbers than draws for its packets. Packet IDs have up to 32
// bits.
constexpr std::uint64_t block_draw = std::uint64_t{1} << 40U;
constexpr std::uint64_t position_draw = std::uint64_t{1} << 41U;
constexpr std::uint64_t resend_draw = std::uint64_t{1} << 42U;

// Offsets in an image leader (GigE Vision).
constexpr std::size_t leader_format_at = 12;
constexpr std::size_t leader_width_at = 16;
constexpr std::size_t leader_height_at = 20;

void scale(std::span<std::byte> content, std::size_t offset, double factor) {
    double const scaled = std::floor(load_be32(content, offset) * factor);
    store_be32(content, offset, static_cast<std::uint32_t>(std::clamp(scaled, 0.0, 4294967295.0)));
}

void scale_leader(std::span<std::byte> content, double factor) {
    scale(content, leader_width_at, factor);
    scale(content, leader_height_at, factor);
}

/// \param which the fault's parameter `length`
std::uint32_t wrong_chunk_length(std::string const& which, stream_block const& block) {
    if (which == "zero") {
        return 0;
    }
    auto const last = std::ranges::find_if(chunk_kinds.rbegin(), chunk_kinds.rend(), [&](chunk_kind const& kind) {
        return block.chunks.test(static_cast<std::size_t>(kind.which));
    });
    return which == "odd" ? last->bytes + 1 : static_cast<std::uint32_t>(block.payload_bytes());
}

/// Overwrites the length in the trailer of the last chunk, which is at the end of the payload, as far as this packet
/// carries it.
/// \return whether the packet carries any of it
bool overwrite_chunk_length(std::span<std::byte> content, std::uint32_t packet_id, stream_block const& block,
                            std::string const& which) {
    block_layout::byte_range const range = block.layout().bytes_of(packet_id);
    std::array<std::byte, 4> length{};
    store_be32(length, 0, wrong_chunk_length(which, block));
    std::size_t const begin = block.payload_bytes() - length.size();
    bool any = false;
    for (std::size_t index = 0; index < length.size(); ++index) {
        std::size_t const at = begin + index;
        if (at >= range.begin && at < range.end) {
            content[at - range.begin] = length[index];
            any = true;
        }
    }
    return any;
}

bool is_resent(gvsp::packet_header const& header) {
    return header.status == static_cast<std::uint16_t>(gvcp::status::packet_resend) ||
           (header.flags & gvsp::flag_resent) != 0;
}

}  // namespace

bool stream_faults::drops_block(std::uint64_t block_id) {
    if (!faults_.any_stream_fault()) {
        return false;
    }
    std::lock_guard const lock(mutex_);
    bool dropped = false;
    faults_.for_each([&](active_fault& one) {
        if (one.what.kind == fault_kind::block_drop && selects_block(one, block_id)) {
            dropped = true;
            ++one.hits;
            ++hits_[std::string(definition_of(one.what.kind).name)];
        }
    });
    return dropped;
}

std::vector<stream_faults::datagram> stream_faults::filter(packet_run const& run, stream_block const& block) {
    std::lock_guard const lock(mutex_);
    std::vector<datagram> out;
    for (std::size_t index = 0; index < run.packet_count(); ++index) {
        packet one = read(run, index);
        resent_packets_ += one.resent ? 1U : 0U;
        faults_.for_each([&](active_fault& fault) { apply_fault(fault, one, block); });
        emit(one, out);
    }
    return out;
}

fault_hits stream_faults::take_hits() {
    std::lock_guard const lock(mutex_);
    return std::exchange(hits_, {});
}

stream_faults::packet stream_faults::read(packet_run const& run, std::size_t index) {
    packet one;
    for (iovec const& piece : run.pieces.subspan(index * run.pieces_per_packet, run.pieces_per_packet)) {
        auto const* const bytes = static_cast<std::byte const*>(piece.iov_base);
        one.bytes.insert(one.bytes.end(), bytes, bytes + piece.iov_len);
    }
    one.header = gvsp::decode_header(one.bytes).value();
    one.header_bytes = gvsp::header_size_of(one.header.ids);
    one.resent = is_resent(one.header);
    return one;
}

/// Applies a fault to a packet if it is one of the stream and the packet is not lost already, and counts it.
void stream_faults::apply_fault(active_fault& one, packet& target, stream_block const& block) {
    fault_definition const& definition = definition_of(one.what.kind);
    if (definition.domain == fault_domain::stream && !target.lost && apply(one, target, block)) {
        ++one.hits;
        if (!target.resent) {
            ++hits_[std::string(definition.name)];
        }
    }
}

/// \param one a fault of the stream domain
/// \return whether it was applied
bool stream_faults::apply(active_fault const& one, packet& target, stream_block const& block) {
    bool const leader = target.is(gvsp::packet_format::leader);
    bool const trailer = target.is(gvsp::packet_format::trailer);
    bool const payload = !leader && !trailer;
    auto const lose = [&](bool selected) {
        target.lost = selected;
        return selected;
    };
    auto const lose_end_packet = [&](bool affected) {
        return lose(affected && (!target.resent || one.what.flag("including_resends")) &&
                    selects_block(one, target.header.block_id));
    };
    auto const selects_first_time = [&] { return !target.resent && selects_packet(one, target); };
    bool const describes_image = leader && block.payload != gvsp::payload_type::chunk_data;
    auto const selects_leader = [&] { return describes_image && selects_block(one, target.header.block_id); };
    auto const change_if = [](bool selected, auto change) {
        if (selected) {
            change();
        }
        return selected;
    };
    switch (one.what.kind) {
        case fault_kind::packet_loss:
            return lose(selects_packet(one, target));
        case fault_kind::loss_burst:
            return lose(in_burst(one, target, block));
        case fault_kind::packet_reordering:
            return change_if(selects_first_time(),
                             [&] { target.distance = static_cast<std::uint64_t>(one.what.number("distance")); });
        case fault_kind::packet_duplication:
            return change_if(selects_first_time(), [&] { ++target.copies; });
        case fault_kind::header_corruption:
            return change_if(selects_first_time(),
                             [&] { flip_bit(one, target, std::span(target.bytes).first(target.header_bytes)); });
        case fault_kind::payload_corruption:
            return change_if(payload && selects_first_time(), [&] { flip_bit(one, target, target.content()); });
        case fault_kind::leader_loss:
            return lose_end_packet(leader);
        case fault_kind::trailer_loss:
            return lose_end_packet(trailer);
        case fault_kind::leader_size:
            return change_if(selects_leader(), [&] { scale_leader(target.content(), one.what.number("factor")); });
        case fault_kind::leader_format:
            return change_if(selects_leader(), [&] {
                store_be32(target.content(), leader_format_at,
                           static_cast<std::uint32_t>(one.what.number("pixel_format_code")));
            });
        case fault_kind::chunk_length:
            return payload && block.chunks.any() && selects_block(one, target.header.block_id) &&
                   overwrite_chunk_length(target.content(), target.header.packet_id, block, one.what.text("length"));
        case fault_kind::block_drop:
            return false;  // drops_block() has decided before the first packet
        case fault_kind::ack_delay:
        case fault_kind::ack_loss:
        case fault_kind::ack_duplication:
        case fault_kind::ack_error:
        case fault_kind::ack_wrong_id:
        case fault_kind::control_denied:
        case fault_kind::read_failure:
        case fault_kind::write_refusal:
        case fault_kind::freeze:
        case fault_kind::timestamp_jump:
        case fault_kind::timestamp_wrap:
        case fault_kind::overheating:
        case fault_kind::power_cycle:
            break;  // other domains; not passed to this function
    }
    throw std::logic_error("fault " + std::string(definition_of(one.what.kind).name) + " does not apply to packets");
}

double stream_faults::draw_for(active_fault const& one, packet const& target) {
    return target.resent ? faults_.draw(one, resend_draw, resent_packets_)
                         : faults_.draw(one, target.header.block_id, target.header.packet_id);
}

bool stream_faults::selects_packet(active_fault const& one, packet const& target) {
    return draw_for(one, target) < one.what.number("probability");
}

bool stream_faults::selects_block(active_fault const& one, std::uint64_t block_id) const {
    return faults_.draw(one, block_id, block_draw) < one.what.number("probability");
}

/// Whether a packet is part of the burst of its block, which starts at a random packet.
bool stream_faults::in_burst(active_fault const& one, packet const& target, stream_block const& block) const {
    if (target.resent || !selects_block(one, target.header.block_id)) {
        return false;
    }
    double const position = faults_.draw(one, target.header.block_id, position_draw);
    auto const begin = static_cast<std::uint32_t>(position * block.layout().packet_count());
    return target.header.packet_id >= begin && target.header.packet_id - begin < one.what.number("packets");
}

void stream_faults::flip_bit(active_fault const& one, packet const& target, std::span<std::byte> bytes) const {
    double const position = faults_.draw(one, target.header.block_id, position_draw | target.header.packet_id);
    auto const bit = static_cast<std::size_t>(position * static_cast<double>(bytes.size() * 8));
    bytes[bit / 8] ^= std::byte{1} << static_cast<int>(bit % 8);
}

/// Emits a packet unless it is lost or held, then the held packets whose distance is reached. The end of a block
/// releases all of them.
void stream_faults::emit(packet& one, std::vector<datagram>& out) {
    bool const ends_block = !one.resent && one.is(gvsp::packet_format::trailer);
    if (!one.lost && one.distance != 0 && !ends_block) {
        held_.push_back({std::move(one.bytes), one.distance + 1});  // the loop below counts this packet too
    } else if (!one.lost) {
        out.insert(out.end(), one.copies, one.bytes);
    }
    if (!one.resent) {
        for (held_packet& held : held_) {
            held.remaining -= 1;
        }
    }
    for (auto held = held_.begin(); held != held_.end();) {
        if (held->remaining == 0 || ends_block) {
            out.push_back(std::move(held->bytes));
            held = held_.erase(held);
        } else {
            ++held;
        }
    }
    holding_ = !held_.empty();
}

}  // namespace camsim
