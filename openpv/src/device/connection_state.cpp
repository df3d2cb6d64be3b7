// SPDX-License-Identifier: MIT
#include "device/connection_state.hpp"

#include <algorithm>

#include "gvcp/gvcp_message.hpp"

namespace openpv {

void connection_state::add_response(clock::time_point when) {
    last_response_ = std::max(last_response_, when);
}

void connection_state::add(register_outcome outcome, std::uint32_t privilege, clock::time_point now) {
    refusals_ = outcome == register_outcome::unreachable ? refusals_ + 1 : 0;
    if (outcome == register_outcome::success || outcome == register_outcome::refused) {
        last_response_ = now;
    }
    bool const control_lost = controlled_ && outcome == register_outcome::success &&
                              (privilege & (gvcp::privilege_control | gvcp::privilege_exclusive)) == 0;
    lost_ = lost_ || control_lost || refusals_ >= max_refusals || now - last_response_ >= silence_timeout;
}

}  // namespace openpv
