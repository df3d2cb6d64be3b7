#pragma once
/// \file
/// When a camera counts as lost.

#include <chrono>
#include <cstdint>

#include "gvcp_client.hpp"

namespace openpv {

/// What the answers to reads of the control privilege add up to.
class loss_verdict {
public:
    using clock = std::chrono::steady_clock;

    /// A camera that is busy (loading a user set, say) may leave requests unanswered for a while.
    static constexpr std::chrono::milliseconds patience{2000};
    /// "Nobody is there" may be said for a moment by a camera that restarts its network.
    static constexpr int refusals_of_a_lost_camera = 4;

    explicit loss_verdict(clock::time_point now) : last_answer_(now) {}

    /// \param privilege what was read, when `answer` is `answered`
    void add(register_read answer, uint32_t privilege, clock::time_point now);

    bool doubtful() const { return refusals_ > 0; }  ///< worth another look soon
    bool lost() const { return lost_; }

private:
    clock::time_point last_answer_;
    int refusals_ = 0;  ///< in a row
    bool lost_ = false;
};

}  // namespace openpv
