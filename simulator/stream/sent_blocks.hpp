// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

#include "stream/stream_block.hpp"

namespace camsim {

/// The blocks that PACKETRESEND_CMD can refer to: descriptions of the last blocks, from which their packets are
/// rendered again. One thread sends blocks and another one resends packets, so a mutex guards it.
class sent_blocks {
public:
    struct entry {
        stream_block block;
        std::uint32_t packets_sent = 0;  ///< packets with lower IDs are sent or being sent
    };

    /// \param capacity number of blocks (`--resend-blocks`)
    explicit sent_blocks(std::size_t capacity) : capacity_(capacity) {}

    /// Adds a block and forgets the oldest one if there are more than the capacity.
    void begin(stream_block const& block);

    /// Records the progress of the newest block.
    void advance(std::uint32_t packets_sent);

    /// Forgets all blocks. Called when the stream channel is reopened, because block IDs then restart at 1.
    void clear();

    std::optional<entry> find(std::uint64_t block_id, gvsp::id_mode ids) const;

private:
    mutable std::mutex mutex_;
    std::size_t capacity_;
    std::deque<entry> entries_;  ///< oldest first
};

}  // namespace camsim
