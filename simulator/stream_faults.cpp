#include "stream_faults.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "byte_order.hpp"
#include "gvcp_packet.hpp"

namespace camsim {

namespace {

// Lots about a block, and about places in it, are drawn beside those about its packets.
constexpr std::uint64_t about_block = std::uint64_t{1} << 40U;
constexpr std::uint64_t about_place = std::uint64_t{1} << 41U;
constexpr std::uint64_t about_resent = std::uint64_t{1} << 42U;

// Offsets in an image leader.
constexpr std::size_t leader_format_at = 12;
constexpr std::size_t leader_width_at = 16;
constexpr std::size_t leader_height_at = 20;

void scale(std::span<std::byte> content, std::size_t offset, double factor) {
    double const told = std::floor(load_be32(content, offset) * factor);
    store_be32(content, offset, static_cast<std::uint32_t>(std::clamp(told, 0.0, 4294967295.0)));
}

void rescale_leader(std::span<std::byte> content, double factor) {
    scale(content, leader_width_at, factor);
    scale(content, leader_height_at, factor);
}

/// The length that the trailer of the last chunk tells; it stands at the very end of the payload.
std::uint32_t lying_length(std::string const& how, stream_block const& block) {
    if (how == "zero") {
        return 0;
    }
    auto const last = std::ranges::find_if(chunk_kinds.rbegin(), chunk_kinds.rend(), [&](chunk_kind const& kind) {
        return block.chunks.test(static_cast<std::size_t>(kind.which));
    });
    return how == "odd" ? last->bytes + 1 : static_cast<std::uint32_t>(block.payload_bytes());
}

/// Writes the lie as far as this packet carries the place.
/// \return whether it does
bool lie_about_chunk(std::span<std::byte> content, std::uint32_t packet_id, stream_block const& block,
                     std::string const& how) {
    block_layout::byte_range const range = block.layout().bytes_of(packet_id);
    std::array<std::byte, 4> length{};
    store_be32(length, 0, lying_length(how, block));
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

/// A block that is skipped is not sent at all.
bool stream_faults::skips(std::uint64_t block_id) {
    if (!faults_.strike_packets()) {
        return false;
    }
    std::scoped_lock const lock(mutex_);
    bool skipped = false;
    faults_.for_each([&](active_fault& one) {
        if (one.what.kind == fault_kind::block_skip && strikes_block(one, block_id)) {
            skipped = true;
            ++one.hits;
            ++hits_[std::string(table_entry(one.what.kind).name)];
        }
    });
    return skipped;
}

/// \param block that the packets belong to
/// \return what leaves instead of them, in that order
std::vector<stream_faults::datagram> stream_faults::filter(packet_run const& run, stream_block const& block) {
    std::scoped_lock const lock(mutex_);
    std::vector<datagram> out;
    for (std::size_t index = 0; index < run.packet_count(); ++index) {
        packet one = read(run, index);
        resent_packets_ += one.resent ? 1U : 0U;
        faults_.for_each([&](active_fault& fault) { strike(fault, one, block); });
        pass(one, out);
    }
    return out;
}

/// What struck the packets of a block that was sent for the first time, since the last call.
fault_hits stream_faults::take_hits() {
    std::scoped_lock const lock(mutex_);
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

void stream_faults::strike(active_fault& one, packet& target, stream_block const& block) {
    if (!target.lost && apply(one, target, block)) {
        ++one.hits;
        if (!target.resent) {
            ++hits_[std::string(table_entry(one.what.kind).name)];
        }
    }
}

/// \return whether it struck
bool stream_faults::apply(active_fault const& one, packet& target, stream_block const& block) {
    bool const leader = target.header.format == gvsp::packet_format::leader;
    bool const trailer = target.header.format == gvsp::packet_format::trailer;
    auto const lose = [&](bool struck) {
        target.lost = struck;
        return struck;
    };
    auto const ends = [&](bool concerned) {
        return lose(concerned && (!target.resent || one.what.yes("again")) &&
                    strikes_block(one, target.header.block_id));
    };
    auto const strikes_first_time = [&] { return !target.resent && strikes_packet(one, target); };
    switch (one.what.kind) {
        case fault_kind::packet_loss:
            return lose(strikes_packet(one, target));
        case fault_kind::loss_burst:
            return lose_burst(one, target, block);
        case fault_kind::packet_reordering:
            if (!strikes_first_time()) {
                return false;
            }
            target.held_for = static_cast<std::uint64_t>(one.what.number("by"));
            return true;
        case fault_kind::packet_duplication:
            if (!strikes_first_time()) {
                return false;
            }
            ++target.copies;
            return true;
        case fault_kind::header_corruption:
            if (!strikes_first_time()) {
                return false;
            }
            flip_bit(one, target, std::span(target.bytes).first(target.header_bytes));
            return true;
        case fault_kind::payload_corruption:
            if (leader || trailer || !strikes_first_time()) {
                return false;
            }
            flip_bit(one, target, target.content());
            return true;
        case fault_kind::leader_loss:
            return ends(leader);
        case fault_kind::trailer_loss:
            return ends(trailer);
        case fault_kind::leader_size:
            if (leader && strikes_block(one, target.header.block_id)) {
                rescale_leader(target.content(), one.what.number("factor"));
                return true;
            }
            return false;
        case fault_kind::leader_format:
            if (leader && strikes_block(one, target.header.block_id)) {
                store_be32(target.content(), leader_format_at, static_cast<std::uint32_t>(one.what.number("code")));
                return true;
            }
            return false;
        case fault_kind::chunk_length:
            return !leader && !trailer && block.chunks.any() && strikes_block(one, target.header.block_id) &&
                   lie_about_chunk(target.content(), target.header.packet_id, block, one.what.word("length"));
        default:
            return false;  // no fault of packets
    }
}

double stream_faults::lot_for(active_fault const& one, packet const& target) {
    return target.resent ? faults_.lot(one, about_resent, resent_packets_)
                         : faults_.lot(one, target.header.block_id, target.header.packet_id);
}

bool stream_faults::strikes_packet(active_fault const& one, packet const& target) {
    return lot_for(one, target) < one.what.number("share");
}

bool stream_faults::strikes_block(active_fault const& one, std::uint64_t block_id) const {
    return faults_.lot(one, block_id, about_block) < one.what.number("share");
}

bool stream_faults::lose_burst(active_fault const& one, packet& target, stream_block const& block) const {
    if (target.resent || !strikes_block(one, target.header.block_id)) {
        return false;
    }
    double const place = faults_.lot(one, target.header.block_id, about_place);
    auto const begin = static_cast<std::uint32_t>(place * block.layout().packet_count());
    target.lost = target.header.packet_id >= begin && target.header.packet_id - begin < one.what.number("packets");
    return target.lost;
}

void stream_faults::flip_bit(active_fault const& one, packet const& target, std::span<std::byte> bytes) const {
    double const place = faults_.lot(one, target.header.block_id, about_place | target.header.packet_id);
    auto const bit = static_cast<std::size_t>(place * static_cast<double>(bytes.size() * 8));
    bytes[bit / 8] ^= std::byte{1} << static_cast<int>(bit % 8);
}

/// Lets a packet leave, and those held back that it was the last to overtake. None is held back beyond its block.
void stream_faults::pass(packet& one, std::vector<datagram>& out) {
    bool const ends_block = !one.resent && one.header.format == gvsp::packet_format::trailer;
    if (!one.lost && one.held_for != 0 && !ends_block) {
        held_.push_back({std::move(one.bytes), one.held_for + 1});  // it counts itself
    } else if (!one.lost) {
        out.insert(out.end(), one.copies, one.bytes);
    }
    if (!one.resent) {
        for (held_packet& held : held_) {
            held.left -= 1;
        }
    }
    for (auto held = held_.begin(); held != held_.end();) {
        if (held->left == 0 || ends_block) {
            out.push_back(std::move(held->bytes));
            held = held_.erase(held);
        } else {
            ++held;
        }
    }
    holds_back_ = !held_.empty();
}

}  // namespace camsim
