// SPDX-License-Identifier: MIT
#include "gvsp/receive_coalescing.hpp"

#include <algorithm>

namespace openpv {
namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;
using seconds = std::chrono::duration<double>;

// A data rate is calculated from at least this much data and time: a few packets of a burst would give any rate.
constexpr std::size_t min_bytes = 32768;
constexpr microseconds min_elapsed{200};
/// Part of the remaining time that the data rate predicts, so that the receiver is awake when the block ends earlier.
constexpr double remaining_fraction = 0.75;
/// The receiver is awake this long before the end that the preceding block predicts. Threads wake 50 to 100 us late.
constexpr microseconds awake_before_end{200};
/// Part of the receive buffer to fill: packets need more memory than their data, and threads wake late.
constexpr double buffer_fraction = 0.25;
/// The assembler's reordering time: a longer sleep would delay resend requests.
constexpr microseconds max_time{2000};
/// While no packets are lost. Less than the 10 ms after which the receiver notices a stop request.
constexpr microseconds max_undisturbed_time{8000};
/// A shorter sleep costs more processor time than it saves.
constexpr microseconds min_time{150};

}  // namespace

/// A block that ended during a sleep ended at an unknown time, so that its duration would extend the next sleep.
void receive_coalescing::learn(stream_progress const& stream) {
    if (stream.finished == finished_) {
        return;
    }
    finished_ = stream.finished;
    if (!stream.undisturbed) {
        duration_ = nanoseconds{0};
    } else if (slept_) {
        duration_ -= duration_ / 8;
    } else {
        duration_ = stream.duration;
    }
}

microseconds receive_coalescing::sleep_time(stream_progress const& stream, std::size_t buffer_bytes,
                                            std::chrono::steady_clock::time_point now) {
    learn(stream);
    slept_ = false;
    auto const elapsed = now - stream.start_time;
    if (stream.bytes >= stream.expected) {
        return microseconds{0};
    }
    seconds until_end{0};
    seconds longest = max_time;
    double bytes_per_second = 0;
    if (duration_ > nanoseconds{0}) {
        bytes_per_second = static_cast<double>(stream.expected) / seconds(duration_).count();
        until_end = duration_ - elapsed - awake_before_end;
        longest = max_undisturbed_time;
    } else if (stream.bytes >= min_bytes && elapsed >= min_elapsed) {
        bytes_per_second = static_cast<double>(stream.bytes) / seconds(elapsed).count();
        until_end =
            seconds(static_cast<double>(stream.expected - stream.bytes) * remaining_fraction / bytes_per_second);
    } else {
        return microseconds{0};
    }
    seconds const until_full(static_cast<double>(buffer_bytes) * buffer_fraction / bytes_per_second);
    seconds const allowed = std::min({until_end, until_full, longest});
    if (allowed < min_time) {
        return microseconds{0};
    }
    slept_ = true;
    return std::chrono::round<microseconds>(allowed);
}

}  // namespace openpv
