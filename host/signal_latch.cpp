#include "signal_latch.hpp"

namespace mediagrabber {

void signal_latch::raise(request asked) {
    if (asked != request::none) {
        pending_ |= bit(asked);
    }
}

request signal_latch::poll() {
    std::uint32_t const pending = pending_;
    reported_ = request::none;
    for (request const candidate :
         {request::stop, request::stop_second, request::reload, request::user_1, request::user_2}) {
        if ((pending & bit(candidate)) != 0) {
            reported_ = candidate;
            break;
        }
    }
    return reported_;
}

void signal_latch::frame_arrived() {
    if (reported_ == request::user_1 || reported_ == request::user_2) {
        drop(reported_);
        reported_ = request::none;
    }
}

void signal_latch::run_ended() {
    drop(request::stop);
    drop(request::stop_second);
    reported_ = request::none;
}

bool signal_latch::stop_pending() const {
    return (pending_ & (bit(request::stop) | bit(request::stop_second))) != 0;
}

}  // namespace mediagrabber
