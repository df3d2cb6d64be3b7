// SPDX-License-Identifier: MIT
#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "image/frame_renderer.hpp"
#include "protocol/block_layout.hpp"
#include "protocol/chunk_data.hpp"
#include "protocol/gvsp_packet.hpp"
#include "stream/frame_strip.hpp"

namespace camsim {

/// The complete description of a block: all of its packets can be rendered from it at any time.
struct stream_block {
    std::uint64_t block_id = 0;
    gvsp::id_mode ids = gvsp::id_mode::standard;
    std::size_t packet_size = 0;  ///< bytes with IP, UDP and GVSP headers
    std::uint64_t timestamp = 0;  ///< ticks at the start of the exposure
    frame_settings frame;
    chunk_set chunks;
    gvsp::payload_type payload = gvsp::payload_type::image;

    std::size_t image_bytes() const { return frame_bytes(frame.area, frame.format); }
    std::size_t payload_bytes() const { return image_bytes() + chunk_bytes(chunks); }
    block_layout layout() const { return {payload_bytes(), packet_size, ids}; }
};

/// Consecutive packets of equal size (the last one may be shorter), each of `pieces_per_packet` pieces of memory.
struct packet_run {
    std::span<iovec> pieces;
    std::size_t pieces_per_packet;
    std::size_t packet_bytes;  ///< UDP payload of a full packet

    std::size_t packet_count() const { return pieces.size() / pieces_per_packet; }
};

/// Renders the packets of a block, a run at a time, in memory that it owns. A run is valid until the next call. Used by
/// one thread.
class block_packets {
public:
    /// The kernel segments one send (UDP_SEGMENT) into at most 64 packets (UDP_MAX_SEGMENTS).
    static constexpr std::uint32_t max_run_packets = 64;
    /// Largest UDP payload: 65535 bytes minus IP and UDP headers.
    static constexpr std::size_t max_run_bytes = 65507;

    explicit block_packets(scene_settings const& scene);

    /// Selects the block that following calls refer to.
    void begin(stream_block const& block);

    /// \return how many payload packets fit in one run
    std::uint32_t max_packets_per_run() const;

    /// \param resent marks the packet as resent
    packet_run leader(bool resent = false);

    /// \param first_packet packet ID of a payload packet
    /// \param count 1 to max_packets_per_run(), all of them payload packets
    packet_run payload(std::uint32_t first_packet, std::uint32_t count, bool resent = false);

    packet_run trailer(bool resent = false);

private:
    std::span<std::byte> header_memory(std::uint32_t index);
    std::size_t write_header(std::uint32_t index, gvsp::packet_format format, std::uint32_t packet_id, bool resent);
    packet_run single_packet(std::size_t bytes);

    static constexpr std::size_t header_slot = 64;  ///< fits an extended header and an image leader: 20 + 36 bytes

    frame_strip strip_;
    stream_block block_;
    std::array<std::byte, max_run_packets * header_slot> headers_{};
    std::array<iovec, 2UL * max_run_packets> pieces_{};
};

}  // namespace camsim
