// SPDX-License-Identifier: MIT
#include "device/frame_trigger.hpp"

namespace camsim {

void frame_trigger::arm(bool armed) {
    armed_ = armed;
    waiting_.reset();
    ready_ = {};
}

bool frame_trigger::fire(trigger_source from, time_point when) {
    if (!settings.on || from != settings.source || !armed_ || waiting_ || when < ready_) {
        return false;
    }
    waiting_ = when;
    return true;
}

void frame_trigger::take(time_point ready) {
    waiting_.reset();
    ready_ = ready;
}

}  // namespace camsim
