// SPDX-License-Identifier: MIT
#pragma once
/// \file
/// Decides when a camera counts as lost.

#include <chrono>
#include <cstdint>

#include "gvcp/register_port.hpp"

namespace openpv {

/// Evaluates the results of the heartbeat: periodic reads of the control channel privilege register. A value without a
/// clock or a thread: times are arguments. The decision "lost" is final.
///
/// The camera is lost if no application has control any more (it restarted, or dropped this one), unless the connection
/// is read-only, if its address answers "port unreachable" four times in a row, or if it does not respond for two
/// seconds.
class connection_state {
public:
    using clock = std::chrono::steady_clock;

    /// A busy camera, for example while it loads a user set, may ignore requests for a while.
    static constexpr std::chrono::milliseconds silence_timeout{2000};
    /// A camera that restarts its network stack may send "port unreachable" for a moment.
    static constexpr int max_refusals = 4;

    /// \param controlled whether this process controls the camera
    explicit connection_state(clock::time_point now, bool controlled = true)
        : last_response_(now), controlled_(controlled) {}

    /// Adds a response of the camera to another request.
    void add_response(clock::time_point when);
    /// Adds the result of one read.
    /// \param privilege the register's value if `outcome` is `success`
    void add(register_outcome outcome, std::uint32_t privilege, clock::time_point now);

    bool is_suspect() const { return refusals_ > 0; }  ///< the next read should follow soon
    bool lost() const { return lost_; }

private:
    clock::time_point last_response_;
    bool controlled_;
    int refusals_ = 0;  ///< consecutive "port unreachable" messages
    bool lost_ = false;
};

}  // namespace openpv
