// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "control/gvcp_device.hpp"
#include "faults/active_faults.hpp"

namespace camsim {

/// Applies the faults of the control domain: delays, drops, duplicates and changes GVCP acknowledges.
///
/// A filter over bytes between gvcp_device and the sockets; the commands themselves are executed regardless. It holds
/// a reference only; its thread safety is that of active_faults.
class ack_faults {
public:
    explicit ack_faults(active_faults& faults) : faults_(faults) {}

    /// \param acks the ACKs to one command
    /// \return the ACKs to send instead
    std::vector<gvcp_ack> filter(std::vector<gvcp_ack> acks);

private:
    static bool affects(active_fault const& one, gvcp_ack const& ack);
    bool apply(active_fault& one, std::vector<gvcp_ack>& acks);

    active_faults& faults_;
};

}  // namespace camsim
