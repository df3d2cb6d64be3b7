// SPDX-License-Identifier: MIT
#include "gvsp/gvsp_assembler.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include "gvsp/PvBuffer_impl.hpp"

namespace openpv {
namespace {

using std::chrono::milliseconds;

// Most of these times balance two costs: a short one requests packets that are merely late, a long one delays frames.

/// Packets of a block may overtake each other by this much; a gap is not requested earlier.
constexpr milliseconds reordering_time{2};
/// After a pause this long within a block, the remaining packets are taken to be lost, not to be sent later.
constexpr milliseconds silence_time{20};
/// Between rounds of requests while the camera sends the block. Once it has sent the block, round N is followed by N
/// times this interval, so that a busy network recovers.
constexpr milliseconds request_interval{5};
/// Rounds for one block after the camera has sent it: 80 ms in total.
constexpr unsigned max_requests = 5;
/// Closes a block if none of its packets arrives for this long. Longer than all rounds of requests.
constexpr milliseconds block_timeout{250};
/// Requests per round. Bounds the traffic to the camera if every other packet is missing.
constexpr std::uint32_t max_ranges = 64;
/// A block is abandoned if more than a quarter of its packets are missing, and more than 16: resending so much would
/// delay the blocks after it.
constexpr std::uint32_t missing_divisor = 4;
constexpr std::uint32_t min_missing = 16;
/// The largest packet number with 24-bit packet IDs. Also bounds the memory for a camera that reports an implausibly
/// small packet size.
constexpr std::size_t max_packets_per_block = gvsp::max_short_packet;
/// Packets per block that memory is reserved for in advance: 32 kB per open block. Larger blocks allocate on arrival.
constexpr std::size_t max_packets_reserved = 1U << 17U;

std::uint32_t saturate(std::size_t value) {
    return static_cast<std::uint32_t>(std::min<std::size_t>(value, std::numeric_limits<std::uint32_t>::max() / 2));
}

std::size_t packets_of(std::size_t bytes, std::size_t packet_bytes) {
    return bytes / packet_bytes + (bytes % packet_bytes != 0 ? 1 : 0);
}

/// \return block data in each payload packet except the last, in bytes; at least 1
std::size_t data_bytes_of(std::uint32_t packet_bytes, bool extended) {
    std::size_t const headers =
        gvsp::ip_and_udp_headers + (extended ? gvsp::extended_header_bytes : gvsp::header_bytes);
    return packet_bytes > headers ? packet_bytes - headers : 1;
}

/// Calls `visit(first, last)` with the packet numbers of each run of zero bits among the first `count` bits, until it
/// returns false.
template <class function>
void for_each_gap(std::vector<std::uint64_t> const& received, std::uint32_t count, function&& visit) {
    std::uint32_t at = 0;
    while (at < count) {
        std::uint64_t const missing = ~received[at / 64] >> at % 64;
        if (missing == 0) {
            at = (at / 64 + 1) * 64;
            continue;
        }
        std::uint32_t first = at + static_cast<std::uint32_t>(std::countr_zero(missing));
        if (first >= count) {
            return;
        }
        std::uint32_t end = first;
        while (end < count && (received[end / 64] >> end % 64 & 1) == 0) {
            bool const whole_word = end % 64 == 0 && received[end / 64] == 0;
            end += whole_word ? 64 : 1;
        }
        end = std::min(end, count);
        if (!visit(first + 1, end)) {
            return;
        }
        at = end;
    }
}

}  // namespace

assembler_counters& assembler_counters::operator-=(assembler_counters const& other) {
    blocks_complete -= other.blocks_complete;
    blocks_incomplete -= other.blocks_incomplete;
    blocks_too_large -= other.blocks_too_large;
    blocks_without_buffer -= other.blocks_without_buffer;
    blocks_missing -= other.blocks_missing;
    packets_lost -= other.packets_lost;
    packets_resend_requested -= other.packets_resend_requested;
    packets_resent -= other.packets_resent;
    packets_duplicate -= other.packets_duplicate;
    packets_late -= other.packets_late;
    packets_malformed -= other.packets_malformed;
    return *this;
}

gvsp_assembler::gvsp_assembler(settings const& chosen, assembler_callbacks& callbacks)
    : settings_(chosen), callbacks_(callbacks) {
    open_.reserve(max_open_blocks);
    free_.reserve(max_open_blocks);
    unused_buffers_.reserve(max_open_blocks);
    for (open_block& block : blocks_) {
        std::size_t const packets = packets_of(chosen.payload_bytes, data_bytes_of(chosen.packet_bytes, true));
        block.received.reserve(std::min(packets, max_packets_reserved) / 64 + 1);
        block.requested.reserve(block.received.capacity() + 1);
        free_.push_back(&block);
    }
}

void gvsp_assembler::add(std::span<std::byte const> datagram, time_point now) {
    auto const packet = gvsp::parse(datagram);
    if (!packet) {
        ++counters_.packets_malformed;
        return;
    }
    if (packet->block == 0) {
        return;  // a test packet
    }
    other_id_kind_seen_ = other_id_kind_seen_ && packet->extended != extended_;
    open_block* block = find(packet->block);
    if (block == nullptr && confirms_restart(*packet, 0)) {
        restart(now);
        block = find(packet->block);
    }
    if (block == nullptr && packet->status == gvsp::packet_status::present) {
        block = open(*packet, datagram, now);
    }
    if (block == nullptr) {
        return;
    }
    if (block->closed) {
        ++counters_.packets_late;
        return;
    }
    count_packet(*block);
    if (packet->status != gvsp::packet_status::present) {
        block->unrecoverable = block->unrecoverable || packet->status == gvsp::packet_status::unavailable;
        return;
    }
    block->last_packet = now;
    switch (packet->kind) {
        case gvsp::packet_kind::leader:
            add_leader(*block, *packet);
            break;
        case gvsp::packet_kind::payload:
            add_payload(*block, *packet, now);
            break;
        case gvsp::packet_kind::trailer:
            add_trailer(*block, *packet);
            break;
    }
    close_if_complete(*block);
}

/// Searches from the newest block, because nearly every packet belongs to it.
gvsp_assembler::open_block* gvsp_assembler::find(std::uint64_t id) {
    for (auto block = open_.rbegin(); block != open_.rend(); ++block) {
        if ((*block)->id == id) {
            return *block;
        }
    }
    return nullptr;
}

/// A single packet does not advance the newest ID, because its block ID may be damaged.
void gvsp_assembler::count_packet(open_block& block) {
    ++block.packets;
    if (block.packets > 1) {
        update_newest(block.id);
    }
}

void gvsp_assembler::update_newest(std::uint64_t id) {
    if (!newest_ || gvsp::blocks_between(*newest_, id, extended_) > 0) {
        newest_ = id;
    }
}

/// Whether only one packet of the block has arrived, and its ID is not the next one.
bool gvsp_assembler::is_orphan(open_block const& block) const {
    return block.packets <= 1 && newest_ && gvsp::blocks_between(*newest_, block.id, extended_) > 1;
}

/// Whether the packet belongs to a block that has ended.
/// \param restarted set if the camera has restarted its block IDs: the ID was used, but the leader's timestamp differs
bool gvsp_assembler::is_finished(gvsp::packet const& packet, bool& restarted) const {
    restarted = false;
    if (!newest_ || gvsp::blocks_between(*newest_, packet.block, extended_) > 0) {
        return false;
    }
    auto const leader = packet.kind == gvsp::packet_kind::leader ? gvsp::parse_leader(packet.content) : std::nullopt;
    std::uint64_t const timestamp = leader ? leader->timestamp : 0;
    auto const known = std::ranges::find(finished_blocks_, packet.block, &finished_block::id);
    if (known != finished_blocks_.end()) {
        restarted = leader && known->timestamp != 0 && known->timestamp != timestamp;
        return !restarted;
    }
    if (!is_passed(packet.block)) {
        return false;  // a later block overtook it
    }
    restarted = leader && !is_overtaken(packet.block, timestamp);
    return !restarted;
}

/// Whether this block or a later one has been finished.
bool gvsp_assembler::is_passed(std::uint64_t id) const {
    return last_finished_ && gvsp::blocks_between(*last_finished_, id, extended_) <= 0;
}

/// Whether a block that was passed without a packet is of the same sequence of IDs as the finished blocks: these have
/// later IDs and later timestamps. A finished block without a timestamp proves nothing, and the block is taken to be
/// late, because a camera that has restarted its IDs sends more blocks.
bool gvsp_assembler::is_overtaken(std::uint64_t id, std::uint64_t timestamp) const {
    if (gvsp::blocks_between(id, *last_finished_, extended_) > static_cast<std::int64_t>(max_finished_blocks)) {
        return false;  // packets do not arrive that late
    }
    return std::ranges::any_of(finished_blocks_, [&](finished_block const& other) {
        return other.id != 0 && gvsp::blocks_between(id, other.id, extended_) > 0 &&
               (other.timestamp == 0 || other.timestamp > timestamp);
    });
}

/// Whether the packet belongs to the block of the held leader, or to a block at most `max_step` later. A copy of the
/// leader does not count.
bool gvsp_assembler::confirms_restart(gvsp::packet const& packet, std::int64_t max_step) const {
    if (!held_leader_ || packet.extended != extended_ || packet.status != gvsp::packet_status::present) {
        return false;
    }
    std::int64_t const step = gvsp::blocks_between(held_leader_->id, packet.block, extended_);
    return step >= (packet.kind == gvsp::packet_kind::leader ? 1 : 0) && step <= max_step;
}

/// Restarts with the block of the held leader.
void gvsp_assembler::restart(time_point now) {
    held_leader const first = *held_leader_;
    reset();
    add(std::span(first.packet).first(first.bytes), now);
}

/// \return null if the packet's block has ended, no buffer is queued for it, or the packet is held
gvsp_assembler::open_block* gvsp_assembler::open(gvsp::packet const& packet, std::span<std::byte const> datagram,
                                                 time_point now) {
    if (packet.extended != extended_) {
        if (newest_ && !std::exchange(other_id_kind_seen_, true)) {
            ++counters_.packets_malformed;  // damaged, unless the next packet is of this kind too
            return nullptr;
        }
        reset();
    }
    bool restarted = false;
    if (is_finished(packet, restarted)) {
        ++counters_.packets_late;
        return nullptr;
    }
    if (restarted && confirms_restart(packet, max_finished_blocks)) {
        restart(now);
    } else if (restarted) {
        held_leader held{.id = packet.block, .packet = {}, .bytes = 0};
        held.bytes = std::min(datagram.size(), held.packet.size());
        std::ranges::copy(datagram.first(held.bytes), held.packet.begin());
        held_leader_ = held;
        return nullptr;
    }
    extended_ = packet.extended;
    if (free_.empty()) {
        if (gvsp::blocks_between(open_.front()->id, packet.block, extended_) < 0) {
            ++counters_.packets_late;  // all slots hold later blocks
            return nullptr;
        }
        close(*open_.front());
        deliver_closed();
        if (is_passed(packet.block)) {
            ++counters_.packets_late;  // blocks behind the oldest were waiting for it
            return nullptr;
        }
    }
    open_block& block = *free_.back();
    free_.pop_back();
    block.start(packet, settings_.packet_bytes, acquire_buffer(), now);
    auto const after = std::ranges::find_if(
        open_, [&](open_block const* other) { return gvsp::blocks_between(block.id, other->id, extended_) > 0; });
    open_.insert(after, &block);
    if (block.buffer == nullptr) {
        close(block);
        deliver_closed();
        return nullptr;
    }
    return &block;
}

PvBuffer::impl* gvsp_assembler::acquire_buffer() {
    if (unused_buffers_.empty()) {
        return callbacks_.acquire_buffer();
    }
    PvBuffer::impl* const next = unused_buffers_.back();
    unused_buffers_.pop_back();
    return next;
}

/// Reuses the memory of the bit sets.
void gvsp_assembler::open_block::start(gvsp::packet const& first, std::uint32_t packet_bytes, PvBuffer::impl* memory,
                                       time_point now) {
    auto received_bits = std::move(received);
    auto requested_bits = std::move(requested);
    *this = {};
    id = first.block;
    extended = first.extended;
    buffer = memory;
    data_bytes = data_bytes_of(packet_bytes, extended);
    max_packets =
        memory == nullptr
            ? 0
            : static_cast<std::uint32_t>(std::min(packets_of(memory->size, data_bytes), max_packets_per_block));
    received = std::move(received_bits);
    received.assign((max_packets + 63) / 64, 0);
    requested = std::move(requested_bits);
    requested.assign((max_packets + 2 + 63) / 64, 0);  // with leader and trailer
    start_time = now;
    last_packet = now;
    next_request = now + reordering_time;
}

void gvsp_assembler::add_leader(open_block& block, gvsp::packet const& packet) {
    auto leader = gvsp::parse_leader(packet.content);
    if (leader && leader->chunk_data) {
        leader->image = settings_.image;
    }
    if (!leader || packet.number != 0) {
        ++counters_.packets_malformed;
    } else if (block.leader) {
        add_duplicate(block, leader == block.leader);
    } else {
        block.leader = leader;
        count_resent(block, packet);
    }
}

void gvsp_assembler::add_trailer(open_block& block, gvsp::packet const& packet) {
    if (packet.number == 0) {
        ++counters_.packets_malformed;
    } else if (block.payload_packets) {
        add_duplicate(block, packet.number - 1 == *block.payload_packets);
    } else {
        block.payload_packets = packet.number - 1;
        count_resent(block, packet);
        block.too_large = block.too_large || *block.payload_packets > block.max_packets;
        block.unrecoverable = block.unrecoverable || block.highest > *block.payload_packets;
    }
}

void gvsp_assembler::add_payload(open_block& block, gvsp::packet const& packet, time_point now) {
    std::size_t const bytes = packet.content.size();
    if (packet.number == 0 || bytes == 0 || bytes > block.data_bytes) {
        ++counters_.packets_malformed;
        return;
    }
    std::size_t const offset = (packet.number - std::size_t{1}) * block.data_bytes;
    if (packet.number > block.max_packets || offset + bytes > block.buffer->size) {
        block.too_large = true;
        return;
    }
    std::uint32_t const bit = packet.number - 1;
    std::uint64_t& word = block.received[bit / 64];
    std::uint64_t const mask = std::uint64_t{1} << bit % 64;
    if ((word & mask) != 0) {
        add_duplicate(block, std::memcmp(block.buffer->memory + offset, packet.content.data(), bytes) == 0);
        return;
    }
    word |= mask;
    count_resent(block, packet);
    std::memcpy(block.buffer->memory + offset, packet.content.data(), bytes);
    ++block.count;
    if (packet.number > block.highest + 1 && block.count == block.highest + 1) {
        block.next_request = now + reordering_time;  // the first gap
    }
    block.highest = std::max(block.highest, packet.number);
    block.end = std::max(block.end, offset + bytes);
    if (bytes < block.data_bytes && (block.short_packet == 0 || packet.number < block.short_packet)) {
        block.short_packet = packet.number;
    }
    check_end(block);
}

/// A packet after the end of its block contradicts the packet that announced the end.
void gvsp_assembler::check_end(open_block& block) {
    bool const beyond_end = (block.short_packet != 0 && block.highest > block.short_packet) ||
                            (block.payload_packets && block.highest > *block.payload_packets);
    block.unrecoverable = block.unrecoverable || beyond_end;
}

/// Only whole packets are predicted: the last one of a block is usually shorter. A block whose end is known, or of
/// which a single packet arrived, is left to `add`.
expected_run gvsp_assembler::expect() const {
    if (open_.empty()) {
        return {};
    }
    open_block const& block = *open_[index_of_newest()];
    if (block.closed || block.packets == 0 || is_orphan(block) || block.payload_packets || block.short_packet != 0) {
        return {};
    }
    std::size_t const image = block.leader ? block.leader->image.bytes : 0;
    std::size_t const announced = std::max(settings_.payload_bytes, image);
    std::size_t const size = block.buffer->size;
    std::size_t const whole_packets = (announced != 0 ? std::min(announced, size) : size) / block.data_bytes;
    std::size_t const end = std::min<std::size_t>(whole_packets, block.max_packets);
    if (end <= block.highest) {
        return {};
    }
    expected_run run;
    run.extended = block.extended;
    run.block = block.id;
    run.first = block.highest + 1;
    run.packets = end - block.highest;
    run.memory = reinterpret_cast<std::byte*>(block.buffer->memory) + block.highest * block.data_bytes;
    run.header_bytes = block.extended ? gvsp::extended_header_bytes : gvsp::header_bytes;
    run.data_bytes = block.data_bytes;
    return run;
}

void gvsp_assembler::add_received(expected_run const& run, std::size_t packets, time_point now) {
    open_block* const found = find(run.block);
    if (packets == 0 || found == nullptr) {
        return;
    }
    open_block& block = *found;
    other_id_kind_seen_ = false;
    block.packets += static_cast<std::uint32_t>(packets - 1);
    count_packet(block);
    block.last_packet = now;
    for (std::size_t i = 0; i < packets; ++i) {
        std::size_t const bit = block.highest + i;
        block.received[bit / 64] |= std::uint64_t{1} << bit % 64;
        counters_.packets_resent += block.clear_requested(static_cast<std::uint32_t>(bit + 1)) ? 1U : 0U;
    }
    block.count += static_cast<std::uint32_t>(packets);
    block.highest += static_cast<std::uint32_t>(packets);
    block.end = std::max(block.end, block.highest * block.data_bytes);
    check_end(block);
    close_if_complete(block);
}

/// A packet with a damaged number is stored in another packet's place. When that packet arrives, the two differ, and
/// either may be the damaged one.
void gvsp_assembler::add_duplicate(open_block& block, bool same) {
    ++counters_.packets_duplicate;
    block.conflicting = block.conflicting || !same;
    block.unrecoverable = block.unrecoverable || !same;
}

void gvsp_assembler::close_if_complete(open_block& block) {
    if (block.too_large || is_complete(block)) {
        close(block);
        deliver_closed();
    }
}

bool gvsp_assembler::is_complete(open_block const& block) const {
    return block.leader && block.payload_packets && !block.conflicting && block.count == *block.payload_packets &&
           block.highest == block.count && (block.short_packet == 0 || block.short_packet == block.highest);
}

std::uint32_t gvsp_assembler::expected_packets(open_block const& block) const {
    if (block.payload_packets) {
        return std::min(*block.payload_packets, block.max_packets);
    }
    std::size_t const image = block.leader ? block.leader->image.bytes : 0;
    std::size_t const expected = saturate(packets_of(std::max(settings_.payload_bytes, image), block.data_bytes));
    return static_cast<std::uint32_t>(
        std::min<std::size_t>(std::max<std::size_t>(expected, block.highest), block.max_packets));
}

/// \return index in `open_` of the last block that is not an orphan; 0 if there is none
std::size_t gvsp_assembler::index_of_newest() const {
    std::size_t index = open_.size();
    while (index > 1 && is_orphan(*open_[index - 1])) {
        --index;
    }
    return index - 1;
}

stream_progress gvsp_assembler::progress() const {
    stream_progress progress = last_transfer_;
    if (!open_.empty()) {
        open_block const& block = *open_[index_of_newest()];
        std::size_t const image = block.leader ? block.leader->image.bytes : 0;
        progress.bytes = block.end;
        progress.expected = std::max(settings_.payload_bytes, image);
        progress.start_time = block.start_time;
    }
    return progress;
}

void gvsp_assembler::record_transfer(open_block const& block) {
    ++last_transfer_.finished;
    last_transfer_.duration = block.last_packet - block.start_time;
    last_transfer_.undisturbed = block.buffer != nullptr && is_complete(block) && !block.any_requested;
}

/// Whether packets are missing that should have arrived, as opposed to packets that the camera has not sent yet.
bool gvsp_assembler::has_overdue_packets(open_block const& block, bool newest, time_point now) const {
    return !newest || block.payload_packets || block.count != block.highest || !block.leader ||
           now - block.last_packet >= silence_time;
}

void gvsp_assembler::poll(time_point now) {
    drop_orphans(now);
    std::size_t const last = open_.empty() ? 0 : index_of_newest();
    for (std::size_t i = 0; i < open_.size(); ++i) {
        open_block& block = *open_[i];
        bool const newest = i >= last;
        if (block.closed || is_orphan(block) || !has_overdue_packets(block, newest, now)) {
            continue;
        }
        if (settings_.can_resend && !block.unrecoverable && block.requests < max_requests &&
            now >= block.next_request) {
            request_missing(block, newest, now);
        }
        if (must_abandon(block, newest, now)) {
            close(block);
        }
    }
    deliver_closed();
}

/// Discards blocks that the camera never sent: each consists of one packet with a damaged block ID. Their buffers are
/// used for the next blocks.
void gvsp_assembler::drop_orphans(time_point now) {
    std::erase_if(open_, [&](open_block* block) {
        bool const dropped = !block->closed && is_orphan(*block) && now - block->last_packet >= silence_time;
        if (dropped) {
            drop(*block);
        }
        return dropped;
    });
}

void gvsp_assembler::drop(open_block& block) {
    ++counters_.packets_malformed;
    if (block.buffer != nullptr) {
        unused_buffers_.push_back(block.buffer);
    }
    free_.push_back(&block);
}

void gvsp_assembler::stop() {
    std::erase_if(open_, [this](open_block* block) {
        if (!block->closed) {
            free_.push_back(block);
        }
        return !block->closed;
    });
    deliver_closed();
    counters_.blocks_missing += std::exchange(missing_before_last_, 0);
}

bool gvsp_assembler::must_abandon(open_block const& block, bool newest, time_point now) const {
    auto const silence = now - block.last_packet;
    if (silence >= block_timeout) {
        return true;
    }
    bool const camera_has_sent_all = !newest || block.payload_packets.has_value();
    if (block.unrecoverable || !settings_.can_resend) {
        return camera_has_sent_all && silence >= reordering_time;
    }
    return camera_has_sent_all && block.requests >= max_requests && now >= block.next_request;
}

/// Requests what is missing of the packets that the camera has sent: up to the highest one that arrived, or all of the
/// block once the camera has moved on. Rounds are counted only then, so that packets lost at the end of a slow block
/// are requested as often as those lost at its start.
void gvsp_assembler::request_missing(open_block& block, bool newest, time_point now) {
    bool const all = !newest || block.payload_packets || now - block.last_packet >= silence_time;
    std::uint32_t const expected = expected_packets(block);
    std::uint32_t const sent = all ? expected : block.highest;
    std::uint32_t const missing = sent - std::min(sent, block.count);
    block.requests += all ? 1 : 0;
    block.next_request = now + request_interval * std::max(block.requests, 1U);
    if (missing > min_missing && missing > expected / missing_divisor) {
        block.unrecoverable = true;
        return;
    }
    if (!block.leader) {
        request_range(block, 0, 0);
    }
    std::uint32_t ranges = 0;
    for_each_gap(block.received, sent, [&](std::uint32_t first, std::uint32_t last) {
        request_range(block, first, last);
        return ++ranges < max_ranges;
    });
    if (all && !block.payload_packets) {
        request_range(block, expected + 1, expected + 1);
    }
}

void gvsp_assembler::request_range(open_block& block, std::uint32_t first, std::uint32_t last) {
    callbacks_.request_resend(
        {block.extended, block.id, first, std::min(last, block.extended ? last : gvsp::max_short_packet)});
    block.mark_requested(first, last);
    block.any_requested = true;
    counters_.packets_resend_requested += last - first + 1;
}

void gvsp_assembler::open_block::mark_requested(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t number = first; number <= last; ++number) {
        requested[number / 64] |= std::uint64_t{1} << number % 64;
    }
}

