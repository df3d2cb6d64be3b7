#include "loss_verdict.hpp"

#include "gvcp_message.hpp"

namespace openpv {

void loss_verdict::add(register_read answer, uint32_t privilege, clock::time_point now) {
    refusals_ = answer == register_read::unreachable ? refusals_ + 1 : 0;
    if (answer == register_read::answered || answer == register_read::refused) {
        last_answer_ = now;
    }
    bool const control_gone =
        answer == register_read::answered && (privilege & (gvcp::privilege_control | gvcp::privilege_exclusive)) == 0;
    lost_ = lost_ || control_gone || refusals_ >= refusals_of_a_lost_camera || now - last_answer_ >= patience;
}

}  // namespace openpv
