#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

#include "stream_block.hpp"

namespace camsim {

/// What PACKETRESEND can ask for: the blocks sent last, as descriptions from which their packets are made again.
/// One thread sends blocks, another answers resend requests.
class sent_blocks {
public:
    struct entry {
        stream_block block;
        std::uint32_t packets_sent = 0;  ///< packet IDs below this one have left or are leaving
    };

    explicit sent_blocks(std::size_t capacity) : capacity_(capacity) {}

    void begin(stream_block const& block);
    void advance(std::uint32_t packets_sent);
    void clear();
    std::optional<entry> find(std::uint64_t block_id, gvsp::id_mode ids) const;

private:
    mutable std::mutex mutex_;
    std::size_t capacity_;
    std::deque<entry> entries_;  ///< oldest first
};

}  // namespace camsim