/// \return whether the packet was requested, on the first call for its number since the request
bool gvsp_assembler::open_block::clear_requested(std::uint32_t number) {
    if (number / 64 >= requested.size()) {
        return false;
    }
    std::uint64_t const mask = std::uint64_t{1} << number % 64;
    bool const was_requested = (requested[number / 64] & mask) != 0;
    requested[number / 64] &= ~mask;
    return was_requested;
}

/// Called when a packet arrives for the first time. A packet that was merely late counts too if it was requested,
/// because it cannot be distinguished from the resent copy.
void gvsp_assembler::count_resent(open_block& block, gvsp::packet const& packet) {
    if (block.clear_requested(packet.number)) {
        ++counters_.packets_resent;
    }
}

std::uint32_t gvsp_assembler::count_missing(open_block const& block) const {
    std::uint32_t const expected = expected_packets(block);
    return expected - std::min(expected, block.count) + (block.leader ? 0 : 1) + (block.payload_packets ? 0 : 1);
}

/// From here on, the block's memory is not accessed.
void gvsp_assembler::close(open_block& block) {
    block.closed = true;
}

void gvsp_assembler::deliver_closed() {
    while (!open_.empty() && open_.front()->closed) {
        open_block& block = *open_.front();
        open_.erase(open_.begin());
        if (is_orphan(block)) {
            drop(block);
            continue;
        }
        free_.push_back(&block);
        record_finished(block);
        record_transfer(block);
        if (block.buffer == nullptr) {
            ++counters_.blocks_without_buffer;
        } else {
            callbacks_.block_finished(*block.buffer, evaluate(block));
        }
    }
}

