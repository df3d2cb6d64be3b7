// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Detects the loss of a camera.

#include <functional>
#include <thread>

#include "gvcp/gvcp_channel.hpp"

namespace openpv {

/// Reads the camera's control channel privilege register twice per second, which keeps control, and reports when the
/// camera is lost or has withdrawn control.
///
/// Uses a thread of its own and the session's control channel. GigE Vision cameras execute one command at a time, so a
/// heartbeat waits while a request is under way, for half a second at most. The session owns it; destruction waits for
/// the thread, at most one read (0.5 s). Failed reads are not errors: `connection_state` evaluates them.
class heartbeat_monitor {
public:
    /// Starts monitoring.
    /// \param channel used until destruction
    /// \param controlled whether this process controls the camera
    /// \param lost called at most once, on the monitor's thread; must not destroy the monitor
    heartbeat_monitor(gvcp_channel& channel, bool controlled, std::function<void()> lost);
    heartbeat_monitor(heartbeat_monitor const&) = delete;
    heartbeat_monitor& operator=(heartbeat_monitor const&) = delete;

private:
    void run(std::stop_token const& stop);

    gvcp_channel& channel_;
    bool const controlled_;
    std::function<void()> lost_;
    std::jthread thread_;  // last, so that it ends before the members that it uses are destroyed
};

}  // namespace openpv
