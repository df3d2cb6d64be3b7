#include "gvsp_assembler.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include "PvBuffer_impl.hpp"

namespace openpv {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds reordering_time{2};   ///< packets may overtake each other by as much
constexpr milliseconds silent_time{20};      ///< a camera that pauses this long within a block may have sent all of it
constexpr milliseconds request_interval{5};  ///< while the camera sends the block; then as much more each time
constexpr unsigned most_requests = 5;        ///< rounds of them for one block when the camera is through with it
constexpr milliseconds block_time{250};      ///< without a packet
constexpr uint32_t most_ranges = 64;         ///< in one round of requests
constexpr uint32_t missing_share = 4;        ///< a block is given up when more than one of so many packets is missing,
constexpr uint32_t missing_always = 16;      ///< and more than so many
/// More than a buffer has room for with the smallest packet size that there is; a camera that tells of a smaller one
/// makes no use of memory with it.
constexpr std::size_t most_packets_of_a_block = gvsp::last_short_packet;
constexpr std::size_t most_packets_reserved = 1U << 17U;  ///< for larger blocks memory is taken when they come

uint32_t saturate(std::size_t value) {
    return static_cast<uint32_t>(std::min<std::size_t>(value, std::numeric_limits<uint32_t>::max() / 2));
}

std::size_t packets_of(std::size_t bytes, std::size_t packet_bytes) {
    return bytes / packet_bytes + (bytes % packet_bytes != 0 ? 1 : 0);
}

/// \return bytes of a block in each of its packets but the last, at least 1
std::size_t data_bytes_of(uint32_t packet_bytes, bool extended) {
    std::size_t const headers =
        gvsp::ip_and_udp_headers + (extended ? gvsp::extended_header_bytes : gvsp::header_bytes);
    return packet_bytes > headers ? packet_bytes - headers : 1;
}

/// Calls `visit(first, last)` for each run of zero bits among the first `count`, as packet numbers, until it returns
/// false.
template <class function>
void for_each_gap(std::vector<uint64_t> const& received, uint32_t count, function&& visit) {
    uint32_t at = 0;
    while (at < count) {
        uint64_t const missing = ~received[at / 64] >> at % 64;
        if (missing == 0) {
            at = (at / 64 + 1) * 64;
            continue;
        }
        uint32_t first = at + static_cast<uint32_t>(std::countr_zero(missing));
        if (first >= count) {
            return;
        }
        uint32_t end = first;
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

assembler_counters& assembler_counters::operator+=(assembler_counters const& other) {
    blocks_whole += other.blocks_whole;
    blocks_incomplete += other.blocks_incomplete;
    blocks_too_large += other.blocks_too_large;
    blocks_without_buffer += other.blocks_without_buffer;
    blocks_skipped += other.blocks_skipped;
    packets_missing += other.packets_missing;
    packets_asked_again += other.packets_asked_again;
    packets_duplicate += other.packets_duplicate;
    packets_late += other.packets_late;
    packets_wrong += other.packets_wrong;
    return *this;
}

assembler_counters& assembler_counters::operator-=(assembler_counters const& other) {
    blocks_whole -= other.blocks_whole;
    blocks_incomplete -= other.blocks_incomplete;
    blocks_too_large -= other.blocks_too_large;
    blocks_without_buffer -= other.blocks_without_buffer;
    blocks_skipped -= other.blocks_skipped;
    packets_missing -= other.packets_missing;
    packets_asked_again -= other.packets_asked_again;
    packets_duplicate -= other.packets_duplicate;
    packets_late -= other.packets_late;
    packets_wrong -= other.packets_wrong;
    return *this;
}

gvsp_assembler::gvsp_assembler(settings const& chosen, assembler_outlet& outlet) : settings_(chosen), outlet_(outlet) {
    open_.reserve(most_open_blocks);
    free_.reserve(most_open_blocks);
    spare_.reserve(most_open_blocks);
    for (open_block& block : blocks_) {
        std::size_t const packets = packets_of(chosen.payload_bytes, data_bytes_of(chosen.packet_bytes, true));
        block.received.reserve(std::min(packets, most_packets_reserved) / 64 + 1);
        free_.push_back(&block);
    }
}

void gvsp_assembler::add(std::span<std::byte const> datagram, time_point now) {
    auto const packet = gvsp::parse(datagram);
    if (!packet) {
        ++counters_.packets_wrong;
        return;
    }
    if (packet->block == 0) {
        return;  // a test packet
    }
    other_kind_came_ = other_kind_came_ && packet->extended != extended_;
    open_block* block = find(packet->block);
    if (block == nullptr && packet->status == gvsp::packet_status::present) {
        block = open(*packet, now);
    }
    if (block == nullptr) {
        return;
    }
    if (block->over) {
        ++counters_.packets_late;
        return;
    }
    note_packet(*block);
    if (packet->status != gvsp::packet_status::present) {
        block->hopeless = block->hopeless || packet->status == gvsp::packet_status::gone;
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
    close_if_over(*block);
}

/// The newest blocks are asked first: nearly every packet belongs to one of them.
gvsp_assembler::open_block* gvsp_assembler::find(uint64_t id) {
    for (auto place = open_.rbegin(); place != open_.rend(); ++place) {
        if ((*place)->id == id) {
            return *place;
        }
    }
    return nullptr;
}

/// One packet alone does not move the stream on: what it says of its block may be damaged.
void gvsp_assembler::note_packet(open_block& block) {
    ++block.packets;
    if (block.packets > 1) {
        note_newest(block.id);
    }
}

void gvsp_assembler::note_newest(uint64_t id) {
    if (!newest_ || gvsp::blocks_between(*newest_, id, extended_) > 0) {
        newest_ = id;
    }
}

/// Whether a block is known by one packet only, and is not the one that comes next.
bool gvsp_assembler::is_stray(open_block const& block) const {
    return block.packets <= 1 && newest_ && gvsp::blocks_between(*newest_, block.id, extended_) > 1;
}

/// Whether the packet belongs to a block that has ended. A camera that begins to count its blocks anew uses an ID
/// again; its leader tells another time then.
bool gvsp_assembler::is_past(gvsp::packet const& packet, bool& begins_anew) const {
    begins_anew = false;
    if (!newest_ || gvsp::blocks_between(*newest_, packet.block, extended_) > 0) {
        return false;
    }
    auto const leader = packet.kind == gvsp::packet_kind::leader ? gvsp::parse_leader(packet.content) : std::nullopt;
    auto const known = std::ranges::find(past_, packet.block, &past_block::id);
    if (known != past_.end()) {
        begins_anew = leader && known->timestamp != 0 && known->timestamp != leader->timestamp;
        return !begins_anew;
    }
    if (!last_finished_ || gvsp::blocks_between(*last_finished_, packet.block, extended_) > 0) {
        return false;  // another block overtook it
    }
    begins_anew = leader.has_value();
    return !begins_anew;
}

/// \return null when the packet's block has ended, or there is no memory for it
gvsp_assembler::open_block* gvsp_assembler::open(gvsp::packet const& packet, time_point now) {
    if (packet.extended != extended_) {
        if (newest_ && !std::exchange(other_kind_came_, true)) {
            ++counters_.packets_wrong;  // damaged, unless the next one is of this kind, too
            return nullptr;
        }
        begin_anew();
    }
    bool anew = false;
    if (is_past(packet, anew)) {
        ++counters_.packets_late;
        return nullptr;
    }
    if (anew) {
        begin_anew();
    }
    extended_ = packet.extended;
    if (free_.empty()) {
        if (gvsp::blocks_between(open_.front()->id, packet.block, extended_) < 0) {
            ++counters_.packets_late;  // the oldest of too many would be this one
            return nullptr;
        }
        finish(*open_.front());
        hand_out_finished();
    }
    open_block& block = *free_.back();
    free_.pop_back();
    block.begin(packet, settings_.packet_bytes, next_buffer(), now);
    auto const after = std::ranges::find_if(
        open_, [&](open_block const* other) { return gvsp::blocks_between(block.id, other->id, extended_) > 0; });
    open_.insert(after, &block);
    if (block.buffer == nullptr) {
        finish(block);
        hand_out_finished();
        return nullptr;
    }
    return &block;
}

PvBuffer::impl* gvsp_assembler::next_buffer() {
    if (spare_.empty()) {
        return outlet_.next_buffer();
    }
    PvBuffer::impl* const next = spare_.back();
    spare_.pop_back();
    return next;
}

/// The memory of its bits is used again.
void gvsp_assembler::open_block::begin(gvsp::packet const& first, uint32_t packet_bytes, PvBuffer::impl* memory,
                                       time_point now) {
    auto bits = std::move(received);
    *this = {};
    id = first.block;
    extended = first.extended;
    buffer = memory;
    data_bytes = data_bytes_of(packet_bytes, extended);
    most_packets = memory == nullptr
                       ? 0
                       : static_cast<uint32_t>(std::min(packets_of(memory->size, data_bytes), most_packets_of_a_block));
    received = std::move(bits);
    received.assign((most_packets + 63) / 64, 0);
    began = now;
    last_packet = now;
    next_request = now + reordering_time;
}

void gvsp_assembler::add_leader(open_block& block, gvsp::packet const& packet) {
    auto const leader = gvsp::parse_leader(packet.content);
    if (!leader || packet.number != 0) {
        ++counters_.packets_wrong;
    } else if (block.leader) {
        note_duplicate(block, leader == block.leader);
    } else {
        block.leader = leader;
    }
}

void gvsp_assembler::add_trailer(open_block& block, gvsp::packet const& packet) {
    if (packet.number == 0) {
        ++counters_.packets_wrong;
    } else if (block.payload_packets) {
        note_duplicate(block, packet.number - 1 == *block.payload_packets);
    } else {
        block.payload_packets = packet.number - 1;
        block.too_large = block.too_large || *block.payload_packets > block.most_packets;
        block.hopeless = block.hopeless || block.highest > *block.payload_packets;
    }
}

void gvsp_assembler::add_payload(open_block& block, gvsp::packet const& packet, time_point now) {
    std::size_t const bytes = packet.content.size();
    if (packet.number == 0 || bytes == 0 || bytes > block.data_bytes) {
        ++counters_.packets_wrong;
        return;
    }
    std::size_t const offset = (packet.number - std::size_t{1}) * block.data_bytes;
    if (packet.number > block.most_packets || offset + bytes > block.buffer->size) {
        block.too_large = true;
        return;
    }
    uint32_t const bit = packet.number - 1;
    uint64_t& word = block.received[bit / 64];
    uint64_t const mask = uint64_t{1} << bit % 64;
    if ((word & mask) != 0) {
        note_duplicate(block, std::memcmp(block.buffer->memory + offset, packet.content.data(), bytes) == 0);
        return;
    }
    word |= mask;
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
    bool const beyond_end = (block.short_packet != 0 && block.highest > block.short_packet) ||
                            (block.payload_packets && block.highest > *block.payload_packets);
    block.hopeless = block.hopeless || beyond_end;
}

/// A damaged number puts a packet in the place of another one. When that one comes, nobody knows which is right.
void gvsp_assembler::note_duplicate(open_block& block, bool same) {
    ++counters_.packets_duplicate;
    block.contradictory = block.contradictory || !same;
    block.hopeless = block.hopeless || !same;
}

void gvsp_assembler::close_if_over(open_block& block) {
    if (block.too_large || is_whole(block)) {
        finish(block);
        hand_out_finished();
    }
}

bool gvsp_assembler::is_whole(open_block const& block) const {
    return block.leader && block.payload_packets && !block.contradictory && block.count == *block.payload_packets &&
           block.highest == block.count && (block.short_packet == 0 || block.short_packet == block.highest);
}

uint32_t gvsp_assembler::expected_packets(open_block const& block) const {
    if (block.payload_packets) {
        return std::min(*block.payload_packets, block.most_packets);
    }
    std::size_t const image = block.leader ? block.leader->image_bytes : 0;
    std::size_t const expected = saturate(packets_of(std::max(settings_.payload_bytes, image), block.data_bytes));
    return static_cast<uint32_t>(
        std::min<std::size_t>(std::max<std::size_t>(expected, block.highest), block.most_packets));
}

/// \return where the last block in `open_` is that is no stray; the first when there is none
std::size_t gvsp_assembler::place_of_newest() const {
    std::size_t place = open_.size();
    while (place > 1 && is_stray(*open_[place - 1])) {
        --place;
    }
    return place - 1;
}

block_transfer gvsp_assembler::newest_block() const {
    if (open_.empty()) {
        return {};
    }
    open_block const& block = *open_[place_of_newest()];
    std::size_t const image = block.leader ? block.leader->image_bytes : 0;
    return {block.end, std::max(settings_.payload_bytes, image), block.began};
}

/// Whether something has failed to come that should have: not merely because the camera is still sending it.
bool gvsp_assembler::may_miss(open_block const& block, bool newest, time_point now) const {
    return !newest || block.payload_packets || block.count != block.highest || !block.leader ||
           now - block.last_packet >= silent_time;
}

void gvsp_assembler::attend(time_point now) {
    drop_strays(now);
    std::size_t const last = open_.empty() ? 0 : place_of_newest();
    for (std::size_t i = 0; i < open_.size(); ++i) {
        open_block& block = *open_[i];
        bool const newest = i >= last;
        if (block.over || is_stray(block) || !may_miss(block, newest, now)) {
            continue;
        }
        if (settings_.can_resend && !block.hopeless && block.requests < most_requests && now >= block.next_request) {
            request_missing(block, newest, now);
        }
        if (is_to_be_given_up(block, newest, now)) {
            finish(block);
        }
    }
    hand_out_finished();
}

/// Blocks that the camera never sent: a packet whose block ID was damaged stands alone. Their memory is there for
/// others.
void gvsp_assembler::drop_strays(time_point now) {
    std::erase_if(open_, [&](open_block* block) {
        bool const dropped = !block->over && is_stray(*block) && now - block->last_packet >= silent_time;
        if (dropped) {
            drop(*block);
        }
        return dropped;
    });
}

void gvsp_assembler::drop(open_block& block) {
    ++counters_.packets_wrong;
    if (block.buffer != nullptr) {
        spare_.push_back(block.buffer);
    }
    free_.push_back(&block);
}

void gvsp_assembler::stop() {
    std::erase_if(open_, [this](open_block* block) {
        if (!block->over) {
            free_.push_back(block);
        }
        return !block->over;
    });
    hand_out_finished();
    counters_.blocks_skipped += std::exchange(skipped_before_last_, 0);
}

bool gvsp_assembler::is_to_be_given_up(open_block const& block, bool newest, time_point now) const {
    auto const silent = now - block.last_packet;
    if (silent >= block_time) {
        return true;
    }
    bool const camera_is_through = !newest || block.payload_packets.has_value();
    if (block.hopeless || !settings_.can_resend) {
        return camera_is_through && silent >= reordering_time;
    }
    return camera_is_through && block.requests >= most_requests && now >= block.next_request;
}

/// Packets that the camera has sent by now: up to the last one that came, and all when it is through with the block.
/// Only then rounds are counted: what is lost at the end of a slow block is asked for as often as what is lost at its
/// beginning.
void gvsp_assembler::request_missing(open_block& block, bool newest, time_point now) {
    bool const all = !newest || block.payload_packets || now - block.last_packet >= silent_time;
    uint32_t const expected = expected_packets(block);
    uint32_t const sent = all ? expected : block.highest;
    uint32_t const missing = sent - std::min(sent, block.count);
    block.requests += all ? 1 : 0;
    block.next_request = now + request_interval * std::max(block.requests, 1U);
    if (missing > missing_always && missing > expected / missing_share) {
        block.hopeless = true;
        return;
    }
    auto const ask = [&](uint32_t first, uint32_t last) {
        outlet_.ask_again(
            {block.extended, block.id, first, std::min(last, block.extended ? last : gvsp::last_short_packet)});
        counters_.packets_asked_again += last - first + 1;
    };
    if (!block.leader) {
        ask(0, 0);
    }
    uint32_t ranges = 0;
    for_each_gap(block.received, sent, [&](uint32_t first, uint32_t last) {
        ask(first, last);
        return ++ranges < most_ranges;
    });
    if (all && !block.payload_packets) {
        ask(expected + 1, expected + 1);
    }
}

uint32_t gvsp_assembler::count_missing(open_block const& block) const {
    uint32_t const expected = expected_packets(block);
    return expected - std::min(expected, block.count) + (block.leader ? 0 : 1) + (block.payload_packets ? 0 : 1);
}

/// Its memory is not touched any more from here on.
void gvsp_assembler::finish(open_block& block) {
    block.over = true;
}

void gvsp_assembler::hand_out_finished() {
    while (!open_.empty() && open_.front()->over) {
        open_block& block = *open_.front();
        open_.erase(open_.begin());
        if (is_stray(block)) {
            drop(block);
            continue;
        }
        free_.push_back(&block);
        remember(block);
        if (block.buffer == nullptr) {
            ++counters_.blocks_without_buffer;
        } else {
            outlet_.block_finished(*block.buffer, judge(block));
        }
    }
}

/// A leader that promises a larger picture than has come is wrong, or the end is missing though no packet is.
received_block gvsp_assembler::judge(open_block const& block) {
    received_block told;
    told.timestamp = block.leader ? block.leader->timestamp : 0;
    told.bytes = block.end;
    if (block.too_large) {
        told.result = PvResult::Code::BUFFER_TOO_SMALL;
        ++counters_.blocks_too_large;
    } else if (!is_whole(block) || block.leader->image_bytes > block.end) {
        told.result = PvResult::Code::MISSING_PACKETS;
        ++counters_.blocks_incomplete;
        counters_.packets_missing += count_missing(block);
    } else {
        told.result = PvResult::Code::OK;
        told.width = block.leader->width;
        told.height = block.leader->height;
        told.image_bytes = block.leader->image_bytes;
        ++counters_.blocks_whole;
    }
    return told;
}

void gvsp_assembler::remember(open_block const& block) {
    counters_.blocks_skipped += std::exchange(skipped_before_last_, 0);  // the camera has gone on from there
    if (last_finished_) {
        int64_t const step = gvsp::blocks_between(*last_finished_, block.id, extended_);
        skipped_before_last_ = step > 0 ? static_cast<uint64_t>(step - 1) : 0;
    }
    last_finished_ = block.id;
    note_newest(block.id);
    past_[past_next_] = {block.id, block.leader ? block.leader->timestamp : 0};
    past_next_ = (past_next_ + 1) % past_.size();
}

/// What is open ends as it is; the IDs known so far mean nothing any more, nor does a gap before the last one.
void gvsp_assembler::begin_anew() {
    for (open_block* const block : open_) {
        finish(*block);
    }
    hand_out_finished();
    skipped_before_last_ = 0;
    other_kind_came_ = false;
    past_.fill({});
    newest_.reset();
    last_finished_.reset();
}

}  // namespace openpv
