#pragma once
/// \file
/// Puts the packets of a stream together to blocks. No sockets and no clock: packets and times are handed in.

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "block_receiver.hpp"
#include "gvsp_packet.hpp"
#include "receive_pace.hpp"

namespace openpv {

/// What the assembler needs of its surroundings.
class assembler_outlet {
public:
    virtual PvBuffer::impl* next_buffer() = 0;  ///< the memory of the next block; null when there is none
    virtual void block_finished(PvBuffer::impl& buffer, received_block const& block) = 0;
    virtual void ask_again(gvsp::resend_request const& request) = 0;

protected:
    ~assembler_outlet() = default;
};

/// What became of packets and blocks, since the beginning.
struct assembler_counters {
    uint64_t blocks_whole = 0;
    uint64_t blocks_incomplete = 0;
    uint64_t blocks_too_large = 0;
    uint64_t blocks_without_buffer = 0;  ///< there was no memory for them
    uint64_t blocks_skipped = 0;         ///< no packet of them came
    uint64_t packets_missing = 0;        ///< of incomplete blocks
    uint64_t packets_asked_again = 0;
    uint64_t packets_duplicate = 0;
    uint64_t packets_late = 0;   ///< their block had ended
    uint64_t packets_wrong = 0;  ///< they make no sense

    bool operator==(assembler_counters const&) const = default;
    assembler_counters& operator+=(assembler_counters const& other);
    assembler_counters& operator-=(assembler_counters const& other);
};

/// Several blocks may be open at once; they are finished in the order of their IDs. Memory of a finished block is not
/// touched any more. Allocates when it is made, and when a block's buffer is larger than any before.
class gvsp_assembler {
public:
    using time_point = std::chrono::steady_clock::time_point;

    struct settings {
        uint32_t packet_bytes = 0;      ///< of the stream channel: IP and UDP headers included
        std::size_t payload_bytes = 0;  ///< of the camera's blocks at present; 0 when it does not tell
        bool can_resend = false;        ///< whether the camera sends packets again
    };

    gvsp_assembler(settings const& chosen, assembler_outlet& outlet);
    gvsp_assembler(gvsp_assembler const&) = delete;
    gvsp_assembler& operator=(gvsp_assembler const&) = delete;

    void add(std::span<std::byte const> datagram, time_point now);
    /// To be called after every few packets, and every few milliseconds without any: asks for what is missing and ends
    /// blocks that will not become whole.
    void attend(time_point now);
    /// Hands out what has ended and waits for a block before it, and forgets the blocks that have not ended.
    void stop();

    assembler_counters const& counters() const { return counters_; }
    block_transfer newest_block() const;  ///< all zero when none is open

    static constexpr std::size_t most_open_blocks = 16;

private:
    struct open_block {
        uint64_t id = 0;
        bool extended = false;
        PvBuffer::impl* buffer = nullptr;  ///< null: there was none for it
        std::size_t data_bytes = 0;        ///< of each payload packet but the last
        uint32_t most_packets = 0;         ///< payload packets that the buffer has room for
        std::vector<uint64_t> received;    ///< a bit a payload packet; bit 0 is packet 1
        uint32_t packets = 0;              ///< of any kind, the same one more than once
        uint32_t count = 0;                ///< payload packets received
        uint32_t highest = 0;              ///< number of the last payload packet received
        uint32_t short_packet = 0;         ///< number of the first packet with less data than others; 0: none
        std::size_t end = 0;               ///< where the data ends
        time_point began;
        std::optional<gvsp::leader> leader;
        std::optional<uint32_t> payload_packets;  ///< as the trailer tells
        bool too_large = false;
        bool hopeless = false;       ///< something is missing that will never come, or is wrong
        bool contradictory = false;  ///< two packets with the same number said different things: one of them is damaged
        bool over = false;           ///< waits for the blocks before it
        time_point last_packet;
        time_point next_request;
        unsigned requests = 0;

        void begin(gvsp::packet const& first, uint32_t packet_bytes, PvBuffer::impl* memory, time_point now);
    };
    struct past_block {
        uint64_t id = 0;
        uint64_t timestamp = 0;  ///< 0 when its leader did not come
    };

    open_block* find(uint64_t id);
    open_block* open(gvsp::packet const& packet, time_point now);
    bool is_past(gvsp::packet const& packet, bool& begins_anew) const;
    PvBuffer::impl* next_buffer();
    void note_packet(open_block& block);
    void note_newest(uint64_t id);
    void add_payload(open_block& block, gvsp::packet const& packet, time_point now);
    void add_leader(open_block& block, gvsp::packet const& packet);
    void add_trailer(open_block& block, gvsp::packet const& packet);
    void note_duplicate(open_block& block, bool same);
    void close_if_over(open_block& block);

    bool is_stray(open_block const& block) const;
    std::size_t place_of_newest() const;
    void drop_strays(time_point now);
    void drop(open_block& block);
    bool is_whole(open_block const& block) const;
    bool may_miss(open_block const& block, bool newest, time_point now) const;
    bool is_to_be_given_up(open_block const& block, bool newest, time_point now) const;
    uint32_t expected_packets(open_block const& block) const;
    void request_missing(open_block& block, bool newest, time_point now);
    uint32_t count_missing(open_block const& block) const;

    void hand_out_finished();
    void finish(open_block& block);
    received_block judge(open_block const& block);
    void remember(open_block const& block);
    void begin_anew();

    settings const settings_;
    assembler_outlet& outlet_;
    assembler_counters counters_;

    std::array<open_block, most_open_blocks> blocks_;  ///< storage
    std::vector<open_block*> open_;                    ///< by ID, the oldest first
    std::vector<open_block*> free_;
    std::vector<PvBuffer::impl*> spare_;  ///< of blocks that there were none of

    static constexpr std::size_t remembered_blocks = 32;
    std::array<past_block, remembered_blocks> past_{};
    std::size_t past_next_ = 0;
    std::optional<uint64_t> newest_;         ///< the ID furthest along that is no stray's
    std::optional<uint64_t> last_finished_;  ///< the ID finished last
    uint64_t skipped_before_last_ = 0;  ///< IDs between that one and the one before; damaged numbers leave gaps, too
    bool extended_ = false;
    bool other_kind_came_ = false;  ///< the packet before had the other kind of IDs
};

}  // namespace openpv
