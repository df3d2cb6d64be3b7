#pragma once
/// \file
/// How long a receiver may let packets gather, so that it is woken a few times a block and not for every few packets.

#include <chrono>
#include <cstddef>

namespace openpv {

/// A block on its way.
struct block_transfer {
    std::size_t bytes = 0;     ///< that have come
    std::size_t expected = 0;  ///< that it will have; 0 when that is not known
    std::chrono::steady_clock::time_point began;
};

/// Nothing is let gather beyond the block's end, as the pace of its packets so far foretells it, nor beyond what there
/// is room for.
/// \param room  bytes of packets that the socket keeps
/// \return 0 when packets are to be waited for as they come
std::chrono::microseconds gathering_time(block_transfer const& block, std::size_t room,
                                         std::chrono::steady_clock::time_point now);

}  // namespace openpv
