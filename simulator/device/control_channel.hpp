// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "base/ipv4.hpp"
#include "protocol/gvcp_packet.hpp"

namespace camsim {

/// Which application controls the camera: the control channel privilege (CCP) and the heartbeat of GigE Vision.
///
/// At most one application, the primary one, has control. It keeps control as long as commands arrive from it within
/// the heartbeat timeout. Times are arguments, so that tests need not wait. Not synchronised; part of camera_state.
class control_channel {
public:
    using time_point = std::chrono::steady_clock::time_point;

    // Bits of the CCP register.
    static constexpr std::uint32_t exclusive_access = 0x1;
    static constexpr std::uint32_t control_access = 0x2;

    /// Every application may read, unless another one has exclusive access.
    bool may_read(endpoint const& application) const;

    /// Only the primary application may write.
    bool may_write(endpoint const& application) const;

    bool is_primary(endpoint const& application) const;

    /// Executes a write of the CCP register: takes control if it is free, or changes or releases one's own. Switchover
    /// is not supported; its bits are ignored.
    /// \return access_denied if another application has control
    gvcp::status write_privilege(endpoint const& application, std::uint32_t value, time_point now);

    /// Restarts the heartbeat timeout if the application is the primary one. Called for each command.
    void on_command(endpoint const& application, time_point now);

    /// \return when control is lost unless a command arrives; empty if no application has control
    std::optional<time_point> expiry(std::chrono::milliseconds heartbeat_timeout) const;

    void release();

    std::uint32_t privilege() const { return privilege_; }
    std::optional<endpoint> const& primary() const { return primary_; }

private:
    std::uint32_t privilege_ = 0;
    std::optional<endpoint> primary_;
    time_point last_command_;
};

}  // namespace camsim
