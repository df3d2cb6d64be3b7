// SPDX-License-Identifier: MIT
#include "device/control_channel.hpp"

namespace camsim {

bool control_channel::is_primary(endpoint const& application) const {
    return primary_ == application;
}

bool control_channel::may_read(endpoint const& application) const {
    return (privilege_ & exclusive_access) == 0 || is_primary(application);
}

bool control_channel::may_write(endpoint const& application) const {
    return is_primary(application);
}

gvcp::status control_channel::write_privilege(endpoint const& application, std::uint32_t value, time_point now) {
    if (primary_ && !is_primary(application)) {
        return gvcp::status::access_denied;
    }
    std::uint32_t const requested = value & (exclusive_access | control_access);
    if (requested == 0) {
        release();
        return gvcp::status::success;
    }
    privilege_ = requested;
    primary_ = application;
    last_command_ = now;
    return gvcp::status::success;
}

void control_channel::on_command(endpoint const& application, time_point now) {
    if (is_primary(application)) {
        last_command_ = now;
    }
}

std::optional<control_channel::time_point> control_channel::expiry(std::chrono::milliseconds heartbeat_timeout) const {
    return primary_ ? std::optional(last_command_ + heartbeat_timeout) : std::nullopt;
}

void control_channel::release() {
    privilege_ = 0;
    primary_.reset();
}

}  // namespace camsim
