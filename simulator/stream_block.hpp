#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "block_layout.hpp"
#include "chunk_data.hpp"
#include "frame_renderer.hpp"
#include "frame_strip.hpp"
#include "gvsp_packet.hpp"

namespace camsim {

/// A block on the wire, completely: from these numbers each of its packets can be made, the first time and again.
struct stream_block {
    std::uint64_t block_id = 0;
    gvsp::id_mode ids = gvsp::id_mode::standard;
    std::size_t packet_size = 0;  ///< bytes with IP, UDP and GVSP headers
    std::uint64_t timestamp = 0;  ///< ticks at the beginning of the exposure
    frame_settings frame;
    chunk_set chunks;

    std::size_t image_bytes() const { return frame_bytes(frame.area, frame.format); }
    std::size_t payload_bytes() const { return image_bytes() + chunk_bytes(chunks); }
    block_layout layout() const { return {payload_bytes(), packet_size, ids}; }
};

/// Packets of equal size, the last one perhaps shorter, each of `pieces_per_packet` pieces of memory.
struct packet_run {
    std::span<iovec> pieces;
    std::size_t pieces_per_packet;
    std::size_t packet_bytes;  ///< UDP payload of a full packet

    std::size_t packet_count() const { return pieces.size() / pieces_per_packet; }
};

/// Makes the packets of a block, a run at a time, in memory that it owns. A run is valid until the next one is made.
class block_packets {
public:
    /// The kernel cuts at most this many packets out of one segmented send (UDP_MAX_SEGMENTS), of at most 64 kB
    /// together.
    static constexpr std::uint32_t largest_run = 64;
    static constexpr std::size_t largest_run_bytes = 65507;

    explicit block_packets(scene_settings const& scene);

    void begin(stream_block const& block);
    std::uint32_t longest_run() const;
    packet_run leader(bool resent = false);
    packet_run payload(std::uint32_t first_packet, std::uint32_t count, bool resent = false);
    packet_run trailer(bool resent = false);

private:
    std::span<std::byte> header_memory(std::uint32_t index);
    std::size_t write_header(std::uint32_t index, gvsp::packet_format format, std::uint32_t packet_id, bool resent);
    packet_run single_packet(std::size_t bytes);

    static constexpr std::size_t header_slot = 64;  ///< room for the longest header and an image leader

    frame_strip strip_;
    stream_block block_;
    std::array<std::byte, largest_run * header_slot> headers_{};
    std::array<iovec, 2UL * largest_run> pieces_{};
};

}  // namespace camsim