/// If the leader announces a larger image than arrived, the leader is damaged or the block's end is missing.
received_block gvsp_assembler::evaluate(open_block const& block) {
    received_block block_result;
    block_result.timestamp = block.leader ? block.leader->timestamp : 0;
    block_result.bytes = block.end;
    if (block.too_large) {
        block_result.result = PvResult::Code::BUFFER_TOO_SMALL;
        ++counters_.blocks_too_large;
    } else if (!is_complete(block) || block.leader->image.bytes > block.end) {
        block_result.result = PvResult::Code::MISSING_PACKETS;
        ++counters_.blocks_incomplete;
        counters_.packets_lost += count_missing(block);
    } else {
        block_result.result = PvResult::Code::OK;
        block_result.width = block.leader->image.width;
        block_result.height = block.leader->image.height;
        block_result.image_bytes = block.leader->image.bytes;
        ++counters_.blocks_complete;
    }
    return block_result;
}

void gvsp_assembler::record_finished(open_block const& block) {
    counters_.blocks_missing += std::exchange(missing_before_last_, 0);  // another block confirms the last ID
    if (last_finished_) {
        std::int64_t const step = gvsp::blocks_between(*last_finished_, block.id, extended_);
        missing_before_last_ = step > 0 ? static_cast<std::uint64_t>(step - 1) : 0;
    }
    last_finished_ = block.id;
    held_leader_.reset();  // the IDs go on
    update_newest(block.id);
    finished_blocks_[finished_next_] = {block.id, block.leader ? block.leader->timestamp : 0};
    finished_next_ = (finished_next_ + 1) % finished_blocks_.size();
}

/// Closes the open blocks as they are and forgets all IDs: the camera has restarted them.
void gvsp_assembler::reset() {
    for (open_block* const block : open_) {
        close(*block);
    }
    deliver_closed();
    missing_before_last_ = 0;
    held_leader_.reset();
    other_id_kind_seen_ = false;
    finished_blocks_.fill({});
    newest_.reset();
    last_finished_.reset();
}

}  // namespace openpv
