// SPDX-License-Identifier: MIT
#include "telemetry/rate_limited_log.hpp"

namespace mediagrabber {

std::optional<rate_limited_log::message> rate_limited_log::due(clock::time_point now) {
    if (!latest_ || latest_ == logged_ || (logged_ && now < next_)) {
        return std::nullopt;
    }
    logged_ = latest_;
    next_ = now + interval_;
    return logged_;
}

}  // namespace mediagrabber
