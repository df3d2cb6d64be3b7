// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Receive coalescing: how long a receiver sleeps so that it is woken a few times per block, not for every few packets.

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace openpv {

/// Progress of a stream.
struct stream_progress {
    // The block that is being received.
    std::size_t bytes = 0;                             ///< received
    std::size_t expected = 0;                          ///< total; 0 if unknown
    std::chrono::steady_clock::time_point start_time;  ///< arrival of its first packet

    // The block that was finished last.
    std::uint64_t finished = 0;            ///< number of finished blocks
    std::chrono::nanoseconds duration{0};  ///< from its first packet to its last
    bool undisturbed = false;              ///< complete, and no packet had to be requested
};

/// Calculates how long packets may accumulate in the socket.
///
/// The end of a block is predicted: from the duration of the preceding block, or from the data rate so far if packets
/// were lost recently. In the second case sleeps are short, because they delay resend requests. The result never
/// extends beyond the predicted end, nor beyond what fits in the receive buffer. Not thread-safe; the receiver's thread
/// owns it.
class receive_coalescing {
public:
    /// Call it each time that the socket is empty.
    /// \param buffer_bytes packet data that fits in the socket receive buffer
    /// \return 0 if the receiver should wait for the next packet instead: at the end of a block, without a block, and
    ///     at data rates at which a sleep costs more than it saves
    std::chrono::microseconds sleep_time(stream_progress const& stream, std::size_t buffer_bytes,
                                         std::chrono::steady_clock::time_point now);

private:
    void learn(stream_progress const& stream);

    std::uint64_t finished_ = 0;
    std::chrono::nanoseconds duration_{0};  ///< expected of a block; 0: unknown
    bool slept_ = false;                    ///< the previous result was not 0
};

}  // namespace openpv
