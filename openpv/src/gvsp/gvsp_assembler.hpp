// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Assembles the packets of a stream into blocks. Uses no sockets and no clock: packets and times are arguments.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "gvsp/block_receiver.hpp"
#include "gvsp/gvsp_packet.hpp"
#include "gvsp/receive_coalescing.hpp"

namespace openpv {

/// What the assembler needs from its owner. Called on the thread that calls the assembler.
class assembler_callbacks {
public:
    virtual PvBuffer::impl* acquire_buffer() = 0;  ///< memory for the next block; null if there is none
    /// Returns a buffer. The assembler does not access it afterwards.
    virtual void block_finished(PvBuffer::impl& buffer, received_block const& block) = 0;
    virtual void request_resend(gvsp::resend_request const& request) = 0;

protected:
    ~assembler_callbacks() = default;
};

/// Statistics since the assembler was made.
struct assembler_counters {
    std::uint64_t blocks_complete = 0;
    std::uint64_t blocks_incomplete = 0;         ///< ended with packets missing or contradicting each other
    std::uint64_t blocks_too_large = 0;          ///< larger than their buffer
    std::uint64_t blocks_without_buffer = 0;     ///< dropped: no buffer was queued
    std::uint64_t blocks_missing = 0;            ///< gaps in the block IDs: no packet arrived
    std::uint64_t packets_lost = 0;              ///< never arrived, of incomplete blocks
    std::uint64_t packets_resend_requested = 0;  ///< named in resend requests; a packet requested twice counts twice
    std::uint64_t packets_resent = 0;  ///< distinct packets that arrived after a request, while their block was open
    std::uint64_t packets_duplicate = 0;
    std::uint64_t packets_late = 0;       ///< arrived after their block had ended
    std::uint64_t packets_malformed = 0;  ///< not a valid packet, or one with an implausible block ID

    bool operator==(assembler_counters const&) const = default;
    assembler_counters& operator-=(assembler_counters const& other);  ///< for the counts since an earlier state
};

/// The packets that a camera sends next if none is lost: payload packets of one block, of equal size, with consecutive
/// numbers. None of them has arrived, so their places in the block's buffer may be overwritten before they do.
struct expected_run {
    bool extended = false;
    std::uint64_t block = 0;
    std::uint32_t first = 0;       ///< packet number
    std::size_t packets = 0;       ///< 0: nothing can be predicted
    std::byte* memory = nullptr;   ///< place of the first packet's data; the others follow without gaps
    std::size_t header_bytes = 0;  ///< of each packet, before its data
    std::size_t data_bytes = 0;    ///< of each packet
};

/// Copies packets into buffers, requests missing packets, and finishes blocks.
///
/// Up to `max_open_blocks` blocks are open at once; they are finished in the order of their IDs. A block that is
/// complete, or whose missing packets will not arrive, is *closed*: it accepts no more packets. It is reported when all
/// earlier blocks have been reported. Packets come from the network and may be damaged: an ID far ahead of the others
/// is not trusted until a second packet confirms it. Until then its block is an *orphan*.
///
/// Use one assembler per acquisition, because packet size and block IDs start again with each. Not thread-safe; the
/// receiver's thread owns it. `add` and `poll` allocate only if a buffer is larger than any before. They
/// return no errors: packets that cannot be used are counted.
class gvsp_assembler {
public:
    using time_point = std::chrono::steady_clock::time_point;

    struct settings {
        std::uint32_t packet_bytes = 0;  ///< stream channel packet size: includes IP and UDP headers
        std::size_t payload_bytes = 0;   ///< block size that the camera reports; 0 if unknown
        bool can_resend = false;         ///< whether the camera supports packet resends
        gvsp::image_size image{};        ///< reported by features; of blocks whose leader does not describe the image
    };

    /// \param callbacks must outlive the assembler
    gvsp_assembler(settings const& chosen, assembler_callbacks& callbacks);
    gvsp_assembler(gvsp_assembler const&) = delete;
    gvsp_assembler& operator=(gvsp_assembler const&) = delete;

    /// Processes one packet.
    /// \param datagram UDP payload, of any contents
    /// \param now time of arrival; must not decrease between calls
    void add(std::span<std::byte const> datagram, time_point now);
    /// Predicts the next packets, so that their data can be received directly into the buffer. Valid until the next
    /// call of an operation that is not const.
    expected_run expect() const;
    /// As `add` for the first packets of a run whose data is in its place already.
    /// \param run returned by the preceding `expect`
    /// \param packets number of packets that arrived, at most `run.packets`
    void add_received(expected_run const& run, std::size_t packets, time_point now);
    /// Requests missing packets and closes blocks that have timed out. Call it after every batch of packets, and every
    /// few milliseconds without packets.
    void poll(time_point now);
    /// Reports the closed blocks that wait for an earlier one, and discards the open ones without reporting them.
    void stop();

    assembler_counters const& counters() const { return counters_; }
    stream_progress progress() const;  ///< of the newest open block, and of the block finished last

