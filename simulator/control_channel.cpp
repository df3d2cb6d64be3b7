#include "control_channel.hpp"

namespace camsim {

bool control_channel::is_primary(endpoint const& application) const {
    return primary_ == application;
}

/// Everybody reads, unless somebody else has exclusive access.
bool control_channel::may_read(endpoint const& application) const {
    return (privilege_ & exclusive_access) == 0 || is_primary(application);
}

/// Only the application with control writes; without one nobody does.
bool control_channel::may_write(endpoint const& application) const {
    return is_primary(application);
}

/// A write to the privilege register: takes control when it is free, changes or gives up one's own. Switchover to
/// another application is not offered, so its bits are ignored.
///
/// \return access_denied when another application has control
gvcp::status control_channel::write_privilege(endpoint const& application, std::uint32_t value, time_point now) {
    if (primary_ && !is_primary(application)) {
        return gvcp::status::access_denied;
    }
    std::uint32_t const asked = value & (exclusive_access | control_access);
    if (asked == 0) {
        release();
        return gvcp::status::success;
    }
    privilege_ = asked;
    primary_ = application;
    last_heard_ = now;
    return gvcp::status::success;
}

/// Any command of the primary application keeps its control alive.
void control_channel::heard(endpoint const& application, time_point now) {
    if (is_primary(application)) {
        last_heard_ = now;
    }
}

/// When control is lost unless the primary application is heard before; never when nobody has control.
std::optional<control_channel::time_point> control_channel::expiry(std::chrono::milliseconds heartbeat_timeout) const {
    return primary_ ? std::optional(last_heard_ + heartbeat_timeout) : std::nullopt;
}

void control_channel::release() {
    privilege_ = 0;
    primary_.reset();
}

}  // namespace camsim
