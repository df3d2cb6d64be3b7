// SPDX-License-Identifier: MIT
#include "plugin/signal_latch.hpp"

#include <initializer_list>

namespace mediagrabber {

void signal_latch::raise(signal_code requested) {
    if (requested != signal_code::none) {
        pending_ |= bit(requested);
    }
}

signal_code signal_latch::poll() {
    std::uint32_t const pending = pending_;
    reported_ = signal_code::none;
    for (signal_code const candidate : {signal_code::stop, signal_code::stop_second_kind, signal_code::reload,
                                        signal_code::user_1, signal_code::user_2}) {
        if ((pending & bit(candidate)) != 0) {
            reported_ = candidate;
            break;
        }
    }
    return reported_;
}

void signal_latch::frame_arrived() {
    if (reported_ == signal_code::user_1 || reported_ == signal_code::user_2) {
        drop(reported_);
        reported_ = signal_code::none;
    }
}

void signal_latch::run_ended() {
    drop(signal_code::stop);
    drop(signal_code::stop_second_kind);
    reported_ = signal_code::none;
}

bool signal_latch::stop_pending() const {
    return (pending_ & (bit(signal_code::stop) | bit(signal_code::stop_second_kind))) != 0;
}

}  // namespace mediagrabber