    /// A camera that interleaves blocks uses two at a time. More are open only while resends are under way: five rounds
    /// take 80 ms, which is 16 blocks at 200 frames per second.
    static constexpr std::size_t max_open_blocks = 16;

private:
    struct open_block {
        std::uint64_t id = 0;
        bool extended = false;
        PvBuffer::impl* buffer = nullptr;     ///< null if none was queued
        std::size_t data_bytes = 0;           ///< of each payload packet except the last
        std::uint32_t max_packets = 0;        ///< payload packets that fit in the buffer
        std::vector<std::uint64_t> received;  ///< one bit per payload packet; bit 0 is packet 1
        std::vector<std::uint64_t>
            requested;                   ///< one bit per packet requested and not yet received; bit 0 is the leader
        std::uint32_t packets = 0;       ///< of any kind, duplicates included
        std::uint32_t count = 0;         ///< distinct payload packets received
        std::uint32_t highest = 0;       ///< highest payload packet number received
        std::uint32_t short_packet = 0;  ///< lowest number of a packet with less data than the others; 0: none
        std::size_t end = 0;             ///< end of the data received, in bytes
        time_point start_time;
        std::optional<gvsp::leader> leader;
        std::optional<std::uint32_t> payload_packets;  ///< according to the trailer
        bool too_large = false;
        bool unrecoverable = false;  ///< a packet will never arrive, or contradicts the others
        bool conflicting = false;    ///< two packets with the same number differ: one of them is damaged
        bool closed = false;         ///< waits for earlier blocks
        time_point last_packet;
        time_point next_request;
        unsigned requests = 0;
        bool any_requested = false;

        void start(gvsp::packet const& first, std::uint32_t packet_bytes, PvBuffer::impl* memory, time_point now);
        void mark_requested(std::uint32_t first, std::uint32_t last);
        bool clear_requested(std::uint32_t number);
    };
    /// A leader with an ID that was used before: the camera has restarted its IDs, or the ID is damaged.
    struct held_leader {
        std::uint64_t id;
        std::array<std::byte, 128> packet;  ///< its first bytes, which contain all fields that are read
        std::size_t bytes;
    };
    struct finished_block {
        std::uint64_t id = 0;
        std::uint64_t timestamp = 0;  ///< 0 if its leader did not arrive
    };

    open_block* find(std::uint64_t id);
    open_block* open(gvsp::packet const& packet, std::span<std::byte const> datagram, time_point now);
    bool confirms_restart(gvsp::packet const& packet, std::int64_t max_step) const;
    void restart(time_point now);
    bool is_finished(gvsp::packet const& packet, bool& restarted) const;
    bool is_passed(std::uint64_t id) const;
    bool is_overtaken(std::uint64_t id, std::uint64_t timestamp) const;
    PvBuffer::impl* acquire_buffer();
    void count_packet(open_block& block);
    void count_resent(open_block& block, gvsp::packet const& packet);
    void update_newest(std::uint64_t id);
    void add_payload(open_block& block, gvsp::packet const& packet, time_point now);
    static void check_end(open_block& block);
    void add_leader(open_block& block, gvsp::packet const& packet);
    void add_trailer(open_block& block, gvsp::packet const& packet);
    void add_duplicate(open_block& block, bool same);
    void close_if_complete(open_block& block);

    bool is_orphan(open_block const& block) const;
    std::size_t index_of_newest() const;
    void drop_orphans(time_point now);
    void drop(open_block& block);
    bool is_complete(open_block const& block) const;
    bool has_overdue_packets(open_block const& block, bool newest, time_point now) const;
    bool must_abandon(open_block const& block, bool newest, time_point now) const;
    std::uint32_t expected_packets(open_block const& block) const;
    void request_missing(open_block& block, bool newest, time_point now);
    void request_range(open_block& block, std::uint32_t first, std::uint32_t last);
    std::uint32_t count_missing(open_block const& block) const;

    void deliver_closed();
    void close(open_block& block);
    received_block evaluate(open_block const& block);
    void record_finished(open_block const& block);
    void record_transfer(open_block const& block);
    void reset();

    settings const settings_;
    assembler_callbacks& callbacks_;
    assembler_counters counters_;

    std::array<open_block, max_open_blocks> blocks_;  ///< storage
    std::vector<open_block*> open_;                   ///< by ID, the oldest first
    std::vector<open_block*> free_;
    std::vector<PvBuffer::impl*> unused_buffers_;  ///< of dropped orphans

    /// More than the blocks that can be open, so that late packets of each of them are recognised.
    static constexpr std::size_t max_finished_blocks = 32;
    std::array<finished_block, max_finished_blocks> finished_blocks_{};
    std::size_t finished_next_ = 0;
    stream_progress last_transfer_;               ///< the members that describe the block finished last
    std::optional<std::uint64_t> newest_;         ///< highest ID so far (modulo wrap-around), orphans excluded
    std::optional<std::uint64_t> last_finished_;  ///< ID of the block finished last
    /// Number of IDs skipped between the last two finished blocks. Counted as missing only when the next block confirms
    /// the last ID, because a damaged ID also leaves a gap.
    std::uint64_t missing_before_last_ = 0;
    std::optional<held_leader> held_leader_;  ///< until another packet shows whether the camera has restarted its IDs
    bool extended_ = false;
    bool other_id_kind_seen_ = false;  ///< the previous packet had the other kind of IDs
};

}  // namespace openpv
