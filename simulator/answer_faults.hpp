#pragma once

#include <vector>

#include "active_faults.hpp"
#include "gvcp_device.hpp"

namespace camsim {

/// What the faults in force make of the control channel's answers: a filter that sees bytes.
class answer_faults {
public:
    explicit answer_faults(active_faults& faults) : faults_(faults) {}

    std::vector<gvcp_answer> filter(std::vector<gvcp_answer> answers);

private:
    static bool concerns(active_fault const& one, gvcp_answer const& answer);
    bool apply(active_fault& one, std::vector<gvcp_answer>& answers);

    active_faults& faults_;
};

}  // namespace camsim
